#include "Plaze/Writer.h"

#include "Kem/Assert.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace Plaze {

namespace {

// The real clock, also where the time of the logic is virtual: readers in other processes are woken by it.
Kem::Seconds realNow() {
   timespec t{};
   clock_gettime(CLOCK_MONOTONIC, &t);
   return static_cast<Kem::Seconds>(t.tv_sec) + static_cast<Kem::Seconds>(t.tv_nsec) * 1e-9;
}

} // namespace

Writer::Writer(std::string path, Shape const& shape, uint32_t capacity) : path_(std::move(path)) {
   makeDirectoryOf(path_);
   lock_.emplace(path_);
   file_ = openIfThere();
   if (!file_) {
      auto made = TableFile::create(path_, shape, capacity, 1, randomNumber());
      if (!made->linkAs(path_))
         throw Error(Error::Kind::refused, path_,
                     "another process makes it at the same time, without the lock");
      file_ = std::move(made);
   } else if (file_->shape() != shape) {
      if (file_->shape().typeName != shape.typeName)
         throw Error(Error::Kind::refused, path_,
                     "holds " + file_->shape().typeName + ", not " + shape.typeName);
      auto made = TableFile::create(path_, shape, capacity, 1, randomNumber());
      made->replace(path_);
      file_ = std::move(made);
   }
   takeOver();
}

Writer::Writer(std::string path) : path_(std::move(path)), file_(openIfThere()) {
   if (!file_)
      throw Error(Error::Kind::absent, path_, "there is no table of that name");
   lock_.emplace(path_);
   file_ = openIfThere(); // it may have been replaced before we had the lock
   if (!file_)
      throw Error(Error::Kind::absent, path_, "there is no table of that name");
   takeOver();
}

// Null where there is no file of that name.
std::unique_ptr<TableFile> Writer::openIfThere() const {
   try {
      return TableFile::open(path_, true);
   } catch (Error const& error) {
      if (error.kind() == Error::Kind::absent)
         return nullptr;
      throw;
   }
}

void Writer::checkNotLost() const {
   if (file_->isLost())
      throw Error(Error::Kind::refused, path_, "was cut short while it was written");
}

void Writer::takeOver() {
   file_->writerPid().store(static_cast<uint64_t>(getpid()), std::memory_order_relaxed);
   std::string key(file_->header().keyBytes, 0);
   for (uint32_t slot = capacity(); slot-- > 0;) {
      uint64_t const offset = file_->slotOffset(slot);
      uint64_t const sequence = file_->sequence(slot).load(std::memory_order_relaxed);
      uint64_t const word = Layout::wordAt(file_->base(), offset).load(std::memory_order_relaxed);
      auto const head = Layout::Head::of(word, file_->header().keyBytes, file_->header().valueBytes);
      bool isGood = sequence % 2 == 0 && head;
      if (isGood && head->isUsed) {
         Layout::loadBytes(file_->base(), offset + Layout::wordBytes, key.data(), head->keyBytes);
         isGood = slots_.emplace(key.substr(0, head->keyBytes), slot).second;
      }
      if (isGood && head->isUsed)
         continue;
      if (!isGood) {
         write(slot, {}, {}, {});
         ++repairedCount_;
      }
      free_.push_back(slot);
   }
   file_->entries().store(slots_.size(), std::memory_order_relaxed);
   // The writer before us may have been killed between an entry and the counts of it.
   for (uint32_t block = 0; block < file_->places().blocks(); ++block)
      file_->mark(block).fetch_add(1, std::memory_order_release);
   file_->change().fetch_add(1, std::memory_order_release);
   ring();
   checkNotLost();
}

void Writer::write(uint32_t slot, Layout::Head head, std::string_view key, std::string_view value) {
   char* const base = file_->base();
   uint64_t const offset = file_->slotOffset(slot);
   auto const sequence = file_->sequence(slot);
   // Odd already where a writer before us didn't live to end its writing: then this is the end of that one.
   // It must not turn even before the slot is whole.
   uint64_t const writing = sequence.load(std::memory_order_relaxed) | 1;
   // The order of these steps, and why it is enough, is in Layout.h.
   sequence.store(writing, std::memory_order_relaxed);
   std::atomic_thread_fence(std::memory_order_release);
   Layout::wordAt(base, offset).store(head.word(), std::memory_order_relaxed);
   uint64_t const keyOffset = offset + Layout::wordBytes;
   uint64_t const valueOffset = keyOffset + Layout::wordsFor(file_->header().keyBytes) * Layout::wordBytes;
   size_t const half = value.size() / 2 / Layout::wordBytes * Layout::wordBytes;
   Layout::storeBytes(base, keyOffset, key.data(), key.size());
   Layout::storeBytes(base, valueOffset, value.data(), half);
   if (onMidEntry_) [[unlikely]]
      onMidEntry_();
   Layout::storeBytes(base, valueOffset + half, value.data() + half, value.size() - half);
   sequence.store(writing + 1, std::memory_order_release);
   file_->mark(slot / Layout::blockSlots).fetch_add(1, std::memory_order_release);
   file_->change().fetch_add(1, std::memory_order_release);
}

bool Writer::put(std::string_view key, std::string_view value) {
   KEM_ASSERT(!key.empty() && key.size() <= file_->header().keyBytes &&
              value.size() <= file_->header().valueBytes);
   auto at = slots_.find(key);
   if (at != slots_.end()) {
      if (this->value(key) == value)
         return false;
   } else {
      if (free_.empty())
         grow();
      at = slots_.emplace(key, free_.back()).first;
      free_.pop_back();
   }
   write(at->second, {static_cast<uint16_t>(key.size()), static_cast<uint32_t>(value.size()), true}, key,
         value);
   file_->entries().store(slots_.size(), std::memory_order_relaxed);
   checkNotLost();
   ring();
   return true;
}

bool Writer::del(std::string_view key) {
   auto const at = slots_.find(key);
   if (at == slots_.end())
      return false;
   uint32_t const slot = at->second;
   slots_.erase(at);
   free_.push_back(slot);
   write(slot, {}, {}, {});
   file_->entries().store(slots_.size(), std::memory_order_relaxed);
   checkNotLost();
   ring();
   return true;
}

void Writer::delAll() {
   while (!slots_.empty())
      del(std::string(slots_.begin()->first));
}

std::optional<std::string> Writer::value(std::string_view key) const {
   auto const at = slots_.find(key);
   if (at == slots_.end())
      return std::nullopt;
   // Nobody else writes, so it doesn't change.
   uint64_t const offset = file_->slotOffset(at->second);
   char const* const base = file_->base();
   uint64_t const word = Layout::wordAt(base, offset).load(std::memory_order_relaxed);
   auto const head = Layout::Head::of(word, file_->header().keyBytes, file_->header().valueBytes);
   if (!head || !head->isUsed)
      return std::nullopt; // somebody else has been at the file: a put sets it right
   std::string value(head->valueBytes, 0);
   Layout::loadBytes(base, offset + (1 + Layout::wordsFor(file_->header().keyBytes)) * Layout::wordBytes,
                     value.data(), value.size());
   return value;
}

void Writer::grow() {
   uint32_t const before = capacity();
   if (before > Layout::maxCapacity / 2)
      throw Error(Error::Kind::system, path_, "is full with " + std::to_string(before) + " entries");
   auto grown = TableFile::create(path_, shape(), before * 2, generation() + 1, file_->header().lineage);
   grown->modeIs(file_->mode());
   // Sequences, marks and slots are copied as they are: a reader's memory of the
   // old file holds for the new one.
   Layout::Places const& from = file_->places();
   std::memcpy(grown->base() + Layout::countersOffset, file_->base() + Layout::countersOffset,
               sizeof(Layout::Counters));
   std::memcpy(grown->base() + Layout::sequencesOffset, file_->base() + Layout::sequencesOffset,
               before * Layout::wordBytes);
   std::memcpy(grown->base() + grown->places().marksOffset(), file_->base() + from.marksOffset(),
               from.blocks() * Layout::wordBytes);
   std::memcpy(grown->base() + grown->places().slotsOffset(), file_->base() + from.slotsOffset(),
               before * from.slotBytes());
   checkNotLost();
   grown->replace(path_);
   file_ = std::move(grown);
   for (uint32_t slot = capacity(); slot-- > before;)
      free_.push_back(slot);
}

void Writer::ring() {
   // The clock is read after the entry has been written, and kept from before the ring: so
   // what is written without a ring of its own is written at most ringInterval after one, and
   // that is what TableWatch counts on.
   Kem::Seconds const now = realNow();
   if (now < lastRing_ + ringInterval)
      return;
   lastRing_ = now;
   // By the path: through a descriptor that was opened before the file had a name,
   // the directory gets no notification.
   utimensat(AT_FDCWD, path_.c_str(), nullptr, 0);
}

} // namespace Plaze
