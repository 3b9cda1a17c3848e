#include "Vorn/Selection/InputFdbConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Record.h"
#include "Kem/Trace.h"
#include "Vorn/Selection/FdbContradictions.h"

namespace Vorn {

using Input = Bridging::Input::Config;

namespace {

Kem::TraceFacility inputFdbTrace("VornInputFdb");

// Only a multicast address can be of both kinds.
bool countsAsHost(FdbInputs const& inputs, Sulvi::EthAddr addr) {
   return !addr.isMulticast() || !inputs.use(addr).isGroup;
}
bool countsAsGroup(FdbInputs const& inputs, Sulvi::EthAddr addr) {
   auto const use = inputs.use(addr);
   return use.isGroup || !use.best.input;
}

} // namespace

Kem::Ptr<InputFdbConfigSm> inputFdbConfigSmFactory(
    Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn, Bridging::VlanId vlanId,
    Kem::Ptr<Kem::Dir const> const& inputDir, Kem::Ptr<Bridging::Input::Config const> const& inputConfig,
    Kem::Ptr<Bridging::Input::FdbConfig> const& fdbConfig, FdbContradictions& contradictions) {
   return Kem::makePtr<InputFdbConfigSm>(fdbConfigIn, vlanId, inputDir, inputConfig, fdbConfig,
                                         contradictions);
}

InputFdbConfigSm::InputFdbConfigSm(Kem::Ptr<FdbConfig const> const& fdbConfigIn, Bridging::VlanId vlanId,
                                   Kem::Ptr<Kem::Dir const> inputDir, Kem::Ptr<Input const> inputConfig,
                                   Kem::Ptr<FdbConfig> fdbConfig, FdbContradictions& contradictions)
    : fdbConfigIn_(fdbConfigIn), vlanId_(vlanId), inputDir_(std::move(inputDir)),
      inputConfig_(std::move(inputConfig)), fdbConfig_(std::move(fdbConfig)),
      contradictions_(contradictions) {
   initializedIs(true);
   kemFdbConfigIn_.notifierIs(fdbConfigIn_); // and runs handleFdbConfigIn()
}

void InputFdbConfigSm::fdbConfigInIs(Kem::Ptr<FdbConfig const> const& fdbConfigIn,
                                     Kem::Ptr<Input const> const& inputConfig,
                                     Kem::Ptr<FdbConfig> const& fdbConfig) {
   if (fdbConfigIn == fdbConfigIn_ && inputConfig == inputConfig_ && fdbConfig == fdbConfig_)
      return;
   bool const isBound = fdbConfigIn == fdbConfigIn_;
   fdbConfigIn_ = fdbConfigIn;
   inputConfig_ = inputConfig;
   fdbConfig_ = fdbConfig;
   if (isBound)
      handleFdbConfigIn();
   else
      kemFdbConfigIn_.notifierIs(fdbConfigIn_);
}

void InputFdbConfigSm::doPrepareToDie() {
   if (fdbInputs().holders().empty())
      return; // the merged record goes as a whole
   doRemoveAllStaleHosts();
   doRemoveAllStaleGroups();
}

bool InputFdbConfigSm::isCurrent() const {
   return inputDir_->entityPtr(inputConfig_->name()).ptr() == inputConfig_.ptr() &&
          inputConfig_->fdbConfig(vlanId_).ptr() == fdbConfigIn_.ptr();
}

void InputFdbConfigSm::handleFdbConfigIn() {
   handleConfiguredHost();
   handleEthGroup();
}

// --- Hosts.

void InputFdbConfigSm::handleConfiguredHost(Sulvi::EthAddr addr) {
   if (!isCurrent())
      return;
   auto const inputs = fdbInputs();
   doSettleKind(inputs, addr);
   if (countsAsHost(inputs, addr)) {
      if (auto const* const host = fdbConfigIn_->configuredHost(addr))
         doConfigureHost(inputs, *inputConfig_, *host);
      else
         doRemoveHost(inputs, addr);
   }
}

// This looks at the hosts of all inputs, and runs for each input that comes to hold the VLAN. Each host asks
// each input that holds the VLAN: n inputs that start with the VLAN cost n times n look-ups for each host of
// each. It is so because a priority may have changed unseen since an address was evaluated last.
void InputFdbConfigSm::handleConfiguredHost() {
   if (!isCurrent())
      return;
   doConfigureAllHosts();
   doRemoveAllStaleHosts();
}

void InputFdbConfigSm::doConfigureHost(Input const& bic, Bridging::ConfiguredHost const& host) {
   doConfigureHost(fdbInputs(), bic, host);
}

void InputFdbConfigSm::doConfigureHost(FdbInputs const& inputs, Input const& bic,
                                       Bridging::ConfiguredHost const& host) {
   auto const bestConfig = inputs.best(host.addr).input;
   KEM_ASSERT(bestConfig);
   if (bestConfig.ptr() == &bic)
      fdbConfig_->configuredHostIs(host.addr, host);
}

void InputFdbConfigSm::doRemoveHost(Sulvi::EthAddr addr) {
   doRemoveHost(fdbInputs(), addr);
}

void InputFdbConfigSm::doRemoveHost(FdbInputs const& inputs, Sulvi::EthAddr addr) {
   auto const best = inputs.best(addr);
   if (!best.input) {
      fdbConfig_->configuredHostDel(addr);
      return;
   }
   auto const& fdb = best.record;
   KEM_ASSERT(fdb);
   auto const* const host = fdb->configuredHost(addr);
   KEM_INVARIANT(host, "fdb->configuredHostIteratorConst().isMemberOf( ethAddr )");
   fdbConfig_->configuredHostIs(addr, *host);
}

void InputFdbConfigSm::doConfigureAllHosts() {
   auto const inputs = fdbInputs();
   for (FdbHolder const& holder : inputs.holders())
      for (auto const& [addr, host] : holder.record->configuredHost()) {
         doSettleKind(inputs, addr);
         if (countsAsHost(inputs, addr))
            doConfigureHost(inputs, *holder.input, host);
      }
}

void InputFdbConfigSm::doRemoveAllStaleHosts() {
   auto const inputs = fdbInputs();
   for (auto const& [key, host] : fdbConfig_->configuredHost()) {
      auto const addr = key; // the entry may go
      doSettleKind(inputs, addr);
      if (countsAsHost(inputs, addr))
         doRemoveHost(inputs, addr);
   }
}

// --- Groups.

void InputFdbConfigSm::handleConfiguredGroup(Sulvi::EthAddr addr) {
   auto const inputs = fdbInputs();
   doSettleKind(inputs, addr);
   if (countsAsGroup(inputs, addr)) {
      auto const group = addr.isMulticast() ? fdbConfigIn_->ethGroup(addr) : nullptr;
      if (group)
         doConfigureGroup(inputs, *inputConfig_, *group);
      else
         doResyncGroup(inputs, addr);
   }
}

void InputFdbConfigSm::handleConfiguredGroup() {
   doConfigureAllGroups();
   doRemoveAllStaleGroups();
}

void InputFdbConfigSm::doConfigureGroup(Input const& bic, Bridging::EthGroup const& group) {
   doConfigureGroup(fdbInputs(), bic, group);
}

void InputFdbConfigSm::doConfigureGroup(FdbInputs const& inputs, Input const& bic,
                                        Bridging::EthGroup const& group) {
   auto const bestConfig = inputs.best(group.addr()).input;
   KEM_ASSERT(bestConfig);
   if (bestConfig.ptr() == &bic)
      fdbConfig_->ethGroupIs(group.addr());
}

void InputFdbConfigSm::doResyncGroup(Sulvi::EthAddr addr) {
   doResyncGroup(fdbInputs(), addr);
}

void InputFdbConfigSm::doResyncGroup(FdbInputs const& inputs, Sulvi::EthAddr addr) {
   auto const best = inputs.best(addr);
   if (!best.input) {
      fdbConfig_->ethGroupDel(addr);
      return;
   }
   auto const& fdb = best.record;
   KEM_ASSERT(fdb);
   auto const group = fdb->ethGroup(addr);
   KEM_INVARIANT(group, "fdb->ethGroup( ethAddr )");
   auto const merged = fdbConfig_->ethGroupIs(addr);
   // An input that takes a group over has nothing to say of its members, which it has had all along.
   for (auto const& [intfId, isMember] : group->intf())
      if (isMember)
         merged->intfIs(intfId, true);
}

void InputFdbConfigSm::doConfigureAllGroups() {
   auto const inputs = fdbInputs();
   for (FdbHolder const& holder : inputs.holders())
      for (auto const& [addr, group] : holder.record->ethGroup()) {
         doSettleKind(inputs, addr);
         if (addr.isMulticast() && countsAsGroup(inputs, addr))
            doConfigureGroup(inputs, *holder.input, *group);
      }
}

void InputFdbConfigSm::doRemoveAllStaleGroups() {
   auto const inputs = fdbInputs();
   for (auto const& [key, group] : fdbConfig_->ethGroup()) {
      auto const addr = key; // the entry may go
      doSettleKind(inputs, addr);
      if (countsAsGroup(inputs, addr))
         doResyncGroup(inputs, addr);
   }
}

// --- One address, two kinds.

// The kind that doesn't count goes before the other is written: the database refuses a record with both.
void InputFdbConfigSm::doSettleKind(FdbInputs const& inputs, Sulvi::EthAddr addr) {
   if (!addr.isMulticast())
      return;
   auto const use = inputs.use(addr);
   contradictions_.useIs(vlanId_, addr, use);
   if (!use.best.input)
      return;
   if (use.isGroup) {
      fdbConfig_->configuredHostDel(addr);
      if (!fdbConfig_->ethGroup(addr))
         doResyncGroup(inputs, addr);
   } else {
      fdbConfig_->ethGroupDel(addr);
      if (!fdbConfig_->configuredHost(addr))
         doRemoveHost(inputs, addr); // which copies the best one's
   }
}

// --- Members of groups.

Kem::Ptr<InputFdbConfigSm::KemEthGroup> InputFdbConfigSm::ethGroup(Sulvi::EthAddr addr) const {
   auto const* const found = ethGroup_.find(addr);
   return found ? *found : nullptr;
}

void InputFdbConfigSm::ethGroupIs(Kem::Ptr<Bridging::EthGroup const> const& ethGroup) {
   if (!ethGroup)
      Kem::throwNullParameter("ethGroup", "Vorn::InputFdbConfigSm");
   auto const reactor =
       *ethGroup_.findOrInsert(ethGroup->addr(), [&] { return Kem::makePtr<KemEthGroup>(*this); }).first;
   reactor->notifierIs(ethGroup);
}

void InputFdbConfigSm::handleEthGroup(Sulvi::EthAddr addr) {
   if (!isCurrent())
      return;
   handleConfiguredGroup(addr);
   syncEthGroup(addr);
}

void InputFdbConfigSm::handleEthGroup() {
   if (!isCurrent())
      return;
   handleConfiguredGroup();
   for (auto const& [addr, group] : fdbConfigIn_->ethGroup())
      syncEthGroup(addr);
   for (auto const& [addr, reactor] : ethGroup_)
      syncEthGroup(addr);
}

void InputFdbConfigSm::syncEthGroup(Sulvi::EthAddr addr) {
   auto const group = fdbConfigIn_->ethGroup(addr);
   if (group && addr.isMulticast())
      ethGroupIs(group);
   else
      ethGroup_.erase(addr);
   if (group && !addr.isMulticast())
      KEM_TRACE(inputFdbTrace, 0,
                "Vlan " << vlanId_ << ": " << addr << " of input " << inputConfig_->name()
                        << " is no multicast address: its group is left out");
}

bool InputFdbConfigSm::KemEthGroup::isCurrent() const {
   return sm.isCurrent() && sm.fdbConfigIn_->ethGroup(notifier()->addr()).ptr() == notifier().ptr();
}

void InputFdbConfigSm::KemEthGroup::handleIntf(Sulvi::IntfId intfId) {
   if (!isCurrent())
      return;
   // The group may have come to decide the address unseen.
   sm.doSettleKind(sm.fdbInputs(), notifier()->addr());
   if (notifier()->intf(intfId))
      doConfigureIntf(*sm.inputConfig_, intfId);
   else
      doRemoveIntf(*sm.inputConfig_, intfId);
}

void InputFdbConfigSm::KemEthGroup::handleIntf() {
   for (auto const& [intfId, isMember] : notifier()->intf())
      handleIntf(intfId);
   if (auto const merged = sm.fdbConfig_->ethGroup(notifier()->addr()))
      for (auto const& [intfId, isMember] : merged->intf())
         handleIntf(intfId);
}

void InputFdbConfigSm::KemEthGroup::doConfigureIntf(Input const& bic, Sulvi::IntfId intfId) {
   auto const addr = notifier()->addr();
   Kem::Ptr<Input const> bestConfig;
   findBestFdbConfig(*sm.inputDir_, sm.vlanId_, addr, bestConfig);
   KEM_ASSERT(bestConfig);
   if (bestConfig.ptr() == &bic)
      sm.fdbConfig_->ethGroupIs(addr)->intfIs(intfId, true);
}

void InputFdbConfigSm::KemEthGroup::doRemoveIntf(Input const& bic, Sulvi::IntfId intfId) {
   auto const addr = notifier()->addr();
   Kem::Ptr<Input const> bestConfig;
   findBestFdbConfig(*sm.inputDir_, sm.vlanId_, addr, bestConfig);
   if (bestConfig.ptr() == &bic)
      sm.fdbConfig_->ethGroupIs(addr)->intfDel(intfId);
}

} // namespace Vorn
