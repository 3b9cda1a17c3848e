#include "RoutedIntf.h"

#include "Json.h"
#include "Vorn/Rules/SubIntfIds.h"
#include "Vorn/Rules/SubIntfStatus.h"
#include "Vorn/Rules/VlanIntfStatus.h"
#include "Words.h"

#include "Sulvi/IntfKind.h"
#include "Sulvi/KernelDeviceName.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Bridging/VlanStatus.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"
#include "records/Interface/IntfNamespaceConfig.h"
#include "records/Interface/SubIntfStatusLocal.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusLocal.h"

#include <algorithm>
#include <set>

namespace Vornctl {

namespace {

using Sulvi::IntfId;
using Sulvi::IntfKind;

// Best first.
std::vector<DynVlanIntfClaim> claimsOn(SwitchState const& state, IntfId intfId) {
   std::vector<DynVlanIntfClaim> claims;
   for (auto const& [name, entity] : state.dynVlanIntfs->entities()) {
      auto const source = Kem::ptrCast<Interface::Input::DynVlanIntfConfigDir>(entity);
      if (auto const config = source ? source->intfConfig(intfId) : nullptr)
         claims.push_back({{.priority = source->priority(), .name = name.str()}, config});
   }
   std::sort(claims.begin(), claims.end(),
             [](DynVlanIntfClaim const& a, DynVlanIntfClaim const& b) { return a.source > b.source; });
   return claims;
}

void takeVlanIntf(SwitchState const& state, RoutedIntf& intf) {
   intf.claims = claimsOn(state, intf.intfId);
   intf.config = state.vlanIntfConfig->intfConfig(intf.intfId);
   if (!intf.config && !intf.claims.empty())
      intf.config = intf.claims[0].config;
   intf.status = state.vlanIntfStatus->intfStatus(intf.intfId);
   intf.local = state.vlanIntfStatusLocal->intfStatusLocal(intf.intfId);
}

void takeSubIntf(SwitchState const& state, RoutedIntf& intf) {
   intf.config = state.subIntfConfig->intfConfig(intf.intfId);
   intf.status = state.subIntfStatus->intfStatus(intf.intfId);
   intf.local = state.subIntfStatusLocal->intfStatusLocal(intf.intfId);
   intf.hwStatus = state.subIntfHwStatus->subIntfStatus(intf.intfId);
   intf.parentStatus = state.allIntfStatus->intfStatus(intf.parent());
}

void takeOther(SwitchState const& state, RoutedIntf& intf) {
   intf.config = state.allIntfConfig->intfConfig(intf.intfId);
   intf.status = state.allIntfStatus->intfStatus(intf.intfId);
}

// Whether the VLAN is a secondary one for the agent's library of private VLANs, with or without a pair.
bool isSecondary(SwitchState const& state, Bridging::VlanId vlanId) {
   auto const vlan = state.config->vlanConfig(vlanId);
   return vlan && !vlan->internal() &&
          vlan->vlanTypeAndPrimaryVlan().vlanType != Bridging::VlanType::primary_;
}

std::optional<IntfVerdict> vlanIntfVerdict(SwitchState const& state, RoutedIntf const& intf) {
   auto const vlanId = intf.vlanId();
   if (!intf.status || !vlanId)
      return std::nullopt;
   auto facts = Vorn::vlanIntfFacts(intf.status->intfConfig().ptr(), *vlanId, state.vlanStatus.ptr(), nullptr,
                                    state.allVlanIntfAutoState.ptr());
   facts.isSecondary = isSecondary(state, *vlanId);
   auto const row = Vorn::vlanIntfRow(facts);
   return IntfVerdict{static_cast<int>(row), Vorn::operStatusOf(row),
                      std::string("it ") + Vorn::reasonOf(row)};
}

std::optional<IntfVerdict> subIntfVerdict(SwitchState const& state, RoutedIntf const& intf) {
   auto const config = intf.subConfig();
   if (!config || !intf.status || !intf.hasAgentDevice())
      return std::nullopt;
   bool const hasBridgeMacAddr = state.config->bridgeMacAddr() != Sulvi::EthAddr::ethAddrZero();
   auto const facts = Vorn::subIntfFacts(*config, hasBridgeMacAddr, !rivalsOf(state, intf).empty(),
                                         intf.parentStatus.ptr(), intf.hwStatus.ptr());
   auto const row = Vorn::subIntfRow(facts);
   return IntfVerdict{static_cast<int>(row), Vorn::operStatusOf(row), Vorn::subIntfReason(row, facts)};
}

} // namespace

// --- What follows from the records.

bool RoutedIntf::isSubIntf() const {
   auto const kind = intfId.kind();
   return kind == IntfKind::ethernetSub || kind == IntfKind::portChannelSub || kind == IntfKind::otherSub;
}

bool RoutedIntf::isDynamic() const {
   return config && !claims.empty() && config == Kem::Ptr<Interface::IntfConfig>(claims[0].config);
}

std::string RoutedIntf::source() const {
   if (!config)
      return {};
   return isDynamic() ? claims[0].source.name.str() : "static";
}

std::vector<std::string> RoutedIntf::lostClaims() const {
   std::vector<std::string> lost;
   for (size_t i = isDynamic() ? 1 : 0; i < claims.size(); ++i)
      lost.push_back(claims[i].text());
   return lost;
}

Kem::Ptr<Interface::VlanIntfConfig> RoutedIntf::vlanConfig() const {
   return Kem::ptrCast<Interface::VlanIntfConfig>(config);
}

Kem::Ptr<Interface::SubIntfConfig> RoutedIntf::subConfig() const {
   return Kem::ptrCast<Interface::SubIntfConfig>(config);
}

Kem::Ptr<Interface::SubIntfStatus> RoutedIntf::subStatus() const {
   return Kem::ptrCast<Interface::SubIntfStatus>(status);
}

std::optional<Bridging::VlanId> RoutedIntf::vlanId() const {
   uint32_t const number = intfId.firstNumber();
   if (!isVlanIntf() || number < Bridging::VlanId::min || number > Bridging::VlanId::max)
      return std::nullopt;
   return Bridging::VlanId(static_cast<uint16_t>(number));
}

IntfId RoutedIntf::parent() const {
   // Also of kinds that the agent takes no subinterfaces of.
   std::string const name = intfId.stringValue().str();
   return isSubIntf() ? IntfId(name.substr(0, name.rfind('.'))) : IntfId();
}

std::string RoutedIntf::deviceName() const {
   if (status && !status->deviceName().empty())
      return status->deviceName().str();
   if (isVlanIntf())
      return Sulvi::vlanDeviceName(intfId.firstNumber()).str();
   return Sulvi::kernelDeviceName(intfId).str();
}

bool RoutedIntf::hasAgentDevice() const {
   if (isVlanIntf())
      return vlanId().has_value();
   return isSubIntf() && Vorn::subIntfIdProblem(intfId).empty();
}

// --- Interfaces.

std::vector<IntfId> knownIntfs(SwitchState const& state) {
   std::set<IntfId> all;
   auto const add = [&](auto const& collection) {
      for (auto const& [intfId, record] : collection)
         all.insert(intfId);
   };
   add(state.allIntfConfig->intfConfig());
   add(state.allIntfStatus->intfStatus());
   add(state.vlanIntfConfig->intfConfig());
   add(state.vlanIntfStatus->intfStatus());
   add(state.subIntfConfig->intfConfig());
   add(state.subIntfStatus->intfStatus());
   for (auto const& [name, entity] : state.dynVlanIntfs->entities())
      if (auto const source = Kem::ptrCast<Interface::Input::DynVlanIntfConfigDir>(entity))
         add(source->intfConfig());
   return {all.begin(), all.end()};
}

bool isKnownIntf(SwitchState const& state, IntfId intfId) {
   auto const all = knownIntfs(state);
   return std::binary_search(all.begin(), all.end(), intfId);
}

RoutedIntf routedIntf(SwitchState const& state, IntfId intfId) {
   RoutedIntf intf;
   intf.intfId = intfId;
   if (intf.isVlanIntf())
      takeVlanIntf(state, intf);
   else if (intf.isSubIntf())
      takeSubIntf(state, intf);
   else
      takeOther(state, intf);
   if (intf.local)
      intf.netNs = intf.local->netNsName();
   if (auto const wanted = state.intfNamespace->intfNamespaceConfig(intfId))
      intf.wantedNetNs = wanted->netNsName();
   if (auto const* const problem = state.agentStatus->deviceProblem(intfId))
      intf.deviceProblem = problem->str();
   intf.verdict = intf.isVlanIntf() ? vlanIntfVerdict(state, intf) : subIntfVerdict(state, intf);
   return intf;
}

std::vector<IntfId> forwardingPorts(SwitchState const& state, Bridging::VlanId vlanId) {
   std::vector<IntfId> ports;
   if (!state.vlanStatus)
      return ports;
   if (auto const* const vlan = state.vlanStatus->vlanStatus().find(vlanId))
      (*vlan)->vlanPortStatus().forEach([&](IntfId port, bool) {
         if (port.kind() != IntfKind::cpu)
            ports.push_back(port);
      });
   std::sort(ports.begin(), ports.end());
   return ports;
}

std::vector<IntfId> rivalsOf(SwitchState const& state, RoutedIntf const& intf) {
   std::vector<IntfId> rivals;
   auto const own = intf.subConfig();
   if (!own || own->vlanId() == 0)
      return rivals;
   for (auto const& [other, config] : state.subIntfConfig->intfConfig())
      if (config->vlanId() == own->vlanId() && other != intf.intfId &&
          Vorn::parentOfSubIntf(other) == intf.parent() && Vorn::subIntfIdProblem(other).empty() &&
          state.subIntfStatus->intfStatus(other) && state.subIntfStatusLocal->intfStatusLocal(other))
         rivals.push_back(other);
   std::sort(rivals.begin(), rivals.end());
   return rivals;
}

std::string sourceText(RoutedIntf const& intf) {
   if (!intf.config)
      return "none";
   auto const vlanConfig = intf.vlanConfig();
   std::string const by =
       vlanConfig && !vlanConfig->source().empty() ? ", by " + vlanConfig->source().str() : "";
   return (intf.isDynamic() ? "dynamic source " + intf.source() : "static") + by;
}

std::string netNsText(Sulvi::NamespaceName const& netNs) {
   return netNs.isDefault() ? "default" : netNs.stringValue().str();
}

bool isUpByRecord(RoutedIntf const& intf) {
   return intf.status && intf.status->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

} // namespace Vornctl
