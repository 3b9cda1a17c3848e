#include "Vorn/SubIntfSm/KemIntfStatus.h"

#include "Vorn/SubIntfSm/SubIntfSm.h"

namespace Vorn {

void KemIntfStatus::handleInitialized() {
   sm_.handleParentIntfUpdate(notifier()->intfId());
}

void KemIntfStatus::handleIntfOperStatus() {
   sm_.handleParentIntfUpdate(notifier()->intfId());
}

void KemIntfStatus::handleIntfForwardingModel() {
   sm_.handleParentIntfUpdate(notifier()->intfId());
}

} // namespace Vorn
