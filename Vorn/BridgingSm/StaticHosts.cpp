#include "Vorn/BridgingSm/StaticHosts.h"

#include "records/Bridging/VlanConfig.h"

namespace Vorn {

StaticHosts::StaticHosts(Kem::Ptr<Bridging::FdbConfigDir const> fdbConfigDir,
                         Kem::Ptr<Bridging::Config> config)
    : fdbConfigDir_(fdbConfigDir ? std::move(fdbConfigDir) : Bridging::FdbConfigDir::make()),
      config_(std::move(config)) {
   kemFdbConfigDir_.notifierIs(fdbConfigDir_);
   kemConfig_.notifierIs(config_);
}

void StaticHosts::handleInitialized() {
   initializedIs(true);
   for (auto const& [vlanId, fdbConfig] : fdbConfigDir_->fdbConfig())
      handleFdbConfig(vlanId);
   for (auto const& [vlanId, fid] : config_->vidToFidMap())
      handleFdbConfig(vlanId);
   // What the previous run resolved, and no merged record is there for any more.
   for (auto const& [key, fdbConfig] : config_->fdbConfig()) {
      auto const fid = key; // the entry may go
      if (Bridging::VlanId::isLegal(fid.value()))
         handleFdbConfig(Bridging::VlanId(fid.value()));
      else
         config_->fdbConfigDel(fid);
   }
}

void StaticHosts::handleFdbConfig(Bridging::VlanId vlanId) {
   if (!isReady())
      return;
   auto const vlan = config_->vlanConfig(vlanId);
   auto const* const fid = config_->vidToFidMap().find(vlanId);
   auto const fdbConfigIn = fdbConfigDir_->fdbConfig(vlanId);
   if (vlan && !vlan->internal() && (!fid || *fid == 0) && fdbConfigIn) {
      fdbConfigSmIs(fdbConfigIn);
      return;
   }
   childDel(fdbConfigSm_, vlanId);
   config_->fdbConfigDel(Bridging::Fid(vlanId.value()));
}

void StaticHosts::handleForeignChange(Kem::Entity const& changed) {
   if (&changed == config_.ptr())
      fdbConfigSm_.forEach([](Bridging::VlanId, auto const& sm) { sm->handleOutMadeAgain(); });
   else if (auto const* const fdbConfig = dynamic_cast<Bridging::FdbConfig const*>(&changed))
      if (auto const fid = fdbConfig->fid(); Bridging::VlanId::isLegal(fid.value()))
         if (auto const sm = fdbConfigSm(Bridging::VlanId(fid.value())))
            sm->handleGroupsMadeAgain();
}

void StaticHosts::fdbConfigSmIs(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn) {
   auto const vlanId = fdbConfigIn->vlanId();
   if (auto const standing = fdbConfigSm(vlanId))
      standing->fdbConfigInIs(fdbConfigIn);
   else
      fdbConfigSm_.findOrInsert(vlanId, [&] { return fdbConfigSmFactory(fdbConfigIn, config_); });
}

Kem::Ptr<FdbConfigSm> StaticHosts::fdbConfigSm(Bridging::VlanId vlanId) const {
   auto const* const found = fdbConfigSm_.find(vlanId);
   return found ? *found : nullptr;
}

} // namespace Vorn
