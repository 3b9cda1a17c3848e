#include "Kem/Clock.h"

#include "Kem/Activity.h"
#include "Kem/Assert.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Kem {

// --- The timers of the loop.

Seconds ActivityManager::nextTarget() const {
   return timers_.empty() ? never : timers_.begin()->first;
}

bool ActivityManager::fireDueTimers() {
   Seconds const time = now();
   if (nextTarget() > time)
      return false;
   // Those due now, and not those that they set to a time that is due: these come in the next turn.
   std::vector<std::pair<ClockReactor*, Seconds>> due;
   for (auto at = timers_.begin(); at != timers_.end() && at->first <= time; ++at)
      due.emplace_back(at->second, at->first);
   for (Seconds lastTarget = due.front().second; auto const& [reactor, target] : due) {
      if (std::exchange(lastTarget, target) != target)
         deliverAndSend();
      if (isTurnOver_)
         break;
      // A handler before it may have destroyed it, stopped it or set it to another time.
      auto const range = timers_.equal_range(target);
      if (std::any_of(range.first, range.second, [r = reactor](auto const& t) { return t.second == r; }))
         fire(*reactor);
   }
   deliverAndSend();
   return true;
}

void ActivityManager::fire(ClockReactor& reactor) {
   timers_.erase(reactor.place_);
   reactor.isScheduled_ = false;
   reactor.target_ = never;
   firing_ = &reactor;
   try {
      reactor.onTime();
   } catch (...) {
      if (!firing_)
         throw;
      std::exchange(firing_, nullptr)->onNotificationException(std::current_exception());
   }
   firing_ = nullptr;
}

// --- One timer.

ClockReactor::ClockReactor() {
   flagIs(notificationActiveFlag, true);
}

ClockReactor::ClockReactor(Ptr<Clock const> clock) : ClockReactor() {
   clock_ = std::move(clock);
}

ClockReactor::~ClockReactor() {
   auto* const manager = activityManager();
   if (isScheduled_)
      manager->timers_.erase(place_);
   if (manager->firing_ == this)
      manager->firing_ = nullptr;
}

void ClockReactor::onNotificationException(std::exception_ptr exception) {
   std::rethrow_exception(std::move(exception));
}

void ClockReactor::notifierIs(Ptr<Clock const> clock) {
   clock_ = std::move(clock);
   schedule();
}

void ClockReactor::timeMinIs(Seconds target) {
   target_ = target;
   schedule();
}

void ClockReactor::hasNotificationActiveIs(bool isActive) {
   flagIs(notificationActiveFlag, isActive);
   schedule();
}

void ClockReactor::kemDoZombieReactors(bool areZombies) {
   flagIs(zombieFlag, areZombies);
   schedule();
}

void ClockReactor::schedule() {
   auto& timers = activityManager()->timers_;
   if (isScheduled_)
      timers.erase(place_);
   isScheduled_ = mayFire() && target_ != never;
   if (isScheduled_)
      place_ = timers.emplace(target_, this);
}

} // namespace Kem
