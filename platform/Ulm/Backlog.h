// The keys that wait in a deferred stage, and the slice that works them off.
//
// A slice starts at the bookmark, where the last one stopped, and wraps around at the end: a key that is
// added again and again can't starve the keys behind it.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Time.h"

#include <cstdint>

namespace Ulm {

// Why a slice ended.
enum class SliceEnd : uint8_t { backlogEmpty, timeIsUp, noRoom };

// What one step did with its key. An unfinished key stays, and gets the next step too.
struct Step {
   uint64_t finishedCount; // entries; a replacement counts as two
   bool isFinished;
};

template <class Key>
class Backlog {
  public:
   using BacklogIterator = typename Kem::OrderedValueMap<Key, bool>::Iterator;

   explicit Backlog(Key bookmark = {}) : bookmark_(bookmark) {}

   size_t size() const { return keys_.size(); }
   bool isMember(Key const& key) const { return keys_.find(key) != nullptr; }
   void add(Key const& key) {
      keys_.findOrInsert(key, [] { return true; });
   }
   void del(Key const& key) { keys_.erase(key); }
   void delAll() { keys_.clear(); }
   Kem::OrderedValueMap<Key, bool> const& keys() const { return keys_; }

   // Where the next slice starts.
   Key const& bookmark() const { return bookmark_; }
   void bookmarkIs(Key const& key) { bookmark_ = key; }

   // Works keys off until the deadline. `hasRoom()` is asked before each step; `doStep(key)`
   // returns a Step, and takes the key out of the backlog itself when it finishes it. Returns the
   // number of finished entries and says in `end` why it ended. At least one entry is finished
   // however late it is, unless there is no room.
   template <class HasRoom, class DoStep>
   uint64_t processSlice(Kem::Seconds deadline, SliceEnd& end, HasRoom&& hasRoom, DoStep&& doStep) {
      end = SliceEnd::backlogEmpty;
      uint64_t count = 0;
      auto at = keys_.from(bookmark_);
      if (!at)
         at = keys_.begin();
      while (at) {
         Key const key = at.key();
         if (count != 0 && Kem::now() >= deadline) {
            end = SliceEnd::timeIsUp;
            bookmark_ = key;
            return count;
         }
         if (!hasRoom()) {
            end = SliceEnd::noRoom;
            bookmark_ = key;
            return count;
         }
         Step const step = doStep(key);
         count += step.finishedCount;
         if (!step.isFinished)
            continue;
         at.next();
         if (!at)
            at = keys_.begin();
      }
      return count;
   }

  private:
   Kem::OrderedValueMap<Key, bool> keys_; // the value is always true
   Key bookmark_;
};

} // namespace Ulm
