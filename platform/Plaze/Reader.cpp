#include "Plaze/Reader.h"

#include <sched.h>

namespace Plaze {

Reader::State Reader::stateIs(State state, std::string reason) {
   if (state != State::good)
      file_ = nullptr;
   if (state != State::refused)
      refused_ = {};
   reason_ = std::move(reason);
   return state_ = state;
}

Reader::State Reader::refresh() {
   struct stat status;
   if (lstat(path_.c_str(), &status) != 0)
      return errno == ENOENT || errno == ENOTDIR
                 ? stateIs(State::absent)
                 : stateIs(State::refused, path_ + ": can't be read: " + std::strerror(errno));
   if (file_ && file_->isSame(status) && file_->isLost()) {
      // Whoever cuts the file and mends it again is not to be followed in that.
      refused_ = status;
      return stateIs(State::refused, path_ + ": was cut short while it was read");
   }
   if (file_ && file_->isSame(status) && static_cast<uint64_t>(status.st_size) >= file_->places().fileBytes())
      return state_;
   if (state_ == State::refused && status.st_ino == refused_.st_ino && status.st_dev == refused_.st_dev &&
       status.st_size == refused_.st_size && status.st_mode == refused_.st_mode &&
       status.st_ctim.tv_sec == refused_.st_ctim.tv_sec && status.st_ctim.tv_nsec == refused_.st_ctim.tv_nsec)
      return state_;
   try {
      auto file = TableFile::open(path_, false);
      if (shape_ && file->shape() != *shape_) {
         Shape const other = file->shape();
         throw Error(Error::Kind::refused, path_,
                     other.typeName == shape_->typeName
                         ? "holds " + other.typeName + " of another release"
                         : "holds " + other.typeName + ", not " + shape_->typeName);
      }
      file_ = std::move(file);
      return stateIs(State::good);
   } catch (Error const& error) {
      if (error.kind() == Error::Kind::absent)
         return stateIs(State::absent);
      refused_ = status;
      return stateIs(State::refused, error.what());
   }
}

Reader::Result Reader::read(uint32_t slot, Entry& entry, uint64_t& sequence) const {
   uint32_t const maxKey = file_->header().keyBytes;
   uint32_t const maxValue = file_->header().valueBytes;
   char const* const base = file_->base();
   uint64_t const headOffset = file_->slotOffset(slot);
   uint64_t const keyOffset = headOffset + Layout::wordBytes;
   uint64_t const valueOffset = keyOffset + Layout::wordsFor(maxKey) * Layout::wordBytes;
   auto const word = file_->sequence(slot);
   sequence = 0;
   for (unsigned tries = 0; tries < maxTries; ++tries) {
      if (tries >= busyTries)
         sched_yield();
      sequence = word.load(std::memory_order_acquire);
      if (sequence % 2 != 0)
         continue;
      auto const head = Layout::Head::of(Layout::wordAt(base, headOffset).load(std::memory_order_relaxed),
                                         maxKey, maxValue);
      // Lengths out of a torn head are within the limits too, or there is no head.
      if (head && head->isUsed) {
         entry.key.resize(head->keyBytes);
         entry.value.resize(head->valueBytes);
         Layout::loadBytes(base, keyOffset, entry.key.data(), head->keyBytes);
         Layout::loadBytes(base, valueOffset, entry.value.data(), head->valueBytes);
      }
      if (onMidRead_) [[unlikely]]
         onMidRead_();
      std::atomic_thread_fence(std::memory_order_acquire);
      bool const isSame = word.load(std::memory_order_relaxed) == sequence;
      if (file_->isLost()) [[unlikely]]
         return Result::damaged; // what was read are zeros that nobody wrote
      if (!isSame)
         continue;
      return !head ? Result::damaged : head->isUsed ? Result::entry : Result::free;
   }
   return Result::torn;
}

} // namespace Plaze
