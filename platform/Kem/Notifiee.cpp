#include "Kem/Notifiee.h"

#include "Kem/Activity.h"

#include <bit>

namespace Kem {

Notifiee::Notifiee(Interests interests) : interests_(interests) { flagIs(notificationActiveFlag, true); }

Notifiee::~Notifiee() { withdraw(); }

void Notifiee::withdraw() {
   if (notifier_ && isRegistered_)
      notifier_->notifieeDel(this);
   isRegistered_ = false;
   notifier_ = nullptr;
   activityManager()->activitySm().forget(*this);
}

bool Notifiee::notifierBind(Ptr<Entity const> const& notifier) {
   if (notifier == notifier_)
      return false;
   if (notifier_ && isRegistered_)
      notifier_->notifieeDel(this);
   pendingClear();
   notifier_ = notifier;
   isRegistered_ = notifier_ && !isZombie();
   if (isRegistered_)
      notifier_->notifieeAdd(this);
   return true;
}

void Notifiee::isRegisteredNotifieeIs(bool isRegistered) {
   if (isRegistered == isRegistered_ || !notifier_ || (isRegistered && isZombie()))
      return;
   isRegistered_ = isRegistered;
   if (isRegistered) {
      notifier_->notifieeAdd(this);
      hasMissed_ = true;
      pendImmediate();
   } else {
      notifier_->notifieeDel(this);
      pendingClear();
   }
}

void Notifiee::hasNotificationActiveIs(bool isActive) {
   if (isActive == hasNotificationActive())
      return;
   flagIs(notificationActiveFlag, isActive);
   if (isActive) {
      if (hasMissed_)
         pendImmediate();
   } else if (hasPending()) {
      hasMissed_ = true;
      pendingClear();
   }
}

void Notifiee::kemDoZombieReactors(bool areZombies) {
   if (areZombies == isZombie())
      return;
   if (areZombies) {
      isRegisteredNotifieeIs(false);
      flagIs(zombieFlag, true);
   } else {
      flagIs(zombieFlag, false);
      isRegisteredNotifieeIs(true);
   }
}

void Notifiee::pend(AttrId id, void const* key) {
   uint64_t const bit = uint64_t(1) << id;
   if (!takesNotifications()) {
      hasMissed_ = true;
      return;
   }
   if (interests_.plain & bit)
      pending_.plain |= bit;
   if (key && (interests_.keyed & bit)) {
      pending_.keyed |= bit;
      memberPending(id, key);
   }
   if (!isQueued_ && hasPending())
      activityManager()->activitySm().enqueue(*this);
}

void Notifiee::pendImmediate() {
   if (!takesNotifications() || !hasMissed_)
      return;
   hasMissed_ = false;
   pending_.immediate |= interests_.immediate;
   if (!isQueued_ && hasPending())
      activityManager()->activitySm().enqueue(*this);
}

void Notifiee::pendingClear() {
   for (uint64_t keyed = pending_.keyed; keyed; keyed &= keyed - 1)
      memberPendingClear(static_cast<AttrId>(std::countr_zero(keyed)));
   pending_ = {};
   if (isQueued_)
      activityManager()->activitySm().forget(*this);
}

void Notifiee::handleNotification(ActivityConfig const&) {
   // Each branch ends in the handler: it may destroy this reactor.
   uint64_t const all = pending_.keyed | pending_.plain | pending_.immediate;
   if (all == 0)
      return;
   auto const id = static_cast<AttrId>(std::countr_zero(all));
   uint64_t const bit = uint64_t(1) << id;
   if (pending_.immediate & bit) {
      pending_.immediate &= ~bit;
      onCollectionNotification(id);
   } else if (pending_.keyed & bit) {
      onMember(id);
   } else {
      pending_.plain &= ~bit;
      onAttribute(id);
   }
}

void Notifiee::onNotificationException(std::exception_ptr exception) { std::rethrow_exception(exception); }

} // namespace Kem
