#include "Kem/Activity.h"

#include "Kem/Assert.h"
#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/Notifiee.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

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

bool ActivitySm::runBatch(ActivityConfig const& activity) {
   if (isEmpty() || isStopped_)
      return false;
   KEM_ASSERT(!isRunning_);
   // Also on the way out of an exception: what is still pending for that reactor comes in the next batch.
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
   while (head_ && head_->queueBatch_ != batch_ && !isStopped_) {
      current_ = head_;
      dequeue(*current_);
      while (current_ && !isStopped_ && !current_->isQueued_ && current_->hasPending() &&
             !current_->isZombie() && current_->hasNotificationActive()) {
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
   if (isStopped_)
      return true; // what is left of the current one is queued again
   current_ = nullptr;
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

int ActivityManager::epollFd() {
   if (epollFd_ < 0)
      epollFd_ = epoll_create1(EPOLL_CLOEXEC);
   KEM_ASSERT(epollFd_ >= 0);
   return epollFd_;
}

// --- Turns.

void ActivityManager::run() {
   while (!isStopped())
      runTurn(3600);
   activitySm_.isStopped_ = false;
}

bool ActivityManager::runTurn(Seconds maxWait) {
   Seconds wait = std::min(maxWait, 3600.0);
   if (!activitySm_.isEmpty() || isTimeVirtual())
      wait = 0;
   else if (Seconds const next = nextTarget(); next != never)
      wait = std::clamp(next - now(), 0.0, wait);

   bool didAnything = false;
   epoll_event events[64];
   int const count = epoll_wait(epollFd(), events, 64, static_cast<int>(std::ceil(wait * 1000)));
   for (int i = 0; i < count && !isStopped(); ++i) {
      // An earlier one may have ended this watch, and another may stand on the same descriptor number by now.
      auto const watch = [&, tag = events[i].data.u64]() -> FileDescriptorWatch* {
         auto const fd = static_cast<size_t>(tag & 0xffffffff);
         FileDescriptorWatch* const there = fd < watches_.size() ? watches_[fd] : nullptr;
         return there && there->serial_ == tag >> 32 ? there : nullptr;
      };
      didAnything = true;
      if (events[i].events & EPOLLOUT)
         if (auto* const w = watch())
            w->onWritable();
      if (events[i].events & ~uint32_t(EPOLLOUT))
         if (auto* const w = isStopped() ? nullptr : watch())
            w->onReadable();
   }
   didAnything |= deliverAndSend();
   if (!isStopped())
      didAnything |= fireDueTimers();
   return didAnything ||
          (!isStopped() && !activitySm_.isEmpty()); // a handler or a hook may have queued something
}

bool ActivityManager::deliverAndSend() {
   bool const hasDelivered = activitySm_.runBatch(*config_);
   runDeliveryEndHooks();
   return hasDelivered;
}

void ActivityManager::runDeliveryEndHooks() {
   areHooksRunning_ = true;
   for (size_t i = 0; i < deliveryEndHooks_.size(); ++i)
      if (auto const [hook, context] = deliveryEndHooks_[i]; hook)
         hook(context);
   areHooksRunning_ = false;
   std::erase_if(deliveryEndHooks_, [](auto const& entry) { return !entry.first; });
}

void ActivityManager::runUntilIdle(size_t maxTurns) {
   // Two turns without anything: what the end of an idle turn sends may come back
   // to this process in the next one.
   size_t turns = 0;
   for (int idle = 0; idle < 2; idle = runTurn(0) ? 0 : idle + 1)
      KEM_ASSERT(++turns < maxTurns);
}

void ActivityManager::deliverQueued() {
   while (activitySm_.runBatch(*config_)) {
   }
}

bool ActivityManager::isSettled() const {
   if (!activitySm_.isEmpty() || nextTarget() <= now())
      return false;
   return std::none_of(deferredWork_.begin(), deferredWork_.end(),
                       [](auto const* w) { return w->hasWork(); });
}

void ActivityManager::deliveryEndHookAdd(void (*hook)(void*), void* context) {
   deliveryEndHooks_.emplace_back(hook, context);
}

void ActivityManager::deliveryEndHookDel(void (*hook)(void*), void* context) {
   auto const at = std::find(deliveryEndHooks_.begin(), deliveryEndHooks_.end(), std::pair(hook, context));
   if (at == deliveryEndHooks_.end())
      return;
   if (areHooksRunning_)
      at->first = nullptr; // its place stays until they are through
   else
      deliveryEndHooks_.erase(at);
}

// --- Timers.

Seconds ActivityManager::nextTarget() const {
   return timers_.empty() ? never : timers_.begin()->first;
}

bool ActivityManager::fireDueTimers() {
   Seconds const time = now();
   if (nextTarget() > time)
      return false;
   // Those due now, and not those that they set to a time that is due: these come in the next turn.
   std::vector<ClockReactor*> due;
   for (auto at = timers_.begin(); at != timers_.end() && at->first <= time; ++at)
      due.push_back(at->second);
   std::vector<std::pair<ClockReactor*, Seconds>> order;
   for (auto* reactor : due)
      order.emplace_back(reactor, reactor->target_);
   for (Seconds lastTarget = order.front().second; auto const& [reactor, target] : order) {
      if (std::exchange(lastTarget, target) != target)
         deliverAndSend();
      if (isStopped())
         break;
      // A handler before it may have destroyed it, stopped it or set it anew.
      auto const range = timers_.equal_range(target);
      auto const at =
          std::find_if(range.first, range.second, [r = reactor](auto const& t) { return t.second == r; });
      if (at == range.second)
         continue;
      reactor->isScheduled_ = false;
      reactor->target_ = never;
      timers_.erase(at);
      firing_ = reactor;
      try {
         reactor->onTime();
      } catch (...) {
         if (!firing_)
            throw;
         std::exchange(firing_, nullptr)->onNotificationException(std::current_exception());
      }
      firing_ = nullptr;
   }
   deliverAndSend();
   return true;
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

// --- Descriptors.

FileDescriptorWatch::~FileDescriptorWatch() {
   descriptorIs(-1);
}

void FileDescriptorWatch::descriptorIs(int descriptor) {
   auto& watches = activityManager()->watches_;
   if (descriptor_ >= 0) {
      if (isAdded_)
         epoll_ctl(activityManager()->epollFd(), EPOLL_CTL_DEL, descriptor_, nullptr);
      isAdded_ = false;
      watches[static_cast<size_t>(descriptor_)] = nullptr;
   }
   descriptor_ = descriptor;
   serial_ = ++activityManager()->watchSerial_;
   wantsReadable_ = descriptor >= 0;
   wantsWritable_ = false;
   if (descriptor < 0)
      return;
   auto const index = static_cast<size_t>(descriptor);
   if (index >= watches.size())
      watches.resize(index + 1);
   KEM_ASSERT(!watches[index]);
   watches[index] = this;
   apply();
}

void FileDescriptorWatch::wantsReadableIs(bool wants) {
   if (wants == wantsReadable_)
      return;
   wantsReadable_ = wants;
   apply();
}

void FileDescriptorWatch::wantsWritableIs(bool wants) {
   if (wants == wantsWritable_)
      return;
   wantsWritable_ = wants;
   apply();
}

void FileDescriptorWatch::apply() {
   if (descriptor_ < 0)
      return;
   epoll_event event{};
   event.events = (wantsReadable_ ? uint32_t(EPOLLIN) : 0u) | (wantsWritable_ ? uint32_t(EPOLLOUT) : 0u);
   event.data.u64 = uint64_t(serial_) << 32 | static_cast<uint32_t>(descriptor_);
   // Out of the set when nothing is wanted: a hang-up would else be told again and again.
   int const operation = !isAdded_ ? EPOLL_CTL_ADD : event.events ? EPOLL_CTL_MOD : EPOLL_CTL_DEL;
   if (operation == EPOLL_CTL_ADD && !event.events)
      return;
   int const result = epoll_ctl(activityManager()->epollFd(), operation, descriptor_, &event);
   KEM_ASSERT(result == 0);
   isAdded_ = operation != EPOLL_CTL_DEL;
}

// --- Deferred work.

DeferredWork::DeferredWork() {
   activityManager()->deferredWork_.insert(this);
}

DeferredWork::~DeferredWork() {
   activityManager()->deferredWork_.erase(this);
}

} // namespace Kem
