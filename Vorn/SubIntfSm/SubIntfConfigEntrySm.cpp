#include "Vorn/SubIntfSm/SubIntfConfigEntrySm.h"

#include "Kem/Trace.h"

namespace Vorn {

namespace {
Kem::TraceFacility subIntfEntryTrace("VornSubIntfEntry");
}

SubIntfConfigEntrySm::SubIntfConfigEntrySm(SubIntfRecords in, Kem::Ptr<Interface::SubIntfConfig> cfgOut)
    : in_(std::move(in)), cfgOut_(std::move(cfgOut)) {
   kemCfgIn_.notifierIs(in_.config);
}

void SubIntfConfigEntrySm::handleInitialized() {
   if (initialized())
      return;
   cfgOut_->encapTypeIs(cfgIn()->encapType());
   cfgOut_->vlanIdIs(cfgIn()->vlanId());
   cfgOut_->enabledStateLocalIs(cfgIn()->enabledStateLocal());
   cfgOut_->enabledIs(cfgIn()->enabled());
   cfgOut_->mtuIs(cfgIn()->mtu());
   cfgOut_->addrIs(cfgIn()->addr());
   initializedIs(true);
   KEM_TRACE(subIntfEntryTrace, 5, intfId() << " initialization complete");
}

void SubIntfConfigEntrySm::handleEnabled() {
   if (!isReady())
      return;
   cfgOut_->enabledStateLocalIs(cfgIn()->enabledStateLocal());
   cfgOut_->enabledIs(cfgIn()->enabled()); // which is false while shut down, and comes back with the other
}

void SubIntfConfigEntrySm::handleEncap() {
   if (!isReady())
      return;
   cfgOut_->encapTypeIs(cfgIn()->encapType());
   cfgOut_->vlanIdIs(cfgIn()->vlanId());
}

void SubIntfConfigEntrySm::handleMtu() {
   if (isReady())
      cfgOut_->mtuIs(cfgIn()->mtu());
}

void SubIntfConfigEntrySm::handleMacAddr() {
   if (isReady())
      cfgOut_->addrIs(cfgIn()->addr());
}

} // namespace Vorn
