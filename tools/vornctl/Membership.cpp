#include "Membership.h"

#include "AllowedVlans.h"
#include "Inputs.h"
#include "Json.h"
#include "RoutedPort.h"
#include "Words.h"

#include "records/Bridging/Input/VlanConfig.h"

namespace Vornctl {

namespace {

using Bridging::SwitchportMode;
using Bridging::VlanType;

// One question: the rules share what they are asked about.
class Question {
  public:
   Question(Explanation& out, SwitchState const& state, Port const& port, Bridging::VlanConfig const& vlan)
       : out_(out), state_(state), port_(port), vlan_(vlan) {}

   void explain();

  private:
   void routed();
   void tunnel();
   void asymmetric();
   void access();
   void trunk();
   void trunkGroups();

   SwitchportMode mode() const { return port_.resolved.switchportModeAndNativeVlan().switchportMode; }
   uint16_t native() const { return port_.resolved.switchportModeAndNativeVlan().nativeVlan.value(); }
   uint16_t vid() const { return vlan_.vlanId().value(); }
   bool isNative() const { return native() == vid(); }
   std::string vlanText() const { return "VLAN " + std::to_string(vid()); }
   std::string nativeText() const {
      return native() == 0 ? "the port has no native VLAN" : "its native VLAN is " + std::to_string(native());
   }
   std::string attribute(std::string const& name) const { return port_.record.fullName() + '.' + name; }
   std::string accessAdvice() const {
      return "set " + attribute("accessVlan") + " to " + std::to_string(vid()) + ", or make the port a trunk";
   }

   Explanation& out_;
   SwitchState const& state_;
   Port const& port_;
   Bridging::VlanConfig const& vlan_;
};

void Question::explain() {
   if (vlan_.adminState() != Bridging::VlanAdminState::active) {
      out_.decide(false, "VLAN status", statusText(vlan_.adminState()) + ": no port is a member of it");
      auto const inputs = inputsOf(state_);
      size_t const winner = vlanWinner(inputs);
      auto const wanted =
          winner < inputs.size() ? inputs[winner].config->vlanConfig(vlan_.vlanId()) : nullptr;
      out_.advise(wanted ? "set " + wanted->fullName() + ".adminState to active"
                         : "have it made active by " + vlan_.configSource().str() + ", which it comes from");
      return;
   }
   out_.note("VLAN status", "active");
   if (mode() == SwitchportMode::routed_)
      return routed();
   if (vlan_.internal()) {
      out_.decide(false, "Internal VLAN",
                  vlanText() + " is the internal VLAN of " + vlan_.configuredName().str() +
                      ", and that port is its only member");
      out_.advise("choose another VLAN number, or configure " + vlanText() +
                  " in the input that gives the VLANs: the routed port then takes another number");
      return;
   }
   if (mode() == SwitchportMode::dot1qTunnel_)
      return tunnel();
   if (port_.resolved.asymVlanEnabled())
      return asymmetric();
   if (mode() == SwitchportMode::access_)
      return access();
   trunk();
}

void Question::routed() {
   if (isNative()) {
      out_.decide(true, "Routed port", vlanText() + " is its internal VLAN");
      return;
   }
   if (native() != 0) {
      out_.decide(false, "Routed port",
                  "it is a member of its internal VLAN " + std::to_string(native()) + " and of no other");
   } else {
      auto const why = whyNoInternalVlan(state_, port_.intfId);
      out_.decide(false, "Routed port",
                  "it would be a member of its internal VLAN only, and has none: " + why.reason);
      if (vlan_.internal())
         out_.advise(why.advice);
   }
   if (vlan_.internal())
      return;
   if (port_.record.enabled())
      out_.advise("give the port a switchport mode: " + attribute("switchportMode") + " is routed_");
   else
      out_.advise("make the port a switchport: set " + attribute("enabled") + " to true");
}

void Question::tunnel() {
   out_.decide(isNative(), "Tunnel port", "it is a member of its native VLAN only; " + nativeText());
   if (!isNative())
      out_.advise(accessAdvice());
}

void Question::asymmetric() {
   VornUtils::VlanIdSet vlans;
   VornUtils::computeVlanSet(vlans, port_.record.asymVlans().view());
   bool const holds = vlans.vlan(vid());
   out_.decide(holds, "Asymmetric VLANs",
               "the list " + port_.record.asymVlans().str() + (holds ? " has " : " lacks ") + vlanText());
   if (!holds)
      out_.advise("add " + std::to_string(vid()) + " to " + attribute("asymVlans"));
}

void Question::access() {
   char const* const name = "Access port";
   if (native() == 0) {
      out_.decide(false, name, "a port without a native VLAN is a member of no VLAN");
      if (uint16_t const wanted = port_.record.accessVlan().value(); wanted != vid())
         out_.advise(accessAdvice());
      else
         out_.advise("the port is to be taken up by " + vlanText() +
                     ", which stands by now: see whether the agent is "
                     "running and has work waiting (vornctl show backlog)");
      return;
   }
   auto const nativeVlan = state_.config->vlanConfig(Bridging::VlanId(native()));
   if (nativeVlan && nativeVlan->adminState() == Bridging::VlanAdminState::active) {
      auto const nativeRole = nativeVlan->vlanTypeAndPrimaryVlan();
      auto const role = vlan_.vlanTypeAndPrimaryVlan();
      if (nativeRole.primaryVlan == vid() && role.vlanType == VlanType::primary_) {
         out_.decide(true, "Private VLAN",
                     "its native VLAN " + std::to_string(native()) + " is a secondary of " + vlanText());
         return;
      }
      if (role.primaryVlan == native() && nativeRole.vlanType == VlanType::primary_) {
         std::string const relation =
             vlanText() + " is a secondary of its native VLAN " + std::to_string(native());
         if (port_.record.defaultPrivateVlanMapping()) {
            out_.decide(true, "Private VLAN", relation + ", and the port is mapped to all secondaries");
            return;
         }
         bool const isMapped = port_.record.privateVlanMapping().find(vlan_.vlanId()) != nullptr;
         out_.decide(
             isMapped, "Private VLAN",
             relation + (isMapped ? ", and the port is mapped to it" : ", and the port is not mapped to it"));
         if (!isMapped)
            out_.advise("map the port to it: set " + attribute("privateVlanMapping") + '[' +
                        std::to_string(vid()) + "] to true");
         return;
      }
   }
   out_.decide(isNative(), name, "it is a member of its native VLAN only; " + nativeText());
   if (!isNative())
      out_.advise(accessAdvice());
}

void Question::trunk() {
   auto const allowed = allowedVlans(state_, port_.record);
   std::string const list = allowed.list.empty() ? "the empty list" : "the list " + allowed.list;
   std::string finding = list + " (" + allowed.attribute + ')';
   if (allowed.vlans.vlan(vid())) {
      std::vector<std::string> sources;
      for (auto const& addition : allowed.additions)
         if (addition.vlans.vlan(vid()))
            sources.push_back(addition.source);
      VornUtils::VlanIdSet configured;
      VornUtils::computeVlanSet(configured, allowed.list);
      bool const isListed = configured.vlan(vid()) && !allowed.learned.vlan(vid());
      out_.note("Allowed VLANs", (isListed ? finding + " has "
                                           : "not by " + finding + ", but " + joined(sources) +
                                                 (sources.size() == 1 ? " allows " : " allow ")) +
                                     vlanText());
      return trunkGroups();
   }
   if (allowed.learned.vlan(vid()))
      finding += " has " + vlanText() +
                 ", but that is a VLAN that MVRP learned and nobody configured, which the list "
                 "can't allow";
   else
      finding += " lacks " + vlanText();
   if (!allowed.leftOut.empty())
      finding += "; these items of it are no VLAN numbers and say nothing: " + allowed.leftOut;
   out_.decide(false, "Allowed VLANs", finding);
   if (allowed.learned.vlan(vid()))
      out_.advise("configure " + vlanText() + " in the input that gives the VLANs");
   else
      out_.advise("add " + std::to_string(vid()) + " to " + attribute(allowed.attribute));
}

void Question::trunkGroups() {
   char const* const name = "Trunk groups";
   if (vlan_.trunkGroup().empty()) {
      out_.decide(true, name, vlanText() + " has none, so it is open to every trunk");
      return;
   }
   std::vector<std::string> wanted, own = sortedTexts(port_.record.trunkGroup());
   for (std::string const& group : sortedTexts(vlan_.trunkGroup()))
      if (vlan_.trunkGroup(Kem::String8(group)))
         wanted.push_back(group);
   auto const dynamic = dynTrunkGroups(state_, port_.intfId);
   own.insert(own.end(), dynamic.begin(), dynamic.end());
   for (std::string const& group : own)
      if (vlan_.trunkGroup(Kem::String8(group))) {
         out_.decide(true, name,
                     vlanText() + " is open to trunks of group " + group + ", which the port has");
         return;
      }
   std::string const open =
       wanted.empty() ? " is open to no trunk" : " is open to trunks of " + joined(wanted) + " only";
   out_.decide(false, name,
               vlanText() + open +
                   (own.empty() ? "; the port has no group" : "; the port has " + joined(own)));
   if (!wanted.empty())
      out_.advise("add one of the groups to " + attribute("trunkGroup"));
   out_.advise("or take the groups from " + vlanText() + " in the input that it comes from");
}

} // namespace

void explainMembership(Explanation& out, SwitchState const& state, Port const& port,
                       Bridging::VlanConfig const& vlan) {
   Question(out, state, port, vlan).explain();
}

} // namespace Vornctl
