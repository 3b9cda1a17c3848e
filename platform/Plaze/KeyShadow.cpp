#include "Plaze/KeyShadow.h"

namespace Plaze {

// What one pass has found so far. A key may be seen to go in one slot and to come in another one, in either
// order.
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
      if (header.lineage != lineage_ || header.generation < generation_ || header.capacity < shadow_.size()) {
         forgetTable(found);
         lineage_ = header.lineage;
      }
      bool const isSameFile = header.generation == generation_;
      generation_ = header.generation;
      shadow_.resize(header.capacity);
      // Before the slots: what is written from here on is counted by a later value.
      uint64_t const change = reader.change();
      if (isSameFile && isComplete_ && change == change_)
         return {};
      change_ = change;
      for (uint32_t slot = 0; slot < header.capacity; ++slot)
         if (reader.sequence(slot) != shadow_[slot].sequence)
            look(reader, slot, found);
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
   Slot& shadow = shadow_[slot];
   shadow.sequence = sequence;
   // The old key is gone only if it hasn't been seen in another slot meanwhile. A pass can find one key in
   // two slots, when it moved between two looks; the one seen last is where it stands.
   if (shadow.key != entry.key)
      if (auto const at = slots_.find(shadow.key); at != slots_.end() && at->second == slot) {
         found.goes(shadow.key);
         slots_.erase(at);
      }
   if (!entry.key.empty()) {
      if (slots_.insert_or_assign(entry.key, slot).second)
         found.comes(entry.key);
      else
         found.changes(entry.key);
   }
   shadow.key = std::move(entry.key);
}

void KeyShadow::forgetTable(Found& found) {
   for (auto const& [key, slot] : slots_)
      found.goes(key);
   slots_.clear();
   shadow_.clear();
   lineage_ = generation_ = change_ = 0;
   isComplete_ = false;
}

} // namespace Plaze
