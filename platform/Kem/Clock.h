// Timers. A clock object is shared by many state machines; the target belongs to each reactor on it.
//
//    struct KemRecoveryTimer final : Kem::Clock::NotifieeConst {
//       void onTime() override { sm.handleRecoveryTimer(); }
//    };
//
// A reactor fires once when now() reaches its target, and not again until a new target is set. A target in
// the past, 0 included, fires in the next turn of the loop. Setting the target again replaces it.
#pragma once

#include "Kem/Activity.h"
#include "Kem/PtrInterface.h"
#include "Kem/Time.h"

#include <exception>
#include <map>

namespace Kem {

class ClockReactor : public PtrInterface {
  public:
   ~ClockReactor() override;

   Ptr<Clock const> const& notifier() const { return clock_; }
   // Null stops it. Binding sets no target.
   void notifierIs(Ptr<Clock const> clock);

   // Absolute seconds of now(); Kem::never stops the timer. Without a clock bound nothing fires.
   void timeMinIs(Seconds target);
   Seconds timeMin() const { return target_; }

   virtual void onTime() = 0;
   // An exception of onTime comes here. It goes on to the loop, and from there ends the process.
   virtual void onNotificationException(std::exception_ptr exception);

   virtual void hasNotificationActiveIs(bool isActive);
   virtual void kemDoZombieReactors(bool areZombies);

  protected:
   using NotifieeConst = ClockReactor; // the name that reactors call their base by
   ClockReactor();
   explicit ClockReactor(Ptr<Clock const> clock);

  private:
   friend class ActivityManager;
   bool mayFire() const { return clock_ && hasNotificationActive() && !isZombie(); }
   void schedule();

   Ptr<Clock const> clock_;
   Seconds target_ = never;
   bool isScheduled_ = false;
   std::multimap<Seconds, ClockReactor*>::iterator place_; // valid while scheduled
};

class Clock final : public PtrInterface {
  public:
   using NotifieeConst = ClockReactor;
   Clock() = default;
};

} // namespace Kem
