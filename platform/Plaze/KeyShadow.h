// The keys of a table as a reader last saw them, and the pass that finds what has become of them since.
//
// It remembers, for each slot, the sequence and the key that was there, and no values. A pass looks at the
// change counter, then at the sequences that have moved, and reports each key that was added, changed or
// removed exactly once. A key whose value was changed and changed back counts as changed; one that went and
// came back counts as changed too, and one that came and went is not reported.
//
// A pass is no picture of the whole table at one moment: each entry is whole, but what is written behind the
// point that the pass has reached comes with the next one. A slot that can't be read stays as it was
// remembered, and is looked at again in the next pass.
//
// When the path shows another table (not just the same one grown), every key of the new one
// counts as changed, because its value isn't known to be the same. When the file goes or is
// refused, all keys are removed.
//
// Cost: about 100 bytes for each entry and 40 for each slot. A pass reads the change counter where nothing
// has happened, else a word for each block of 64 slots and the sequences of those that changed.
#pragma once

#include "Plaze/Reader.h"
#include "Plaze/Writer.h"

#include <functional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Plaze {

class KeyShadow {
  public:
   enum class Change { added, changed, removed };
   using Visit = std::function<void(std::string_view key, Change change)>;
   using Slots = std::unordered_map<std::string, uint32_t, BytesHash, std::equal_to<>>;

   struct Outcome {
      size_t changes = 0;    // keys reported
      size_t unreadable = 0; // slots that were torn or damaged
   };

   // Calls `visit` for each key once the shadow holds the new state; it must not pass again. The reader is
   // one and the same for all passes.
   Outcome pass(Reader& reader, Visit const& visit);

   // The slot of each key, as of the last pass.
   Slots const& slots() const { return slots_; }

  private:
   class Found;

   void forgetTable(Found& found);
   void look(Reader const& reader, uint32_t slot, Found& found);

   // By number of the slot. Apart, because a pass goes over all sequences and touches few keys.
   std::vector<uint64_t> sequences_;
   std::vector<uint64_t> marks_;   // by number of the block
   std::vector<std::string> keys_; // empty: free
   Slots slots_;
   uint64_t lineage_ = 0; // of the table that the shadow is of
   uint64_t generation_ = 0;
   uint64_t change_ = 0;
   bool isComplete_ = false; // the last pass left nothing unread of what change_ counts
};

} // namespace Plaze
