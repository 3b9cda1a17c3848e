#include "Plaze/KeyShadow.h"

namespace Plaze {

namespace {
// A value that no mark can have: the block has to be looked at.
constexpr uint64_t unknownMark = ~uint64_t(0);
} // namespace

// What one pass has found so far. A key may be seen to go in one slot and to come
// in another one, in either order.
class KeyShadow::Found {
  public:
   void comes(std::string_view key) {
      auto const at = changes_.find(key);
      if (at == changes_.end())
         changes_.emplace(key, Change::added);
      else if (at->second == Change::removed)
         at->second = Change::changed;
   }
   void goes(std::string_view key) {
      auto const at = changes_.find(key);
      if (at == changes_.end())
         changes_.emplace(key, Change::removed);
      else if (at->second == Change::added)
         changes_.erase(at);
      else
         at->second = Change::removed;
   }
   void changes(std::string_view key) {
      if (changes_.find(key) == changes_.end())
         changes_.emplace(key, Change::changed);
   }
   void tell(Visit const& visit) const {
      for (auto const& [key, change] : changes_)
         visit(key, change);
   }
   size_t size() const { return changes_.size(); }

   size_t unreadable = 0;

  private:
   std::unordered_map<std::string, Change, BytesHash, std::equal_to<>> changes_;
};

KeyShadow::Outcome KeyShadow::pass(Reader& reader, Visit const& visit) {
   Found found;
   if (reader.refresh() != Reader::State::good) {
      forgetTable(found);
   } else {
      auto const& header = reader.file().header();
      if (header.lineage != lineage_ || header.generation < generation_ || header.capacity < keys_.size()) {
         forgetTable(found);
         lineage_ = header.lineage;
      }
      bool const isSameFile = header.generation == generation_;
      generation_ = header.generation;
      marks_.resize(reader.file().places().blocks(), unknownMark);
      sequences_.resize(header.capacity);
      keys_.resize(header.capacity);
      // Before the slots: what is written from here on is counted by a later value.
      uint64_t const change = reader.change();
      if (isSameFile && isComplete_ && change == change_)
         return {};
      change_ = change;
      for (uint32_t block = 0; block < marks_.size(); ++block) {
         uint64_t const mark = reader.mark(block);
         if (mark == marks_[block])
            continue;
         size_t const unreadableBefore = found.unreadable;
         uint32_t const end = std::min(header.capacity, (block + 1) * Layout::blockSlots);
         for (uint32_t slot = block * Layout::blockSlots; slot < end; ++slot)
            if (reader.sequence(slot) != sequences_[slot])
               look(reader, slot, found);
         marks_[block] = found.unreadable == unreadableBefore ? mark : unknownMark;
      }
      isComplete_ = found.unreadable == 0;
   }
   found.tell(visit);
   return {found.size(), found.unreadable};
}

void KeyShadow::look(Reader const& reader, uint32_t slot, Found& found) {
   Entry entry;
   uint64_t sequence;
   switch (reader.read(slot, entry, sequence)) {
   case Reader::Result::torn:
   case Reader::Result::damaged:
      ++found.unreadable;
      return;
   case Reader::Result::free:
      entry.key.clear();
      break;
   case Reader::Result::entry:
      break;
   }
   sequences_[slot] = sequence;
   std::string& known = keys_[slot];
   // The old key is gone only if it hasn't been seen in another slot meanwhile. A pass can find one key in
   // two slots, when it moved between two looks; it is in the one seen last.
   if (known != entry.key)
      if (auto const at = slots_.find(known); at != slots_.end() && at->second == slot) {
         found.goes(known);
         slots_.erase(at);
      }
   if (!entry.key.empty()) {
      if (slots_.insert_or_assign(entry.key, slot).second)
         found.comes(entry.key);
      else
         found.changes(entry.key);
   }
   known = std::move(entry.key);
}

void KeyShadow::forgetTable(Found& found) {
   for (auto const& [key, slot] : slots_)
      found.goes(key);
   slots_.clear();
   marks_.clear();
   sequences_.clear();
   keys_.clear();
   lineage_ = generation_ = change_ = 0;
   isComplete_ = false;
}

} // namespace Plaze
