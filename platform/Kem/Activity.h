// The event loop: one thread, one queue of reactors, timers and file descriptors.
//
// A turn waits for descriptors and the next timer (not at all when something is already due), calls the
// descriptor watches that are ready, and delivers: to every reactor that is queued by then, all that is
// pending for it; what was written leaves. Then it fires the timers that are due, by their targets, and
// delivers again after those of one target. So timers whose work takes long, such as slices of a bulk change,
// don't hold up what came before them. What handlers queue comes with the next delivery.
//
// After each delivery the hooks run, by their steps (DeliveryEnd).
//
// stop() ends the turn: what is being called returns, the hooks run once more so that what was written by
// then can leave, and nothing else is called.
//
// Nothing here is re-entrant: a handler must not run the loop. The one exception is deliverQueued(), for the
// client of the state database between two steps of taking in one frame, outside of any handler.
//
// Tests run the loop one turn at a time, or until idle, and move virtual time with advanceTo().
#pragma once

#include "Kem/FunctionRef.h"
#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"
#include "Kem/Time.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace Kem {

class Clock;
class ClockReactor;
class FileDescriptorWatch;
class Notifiee;
class ActivityManager;

// The queue of reactors that have something pending.
class ActivitySm {
  public:
   void enqueue(Notifiee& reactor);
   void dequeue(Notifiee& reactor); // nothing for one that isn't queued
   void forget(Notifiee& reactor);  // of a reactor that is being destroyed, perhaps in its own handler
   bool isEmpty() const { return !head_; }
   size_t deliveredCount() const { return deliveredCount_; } // notifications, since the start

  private:
   friend class ActivityManager;
   // Delivers to the reactors queued now, until `isOver`; returns whether there was any.
   bool runBatch(class ActivityConfig const& activity, bool const& isOver);
   Notifiee* takeFirst();

   Notifiee* head_ = nullptr;
   Notifiee* tail_ = nullptr;
   Notifiee* current_ = nullptr; // the one whose handler runs; null once it has been destroyed
   uint32_t batch_ = 0;          // number of the batch that runs, or ran last
   bool isRunning_ = false;
   uint64_t deliveredCount_ = 0;
};

// What a reactor is handed as its activity: the clock object that all share.
class ActivityConfig final : public PtrInterface {
  public:
   ActivityConfig();
   ~ActivityConfig() override;
   Ptr<Clock const> clock() const;

  private:
   Ptr<Clock> clock_;
};

// Work that is put off and that no queue shows, such as a backlog that waits for room. While any source says
// that it has some, the process has not settled.
class DeferredWork {
  public:
   DeferredWork();
   virtual ~DeferredWork();
   DeferredWork(DeferredWork const&) = delete;
   DeferredWork& operator=(DeferredWork const&) = delete;
   virtual bool hasWork() const = 0;
};

// The steps after each delivery of a turn, in this order; each relies on those before it. A new kind of
// output finds its place among them (docs/architecture.md, "The end of a delivery").
enum class DeliveryEnd : uint8_t {
   encode, // what handlers changed becomes operations: the attribute log
   settle, // what has to wait until everything is written: a held log is released, probes are answered
   send,   // what has been gathered for others leaves for the kernel
   report, // what may be said only of what has left: "ready"
};

class ActivityManager {
  public:
   ActivityManager();
   ~ActivityManager();

   Ptr<ActivityConfig> config() const { return config_; }
   ActivitySm& activitySm() { return activitySm_; }

   // Runs turns until stop(), also one that came before.
   void run();
   // Ends the turn that runs: no handler, timer or descriptor watch is called in it any more.
   void stop();
   // One turn, waiting at most so long for something to happen. Returns whether anything was done.
   bool runTurn(Seconds maxWait = 0);
   // Turns until nothing is queued, due or ready. At most `maxTurns`; more is an
   // endless loop, an assertion failure.
   void runUntilIdle(size_t maxTurns = 100000);
   // Virtual time only: fires each timer at its own time, and runs until idle after each.
   void advanceTo(Seconds time);
   void advance(Seconds duration) { advanceTo(now() + duration); }

   // Delivers until the queue is empty, without timers and descriptors.
   void deliverQueued();

   // Nothing queued, no timer due, no deferred work. Descriptors are not asked.
   bool isSettled() const;
   // When the next timer is due; `never` while none is set: then only descriptors wake the loop.
   Seconds nextTarget() const;
   // Called after each delivery of a turn: by the steps, and within one in the order of adding. A hook may
   // add and remove hooks; it runs no handlers, and what it queues comes with the next delivery.
   void deliveryEndHookAdd(DeliveryEnd step, FunctionRef<void()> hook);
   void deliveryEndHookDel(FunctionRef<void()> hook); // nothing where it wasn't added

  private:
   friend class ClockReactor;
   friend class FileDescriptorWatch;
   friend class DeferredWork;

   bool deliverAndSend(); // returns whether anything was delivered
   void runDeliveryEndHooks();

   // Clock.cpp
   using Timers = std::multimap<Seconds, ClockReactor*>;
   bool fireDueTimers();
   void fire(ClockReactor& reactor);
   // FileDescriptor.cpp
   bool callReadyWatches(Seconds wait);
   FileDescriptorWatch* watchOf(uint64_t tag) const;
   int epollFd();

   Ptr<ActivityConfig> config_;
   ActivitySm activitySm_;
   Timers timers_;
   ClockReactor* firing_ = nullptr;            // the one whose handler runs; null once it has been destroyed
   std::vector<FileDescriptorWatch*> watches_; // by descriptor
   std::set<DeferredWork*> deferredWork_;
   std::array<std::vector<FunctionRef<void()>>, 4> deliveryEndHooks_; // by step; of nothing where removed
   uint32_t watchSerial_ = 0;
   int epollFd_ = -1;
   bool areHooksRunning_ = false;
   bool isStopped_ = false; // since run() began, or before it
   bool isInTurn_ = false;
   bool isTurnOver_ = false; // stop() was called in the turn that runs
};

// The one of this process.
ActivityManager* activityManager();

// The same clock by its other name.
struct ActivityFacility {
   static Ptr<Clock const> clock();
};

} // namespace Kem
