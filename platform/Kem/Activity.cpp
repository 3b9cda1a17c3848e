#include "Kem/Activity.h"

#include "Kem/Assert.h"
#include "Kem/Clock.h"
#include "Kem/Notifiee.h"

#include <algorithm>
#include <unistd.h>

namespace Kem {

// --- The queue.

void ActivitySm::enqueue(Notifiee& reactor) {
   reactor.isQueued_ = true;
   reactor.queueBatch_ = batch_;
   reactor.queuePrevious_ = tail_;
   reactor.queueNext_ = nullptr;
   (tail_ ? tail_->queueNext_ : head_) = &reactor;
   tail_ = &reactor;
}

void ActivitySm::dequeue(Notifiee& reactor) {
   if (!reactor.isQueued_)
      return;
   (reactor.queuePrevious_ ? reactor.queuePrevious_->queueNext_ : head_) = reactor.queueNext_;
   (reactor.queueNext_ ? reactor.queueNext_->queuePrevious_ : tail_) = reactor.queuePrevious_;
   reactor.queuePrevious_ = reactor.queueNext_ = nullptr;
   reactor.isQueued_ = false;
}

void ActivitySm::forget(Notifiee& reactor) {
   if (current_ == &reactor)
      current_ = nullptr;
   dequeue(reactor);
}

bool ActivitySm::runBatch(ActivityConfig const& activity, bool const& isOver) {
   if (isEmpty())
      return false;
   KEM_ASSERT(!isRunning_);
   // Also on the way out of an exception, and when the turn is over: what is still pending for that reactor
   // comes in the next batch.
   struct End {
      ActivitySm& sm;
      ~End() {
         if (sm.current_)
            sm.current_->redispatch(sm);
         sm.current_ = nullptr;
         sm.isRunning_ = false;
      }
   } const end{*this};
   isRunning_ = true;
   // Those that join from here on wait for the next batch.
   ++batch_;
   while (head_ && head_->queueBatch_ != batch_ && !isOver) {
      current_ = head_;
      dequeue(*current_);
      while (current_ && !current_->isQueued_ && current_->hasPending() && !current_->isZombie() &&
             current_->hasNotificationActive() && !isOver) {
         ++deliveredCount_;
         try {
            current_->handleNotification(activity);
         } catch (...) {
            if (!current_)
               throw;
            current_->handleNotificationException(std::current_exception());
         }
      }
   }
   return true;
}

// --- Activity objects.

ActivityConfig::ActivityConfig() : clock_(makePtr<Clock>()) {}

ActivityConfig::~ActivityConfig() = default;

Ptr<Clock const> ActivityConfig::clock() const {
   return clock_;
}

ActivityManager* activityManager() {
   // Never destroyed: reactors of static lifetime may still withdraw while the process ends.
   static ActivityManager* const manager = new ActivityManager;
   return manager;
}

Ptr<Clock const> ActivityFacility::clock() {
   return activityManager()->config()->clock();
}

ActivityManager::ActivityManager() : config_(makePtr<ActivityConfig>()) {}

ActivityManager::~ActivityManager() {
   if (epollFd_ >= 0)
      close(epollFd_);
}

// --- Turns.

void ActivityManager::run() {
   while (!isStopped_)
      runTurn(3600);
   isStopped_ = false;
}

void ActivityManager::stop() {
   isStopped_ = true;
   isTurnOver_ = isInTurn_;
}

bool ActivityManager::runTurn(Seconds maxWait) {
   KEM_ASSERT(!isInTurn_);
   struct Turn {
      ActivityManager& manager;
      ~Turn() { manager.isInTurn_ = manager.isTurnOver_ = false; }
   } const turn{*this};
   isInTurn_ = true;

   Seconds wait = std::min(maxWait, 3600.0);
   if (!activitySm_.isEmpty() || isTimeVirtual())
      wait = 0;
   else if (Seconds const next = nextTarget(); next != never)
      wait = std::clamp(next - now(), 0.0, wait);

   bool didAnything = callReadyWatches(wait);
   didAnything |= deliverAndSend();
   if (!isTurnOver_)
      didAnything |= fireDueTimers();
   return didAnything || !activitySm_.isEmpty(); // a handler or a hook may have queued something
}

bool ActivityManager::deliverAndSend() {
   bool const hasDelivered = !isTurnOver_ && activitySm_.runBatch(*config_, isTurnOver_);
   runDeliveryEndHooks();
   return hasDelivered;
}

void ActivityManager::runDeliveryEndHooks() {
   areHooksRunning_ = true;
   for (auto& hooks : deliveryEndHooks_)
      for (size_t i = 0; i < hooks.size(); ++i)
         if (auto const hook = hooks[i])
            hook();
   areHooksRunning_ = false;
   for (auto& hooks : deliveryEndHooks_)
      std::erase(hooks, FunctionRef<void()>());
}

void ActivityManager::runUntilIdle(size_t maxTurns) {
   // Two turns without anything: what the end of an idle turn sends may come back
   // to this process in the next one.
   size_t turns = 0;
   for (int idle = 0; idle < 2; idle = runTurn(0) ? 0 : idle + 1)
      KEM_ASSERT(++turns < maxTurns);
}

void ActivityManager::deliverQueued() {
   while (!isTurnOver_ && activitySm_.runBatch(*config_, isTurnOver_)) {
   }
}

bool ActivityManager::isSettled() const {
   if (!activitySm_.isEmpty() || nextTarget() <= now())
      return false;
   return std::none_of(deferredWork_.begin(), deferredWork_.end(),
                       [](auto const* w) { return w->hasWork(); });
}

void ActivityManager::deliveryEndHookAdd(DeliveryEnd step, FunctionRef<void()> hook) {
   deliveryEndHooks_[static_cast<size_t>(step)].push_back(hook);
}

void ActivityManager::deliveryEndHookDel(FunctionRef<void()> hook) {
   for (auto& hooks : deliveryEndHooks_) {
      auto const at = std::find(hooks.begin(), hooks.end(), hook);
      if (at == hooks.end())
         continue;
      if (areHooksRunning_)
         *at = {}; // its place stays until they are through
      else
         hooks.erase(at);
      return;
   }
}

void ActivityManager::advanceTo(Seconds time) {
   KEM_ASSERT(isTimeVirtual());
   runUntilIdle();
   while (nextTarget() <= time) {
      Seconds const target = std::max(nextTarget(), now());
      VirtualTime::advanceTo(target);
      runUntilIdle();
   }
   VirtualTime::advanceTo(time);
   runUntilIdle();
}

// --- Deferred work.

DeferredWork::DeferredWork() {
   activityManager()->deferredWork_.insert(this);
}

DeferredWork::~DeferredWork() {
   activityManager()->deferredWork_.erase(this);
}

} // namespace Kem
