// The base of a deferred stage: it is between an input collection and the state machines that act on it,
// and hands them the entries in slices of time, so that a bulk change never runs as one burst.
//
//    idle --a key is added, the clock is armed--> slice --backlog empty--> idle
//                                                 slice --time is up--> slice, the next turn, behind others
//                                                 slice --no room to write--> pause, 1 ms at most --> slice
//
// A subclass keeps the backlog (Ulm::Backlog), does the entries, and names its parts beside the base's. The
// base owns the notification on the clock, counts, and arms the clock again while the backlog is not empty. A
// stage with a backlog counts as deferred work: the process has not settled before it is empty.
#pragma once

#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/StateMachine.h"
#include "Kem/Trace.h"
#include "Ulm/Backlog.h"

#include <cstdint>

namespace Ulm {

class CodefBase : public Kem::StateMachine, private Kem::DeferredWork {
  public:
   // How soon a slice that ended for want of room is tried again. The kernel takes what a socket holds in
   // some tens of microseconds when the peer reads.
   static constexpr Kem::Seconds roomPause = 0.001;
   // The same where it had finished nothing. It comes before the stages that used up the room: a single
   // change must not wait for the end of a bulk change that fills the log again and again.
   static constexpr Kem::Seconds roomPauseOfNothing = 0.0001;

   // A null clock stands for none: nothing runs before one is set.
   explicit CodefBase(Kem::Ptr<Kem::Clock const> clock);

   // Number of keys that wait.
   virtual uint64_t backlogSize() const = 0;
   // One slice: entries in turn until backlogQuantum seconds after `startTime`, or until there is no room.
   // Returns how many it finished. Called when the clock fires; never waits.
   virtual uint64_t processBacklog(Kem::Seconds const& startTime) = 0;

   // Length of a slice in seconds.
   Kem::Seconds backlogQuantum() const { return backlogQuantum_; }
   virtual void backlogQuantumIs(Kem::Seconds const& seconds) { backlogQuantum_ = seconds; }
   uint64_t updatesSeen() const { return updatesSeen_; }           // entries that were reported to the stage
   uint64_t updatesProcessed() const { return updatesProcessed_; } // entries that slices finished
   Kem::Seconds timeUsed() const { return timeUsed_; }             // seconds spent in slices
   uint64_t dispatchCount() const { return dispatchCount_; }       // slices run
   uint64_t yieldBeforeFinishingCount() const {
      return yieldBeforeFinishingCount_; // slices that ended with the backlog not empty
   }
   virtual void updatesSeenInc(uint64_t const& n) { updatesSeen_ += n; }
   virtual void updatesProcessedInc(uint64_t const& n) { updatesProcessed_ += n; }
   virtual void timeUsedInc(Kem::Seconds const& seconds) { timeUsed_ += seconds; }
   virtual void dispatchCountInc(uint64_t const& n) { dispatchCount_ += n; }
   virtual void yieldBeforeFinishingCountInc(uint64_t const& n) { yieldBeforeFinishingCount_ += n; }
   virtual void clockDel() { clockIs(nullptr); }
   virtual void clockIs(Kem::Ptr<Kem::Clock const> const& clock) { kemClock_.notifierIs(clock); }
   Kem::Ptr<Kem::Clock const> const& clock() const { return kemClock_.notifier(); }
   virtual void updatesSeenIs(uint64_t const& n) { updatesSeen_ = n; }
   virtual void updatesProcessedIs(uint64_t const& n) { updatesProcessed_ = n; }
   virtual void timeUsedIs(Kem::Seconds const& seconds) { timeUsed_ = seconds; }
   virtual void dispatchCountIs(uint64_t const& n) { dispatchCount_ = n; }
   virtual void yieldBeforeFinishingCountIs(uint64_t const& n) { yieldBeforeFinishingCount_ = n; }

   // When the next slice is due; Kem::never while nothing waits.
   Kem::Seconds timeMin() const { return kemClock_.timeMin(); }

  protected:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemClock_); }
   // A slice in the next turn of the loop.
   void armClock() { kemClock_.timeMinIs(0.0); }
   // The slice itself, for processBacklog: see Backlog::processSlice. Says in the traces of `facility` what
   // it takes up, and where and why it pauses.
   template <class Key, class HasRoom, class DoStep>
   uint64_t processSlice(Backlog<Key>& backlog, Kem::Seconds startTime, Kem::TraceFacility const& facility,
                         HasRoom&& hasRoom, DoStep&& doStep) {
      SliceEnd end;
      auto const count = backlog.processSlice(startTime + backlogQuantum_, end, hasRoom, [&](Key const& key) {
         KEM_TRACE(facility, 8, "backlog processing " << key);
         return doStep(key);
      });
      if (end == SliceEnd::noRoom)
         pausedForRoom();
      if (end != SliceEnd::backlogEmpty)
         KEM_TRACE(facility, 7,
                   "Pausing backlog processing at " << backlog.bookmark()
                                                    << (end == SliceEnd::noRoom ? " - attr log full" : ""));
      return count;
   }
   // A slice ended for want of room, not of time.
   void pausedForRoom() { isPausedForRoom_ = true; }

  private:
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(CodefBase& c) : codef(c) {}
      void onTime() override { codef.handleTime(); }
      CodefBase& codef;
   };
   void handleTime();
   bool hasWork() const override { return backlogSize() != 0 && !isZombie(); }

   KemClock kemClock_{*this};
   Kem::Seconds backlogQuantum_ = 0.01;
   uint64_t updatesSeen_ = 0;
   uint64_t updatesProcessed_ = 0;
   Kem::Seconds timeUsed_ = 0;
   uint64_t dispatchCount_ = 0;
   uint64_t yieldBeforeFinishingCount_ = 0;
   bool isPausedForRoom_ = false;
};

} // namespace Ulm
