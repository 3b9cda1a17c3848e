#include "Kem/Notifiee.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"

#include <bit>
#include <utility>

namespace Kem {

namespace {
TraceFacility theTrace("KemNotifiee");
}

Notifiee::Notifiee(Interests interests) : interests_(interests) {
   flagIs(notificationActiveFlag, true);
}

Notifiee::~Notifiee() {
   withdraw();
}

void Notifiee::withdraw() {
   if (notifier_ && isRegistered_)
      notifier_->notifieeDel(this);
   isRegistered_ = false;
   pendingClear();
   notifier_ = nullptr;
   actsm().forget(*this);
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
      missed_ = interests_.all();
      if (hasNotificationActive())
         pendMissed();
   } else {
      notifier_->notifieeDel(this);
      pendingClear();
   }
}

void Notifiee::hasNotificationActiveIs(bool isActive) {
   if (isActive == hasNotificationActive())
      return;
   flagIs(notificationActiveFlag, isActive);
   if (isActive)
      pendMissed();
   else
      actsm().dequeue(*this);
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
   if (!hasNotificationActive() && (interests_.immediate & bit)) {
      missed_ |= bit;
      return;
   }
   if (interests_.plain & bit)
      pending_.plain |= bit;
   if (key && (interests_.keyed & bit)) {
      pending_.keyed |= bit;
      memberPending(id, key);
   }
   redispatch(actsm());
}

void Notifiee::pendMissed() {
   pending_.immediate |= interests_.immediate & missed_;
   pending_.plain |= interests_.plain & missed_;
   missed_ = 0;
   redispatch(actsm());
}

void Notifiee::pendingClear() {
   for (uint64_t keyed = pending_.keyed; keyed; keyed &= keyed - 1)
      memberPendingClear(static_cast<AttrId>(std::countr_zero(keyed)));
   pending_ = {};
   missed_ = 0;
   actsm().dequeue(*this);
}

Ptr<ActivityConfig> Notifiee::activityPtr() const {
   return activityManager()->config();
}

ActivitySm& Notifiee::actsm() const {
   return activityManager()->activitySm();
}

void Notifiee::redispatch(ActivitySm& activitySm) {
   if (!isQueued_ && hasPending() && hasNotificationActive())
      activitySm.enqueue(*this);
}

void Notifiee::handleNotification(ActivityConfig const& activity) {
   if (isZombie() || !hasPending() || !hasNotificationActive())
      return;
   auto const id = static_cast<AttrId>(std::countr_zero(pending_.all()));
   handleDefault(activity, id, pending_.immediate >> id & 1);
}

void Notifiee::handleDefault(ActivityConfig const&, AttrId attributeId, bool isWhole) {
   if (isZombie())
      return;
   // Each branch ends in the handler: it may destroy this reactor.
   uint64_t const bit = uint64_t(1) << attributeId;
   if (isWhole) {
      pending_.immediate &= ~bit;
      onCollectionNotification(attributeId);
   } else if (pending_.keyed & bit) {
      onMember(attributeId);
   } else {
      pending_.plain &= ~bit;
      onAttribute(attributeId);
   }
}

void Notifiee::handleNotificationException(std::exception_ptr exception) {
   std::string const place = notifier_ ? notifier_->fullName() : "nothing any more";
   try {
      std::rethrow_exception(exception);
   } catch (std::exception const& e) {
      KEM_TRACE(theTrace, 0, "a reactor on " << place << " raised: " << e.what());
   } catch (...) {
      KEM_TRACE(theTrace, 0, "a reactor on " << place << " raised what is no exception");
   }
   onNotificationException(std::move(exception));
}

void Notifiee::onNotificationException(std::exception_ptr exception) {
   std::rethrow_exception(std::move(exception));
}

} // namespace Kem
