#include "Vorn/BridgingSm/FdbConfigSm.h"

#include "Kem/Assert.h"

namespace Vorn {

Kem::Ptr<FdbConfigSm> fdbConfigSmFactory(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn,
                                         Kem::Ptr<Bridging::Config> const& config) {
   return Kem::makeInitialized<FdbConfigSm>(fdbConfigIn, config);
}

FdbConfigSm::FdbConfigSm(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn,
                         Kem::Ptr<Bridging::Config> config)
    : fdbConfigIn_(fdbConfigIn), config_(std::move(config)) {
   kemFdbConfigIn_.notifierIs(fdbConfigIn_);
}

void FdbConfigSm::fdbConfigInIs(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn) {
   if (fdbConfigIn == fdbConfigIn_)
      return;
   fdbConfigIn_ = fdbConfigIn;
   kemFdbConfigIn_.notifierIs(fdbConfigIn_);
   handleInitialized();
}

void FdbConfigSm::handleInitialized() {
   initializedIs(true);
   fdbConfigOut_ = config_->fdbConfigIs(Bridging::Fid(vlanId().value()));
   for (auto const& [addr, host] : fdbConfigIn_->configuredHost())
      handleConfiguredHost(addr);
   for (auto const& [addr, host] : fdbConfigOut_->configuredHost())
      handleConfiguredHost(addr); // those of the previous run
   for (auto const& [addr, group] : fdbConfigIn_->ethGroup())
      handleConfiguredGroup(addr);
   for (auto const& [addr, group] : fdbConfigOut_->ethGroup())
      handleConfiguredGroup(addr);
}

void FdbConfigSm::handleOutMadeAgain() {
   auto const record = config_->fdbConfig(Bridging::Fid(vlanId().value()));
   if (!record || record == fdbConfigOut_)
      return;
   fdbConfigOut_ = record;
   handleGroupsMadeAgain();
}

void FdbConfigSm::handleGroupsMadeAgain() {
   ethGroupSm_.forEach([&](Sulvi::EthAddr addr, auto const& sm) {
      if (auto const group = fdbConfigOut_->ethGroup(addr))
         sm->ethGroupOutIs(group);
   });
}

void FdbConfigSm::handleConfiguredHost(Sulvi::EthAddr addr) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (auto const* const host = fdbConfigIn_->configuredHost(addr))
      fdbConfigOut_->configuredHostIs(addr, *host);
   else
      fdbConfigOut_->configuredHostDel(addr);
}

void FdbConfigSm::handleConfiguredGroup(Sulvi::EthAddr addr) {
   auto const groupIn = fdbConfigIn_->ethGroup(addr);
   if (!groupIn) {
      fdbConfigOut_->ethGroupDel(addr);
      childDel(ethGroupSm_, addr);
      return;
   }
   auto const groupOut = fdbConfigOut_->ethGroupIs(addr);
   if (auto const standing = ethGroupSm(addr))
      standing->ethGroupsAre(groupIn, groupOut); // the group may be another one
   else
      ethGroupSm_.findOrInsert(addr, [&] { return Kem::makeInitialized<EthGroupSm>(groupIn, groupOut); });
}

Kem::Ptr<EthGroupSm> FdbConfigSm::ethGroupSm(Sulvi::EthAddr addr) const {
   auto const* const found = ethGroupSm_.find(addr);
   return found ? *found : nullptr;
}

} // namespace Vorn
