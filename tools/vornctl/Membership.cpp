#include "Membership.h"

#include "DynamicSources.h"
#include "Json.h"
#include "RoutedPort.h"
#include "Words.h"

#include "Vorn/Rules/AllowedVlans.h"
#include "Vorn/Rules/BestInput.h"
#include "Vorn/Rules/Membership.h"
#include "Vorn/Rules/PortMode.h"
#include "records/Bridging/Input/VlanConfig.h"

namespace Vornctl {

namespace {

using Bridging::SwitchportMode;
using Vorn::MembershipRule;

// What the rules look at, with the sets that it refers to.
class PortFacts {
  public:
   PortFacts(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
             Bridging::SwitchIntfConfig const& resolved)
       : state_(state), record_(record), resolved_(resolved), allowed_(allowedVlans(state, record)),
         asym_(Vorn::asymVlans(record).vlans) {
      for (auto const& each : dynTrunkGroupsOf(state, record.intfId()))
         dynTrunkGroup_.findOrInsert(Kem::String8(each.group), [] { return true; });
   }
   Vorn::MembershipFacts facts() const {
      return {record_, resolved_, allowed_, asym_, dynTrunkGroup_, *state_.config};
   }

  private:
   SwitchState const& state_;
   Bridging::Input::SwitchIntfConfig const& record_;
   Bridging::SwitchIntfConfig const& resolved_;
   VornUtils::VlanIdSet const allowed_, asym_;
   Vorn::TrunkGroups dynTrunkGroup_; // of dynamic sources
};

// One question: the rules share what they are asked about.
class Question {
  public:
   Question(Explanation& out, SwitchState const& state, Port const& port, Bridging::VlanConfig const& vlan)
       : out_(out), state_(state), port_(port), vlan_(vlan) {}

   void explain();

  private:
   void explainRule();
   void notActive();
   void internalVlan();
   void routed();
   void tunnel();
   void asymmetric();
   void access();
   void privateVlan();
   void allowed();
   void notAllowed();
   void mvrpOnly();
   void trunkGroups();

   void decide(char const* name, std::string const& finding) { out_.decide(isMember_, name, finding); }
   uint16_t native() const { return port_.resolved.switchportModeAndNativeVlan().nativeVlan.value(); }
   uint16_t vid() const { return vlan_.vlanId().value(); }
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
   MembershipRule rule_ = {};
   bool isMember_ = false;
};

void Question::explain() {
   PortFacts const port(state_, port_.record, port_.resolved);
   rule_ = membershipRule(vlan_, port.facts(), native());
   isMember_ = isMember(rule_);
   if (rule_ != MembershipRule::vlanNotActive)
      out_.note("VLAN status", "active");
   explainRule();
   // A secondary VLAN without a primary is a publisher's mistake; the rules have no answer for it.
   auto const role = vlan_.vlanTypeAndPrimaryVlan();
   if (isMember_ && (role.vlanType == Bridging::VlanType::primary_ || role.primaryVlan != 0))
      out_.member = vlanPortConfig(port.facts(), Bridging::VlanIdOrNone(vlan_.vlanId()), role);
}

// The deciding rule, after the earlier ones that are worth a line.
void Question::explainRule() {
   switch (rule_) {
   case MembershipRule::vlanNotActive:
      return notActive();
   case MembershipRule::internalVlanOfPort:
   case MembershipRule::routedPort:
      return routed();
   case MembershipRule::internalVlan:
      return internalVlan();
   case MembershipRule::tunnelNative:
   case MembershipRule::tunnelPort:
      return tunnel();
   case MembershipRule::asymListed:
   case MembershipRule::asymNotListed:
      return asymmetric();
   case MembershipRule::accessNoNative:
   case MembershipRule::accessNative:
   case MembershipRule::accessPort:
      return access();
   case MembershipRule::primaryOfNative:
   case MembershipRule::mappedToSecondaries:
   case MembershipRule::mappedToSecondary:
   case MembershipRule::unmappedSecondary:
      return privateVlan();
   case MembershipRule::notAllowed:
      return notAllowed();
   case MembershipRule::noTrunkGroups:
   case MembershipRule::trunkGroup:
   case MembershipRule::dynTrunkGroup:
   case MembershipRule::noneOfItsTrunkGroups:
      allowed();
      return trunkGroups();
   case MembershipRule::asymNotAccess:
   case MembershipRule::unknownMode:
      break;
   }
   decide("Mode", "no rule is for a port that is resolved like this: the agent is changing it");
   out_.advise("ask again; if that doesn't help, see whether the agent is running (vornctl show backlog)");
}

void Question::notActive() {
   decide("VLAN status", statusText(vlan_.adminState()) + ": no port is a member of it");
   auto const winner = Vorn::bestVlanInput(*state_.inputs);
   auto const wanted = winner ? winner->vlanConfig(vlan_.vlanId()) : nullptr;
   out_.advise(wanted ? "set " + wanted->fullName() + ".adminState to active"
                      : "have it made active by " + vlan_.configSource().str() + ", which it comes from");
}

void Question::internalVlan() {
   decide("Internal VLAN", vlanText() + " is the internal VLAN of " + vlan_.configuredName().str() +
                               ", and that port is its only member");
   out_.advise("choose another VLAN number, or configure " + vlanText() +
               " in the input that gives the VLANs: the routed port then takes another number");
}

void Question::routed() {
   char const* const name = "Routed port";
   if (isMember_)
      return decide(name, vlanText() + " is its internal VLAN");
   if (native() != 0) {
      decide(name, "it is a member of its internal VLAN " + std::to_string(native()) + " and of no other");
   } else {
      auto const why = whyNoInternalVlan(state_, port_.intfId);
      decide(name, "it would be a member of its internal VLAN only, and has none: " + why.reason);
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
   decide("Tunnel port", "it is a member of its native VLAN only; " + nativeText());
   if (!isMember_)
      out_.advise(accessAdvice());
}

void Question::asymmetric() {
   decide("Asymmetric VLANs",
          "the list " + port_.record.asymVlans().str() + (isMember_ ? " has " : " lacks ") + vlanText());
   if (!isMember_)
      out_.advise("add " + std::to_string(vid()) + " to " + attribute("asymVlans"));
}

void Question::access() {
   char const* const name = "Access port";
   if (rule_ != MembershipRule::accessNoNative) {
      decide(name, "it is a member of its native VLAN only; " + nativeText());
      if (!isMember_)
         out_.advise(accessAdvice());
      return;
   }
   decide(name, "a port without a native VLAN is a member of no VLAN");
   if (port_.record.accessVlan() != vid())
      out_.advise(accessAdvice());
   else
      out_.advise("the port is to be taken up by " + vlanText() +
                  ", which exists by now: see whether the agent is "
                  "running and has work waiting (vornctl show backlog)");
}

void Question::privateVlan() {
   char const* const name = "Private VLAN";
   std::string const native = std::to_string(this->native());
   if (rule_ == MembershipRule::primaryOfNative)
      return decide(name, "its native VLAN " + native + " is a secondary of " + vlanText());
   std::string const relation =
       vlanText() + " is a secondary of its native VLAN " + native + ", and the port is ";
   if (rule_ == MembershipRule::mappedToSecondaries)
      return decide(name, relation + "mapped to all secondaries");
   decide(name, relation + (isMember_ ? "mapped to it" : "not mapped to it"));
   if (!isMember_)
      out_.advise("map the port to it: set " + attribute("privateVlanMapping") + '[' + std::to_string(vid()) +
                  "] to true");
}

void Question::allowed() {
   auto const allowed = Vorn::allowedVlans(port_.record);
   auto const allowers = allowersOf(state_, port_.record, vlan_.vlanId());
   std::string const listed =
       "the list " + allowed.list.str() + " (" + allowed.attribute + ") has " + vlanText();
   std::string const given = std::string("allowed by ") +
                             (allowers.size() == 1 ? "the dynamic source " : "dynamic sources ") +
                             joined(allowers);
   bool const isListed = allowed.vlans.vlan(vid()) &&
                         !(Vorn::takesDynamicVlans(port_.record) && mvrpOnlyVlans(state_).vlan(vid()));
   out_.note("Allowed VLANs", allowers.empty() ? listed : isListed ? listed + "; also " + given : given);
}

// The list has it, and a VLAN of that kind is in no list.
void Question::mvrpOnly() {
   auto const input = Vorn::bestVlanInput(*state_.inputs);
   decide("Allowed VLANs",
          std::string("the source ") + Vorn::mvrpSource + " asks for " + vlanText() + ", and " +
              (input ? input->name().str() + ", which gives the VLANs, lacks it" : "no input gives it") +
              ": such a VLAN is in no port's list, whatever that says");
   out_.advise("hold " + vlanText() + " in the input that gives the VLANs");
   if (Vorn::takesDynAllowedVlans(port_.record))
      out_.advise("or have a dynamic source allow it: add it to "
                  "bridging/input/dynvlan/allowedvlan/SOURCE.vlans[" +
                  port_.intfId.stringValue().str() + ']');
}

void Question::notAllowed() {
   auto const allowed = Vorn::allowedVlans(port_.record);
   if (allowed.vlans.vlan(vid()))
      return mvrpOnly();
   std::string const list = allowed.list.empty() ? "the empty list" : "the list " + allowed.list.str();
   std::string finding = list + " (" + allowed.attribute + ") lacks " + vlanText();
   if (!Vorn::hasVlanSets(port_.intfId))
      finding = "a subinterface has no allowed VLANs";
   else if (!allowed.leftOut.empty())
      finding += "; these items of it are no VLAN numbers and say nothing: " + allowed.leftOut;
   decide("Allowed VLANs", finding);
   if (Vorn::hasVlanSets(port_.intfId))
      out_.advise("add " + std::to_string(vid()) + " to " + attribute(allowed.attribute));
   else
      out_.advise("ask about the port itself, which is above its subinterfaces");
}

void Question::trunkGroups() {
   char const* const name = "Trunk groups";
   if (rule_ == MembershipRule::noTrunkGroups)
      return decide(name, vlanText() + " has none, so it is open to every trunk");
   std::vector<std::string> wanted;
   std::vector<std::string> own = sortedTexts(port_.record.trunkGroup());
   for (std::string const& group : sortedTexts(vlan_.trunkGroup()))
      if (vlan_.trunkGroup(Kem::String8(group)))
         wanted.push_back(group);
   auto const given = dynTrunkGroupsOf(state_, port_.intfId);
   if (isMember_) {
      auto const shared = std::find_first_of(own.begin(), own.end(), wanted.begin(), wanted.end());
      if (shared != own.end())
         return decide(name, vlanText() + " is open to trunks of group " + *shared + ", which the port has");
      auto const gift =
          std::find_first_of(given.begin(), given.end(), wanted.begin(), wanted.end(),
                             [](DynTrunkGroup const& a, std::string const& b) { return a.group == b; });
      return decide(name, vlanText() + " is open to trunks of group " + gift->group +
                              ", which the dynamic source " + gift->source + " gives the port");
   }
   for (auto const& each : given)
      own.push_back(each.group + " from " + each.source);
   std::string const open =
       wanted.empty() ? " is open to no trunk" : " is open to trunks of " + joined(wanted) + " only";
   decide(name,
          vlanText() + open + (own.empty() ? "; the port has no group" : "; the port has " + joined(own)));
   if (!wanted.empty())
      out_.advise("add one of the groups to " + attribute("trunkGroup"));
   out_.advise("or take the groups from " + vlanText() + " in the input that it comes from");
}

} // namespace

void explainMembership(Explanation& out, SwitchState const& state, Port const& port,
                       Bridging::VlanConfig const& vlan) {
   Question(out, state, port, vlan).explain();
}

bool wouldBeMember(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
                   Bridging::VlanConfig const& vlan) {
   SwitchportMode const mode = Vorn::effectiveMode(record);
   if (mode == SwitchportMode::routed_)
      return false;
   auto native = Vorn::configuredNativeVlan(record, mode);
   if (native.mustExist && native.vlanId != 0 &&
       !state.config->vlanConfig().find(Bridging::VlanId(native.vlanId)))
      native.vlanId = 0;
   auto const resolved = Bridging::SwitchIntfConfig::make(record.intfId());
   resolved->switchportModeAndNativeVlanIs({.switchportMode = mode, .nativeVlan = native.vlanId});
   resolved->asymVlanEnabledIs(Vorn::isAsymmetric(record));
   return isMember(membershipRule(vlan, PortFacts(state, record, *resolved).facts(), native.vlanId));
}

} // namespace Vornctl
