// The event loop: one thread, one queue of reactors, timers and file descriptors.
//
// A turn waits for descriptors and the next timer (not at all when something is already due), calls the
// descriptor watches that are ready, and delivers: to every reactor that is queued by then, all that is
// pending for it; what was written leaves. Then it fires the timers that are due, by their targets, and
// delivers again after those of one target. So timers whose work takes long, such as slices of a bulk change,
// don't hold up what came before them. What handlers queue comes with the next delivery. Nothing here is
// re-entrant: a handler must not run the loop. The one exception is deliverQueued(), for the client of the
// state database between two steps of taking in one frame, outside of any handler.
//
// Tests run the loop one turn at a time, or until idle, and move virtual time with advanceTo().
#pragma once

#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"
#include "Kem/Time.h"

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
   // Delivers to the reactors queued now; returns whether there was any.
   bool runBatch(class ActivityConfig const& activity);
   Notifiee* takeFirst();

   Notifiee* head_ = nullptr;
   Notifiee* tail_ = nullptr;
   Notifiee* current_ = nullptr; // the one whose handler runs; null once it has been destroyed
   uint32_t batch_ = 0;          // number of the batch that runs, or ran last
   bool isRunning_ = false;
   bool isStopped_ = false; // nothing is delivered while the loop has been told to stop
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

class ActivityManager {
  public:
   ActivityManager();
   ~ActivityManager();

   Ptr<ActivityConfig> config() const { return config_; }
   ActivitySm& activitySm() { return activitySm_; }

   // Runs turns until stop(). A stop before run counts too: then there is no turn.
   void run();
   // Ends the turn: no watch, reactor or timer is called behind the one that says this, only what the end of a
   // delivery sends is still sent. Turns go on when run() has returned.
   void stop() { activitySm_.isStopped_ = true; }
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
   // Called after each delivery of a turn, in order; for what gathers output. A
   // hook may add and remove hooks.
   void deliveryEndHookAdd(void (*hook)(void*), void* context);
   void deliveryEndHookDel(void (*hook)(void*), void* context);

  private:
   friend class ClockReactor;
   friend class FileDescriptorWatch;
   friend class DeferredWork;

   bool deliverAndSend(); // returns whether anything was delivered
   void runDeliveryEndHooks();

   using Timers = std::multimap<Seconds, ClockReactor*>;
   bool isStopped() const { return activitySm_.isStopped_; }
   bool fireDueTimers();
   Seconds nextTarget() const;
   int epollFd();

   Ptr<ActivityConfig> config_;
   ActivitySm activitySm_;
   Timers timers_;
   ClockReactor* firing_ = nullptr;            // the one whose handler runs; null once it has been destroyed
   std::vector<FileDescriptorWatch*> watches_; // by descriptor
   std::set<DeferredWork*> deferredWork_;
   std::vector<std::pair<void (*)(void*), void*>>
       deliveryEndHooks_; // null for one that was removed while they run
   uint32_t watchSerial_ = 0;
   bool areHooksRunning_ = false;
   int epollFd_ = -1;
};

// The one of this process.
ActivityManager* activityManager();

// The same clock by its other name.
struct ActivityFacility {
   static Ptr<Clock const> clock();
};

} // namespace Kem
