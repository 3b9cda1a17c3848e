// What the publishers do in a chain with private VLANs: relations that take several steps in a row to come
// about, and what may happen to them.

#include "PublishersRecords.h"

namespace Model {

namespace {

// The VLANs and the port of a chain, the same in all of its steps.
struct PrivateCast {
   explicit PrivateCast(Dice dice)
       : primary(1 + dice.below(2)), small(3 + dice.below(2)),
         intf(dice.oneOf(Publishers::ports)), greatRole{.type = dice.chance(3) ? 0u : 1u,
                                                        .primary = primary} {}
   unsigned primary, other = 3 - primary;
   unsigned small, great = small + 2; // secondaries
   std::string intf;
   Role greatRole; // may be one that names a primary and makes no pair
};

std::string vlanText(std::string const& input, unsigned number) {
   return input + " VLAN " + std::to_string(number);
}

} // namespace

std::string Publishers::makePrivateVlans(Dice dice) {
   auto const& name = bestVlanInput()->name;
   PrivateCast const cast(dice);
   Dice ofPort(dice.below(0x7fffffff)); // independent of the cast
   roleIs(name, cast.primary, {});
   roleIs(name, cast.other, {});
   roleIs(name, cast.small, {.type = 1, .primary = cast.primary});
   roleIs(name, cast.great, cast.greatRole);
   if (std::string const vlanIntf = "Vlan" + std::to_string(cast.primary);
       !intent_.vlanIntfs.contains(vlanIntf)) {
      vlanIntfs_->intfConfigIs(vlanIntf);
      intent_.vlanIntfs[vlanIntf];
      tell_({.what = Change::vlanIntf, .key = vlanIntf});
   }
   std::string const text = vlanText(name, cast.primary) + " is named by " + std::to_string(cast.small) +
                            " and " + std::to_string(cast.great);
   auto const ofPorts = bestPortInput();
   if (!ofPorts)
      return text;
   if (ofPorts->ports.contains(cast.intf))
      portDel(ofPorts->name, cast.intf);
   Port port{.enabled = !ofPort.chance(8), .mode = access, .mapsAllSecondaries = true};
   switch (ofPort.below(4)) {
   case 0:
      port.accessVlan = cast.primary;
      break;
   case 1:
      port.accessVlan = cast.small;
      break;
   case 2:
      port.accessVlan = cast.great;
      break;
   default:
      port.mode = trunk;
      port.mapsOnTrunk = true;
   }
   portIs(ofPorts->name, cast.intf, port);
   return text + ", " + cast.intf + (port.mode == trunk ? " maps them" : " in one of them");
}

std::string Publishers::changePrivateVlans(Kind kind, Dice dice) {
   auto const best = bestVlanInput();
   if (!best)
      return "nothing";
   auto const& name = best->name;
   PrivateCast const cast(dice);
   auto const names = [&](unsigned number, unsigned primary) {
      auto const vlan = best->vlans.find(number);
      return vlan != best->vlans.end() && vlan->second->role.primary == primary;
   };
   switch (kind) {
   case Kind::privateVlans:
      return makePrivateVlans(dice);
   case Kind::primaryDeleted:
      if (!best->vlans.contains(cast.primary))
         return "nothing";
      vlanDel(name, cast.primary);
      return vlanText(name, cast.primary) + ", a primary, deleted";
   case Kind::primaryMade:
      roleIs(name, cast.primary, {});
      return vlanText(name, cast.primary) + ", a primary, made";
   case Kind::primarySuspended: {
      auto const vlan = best->vlans.find(cast.primary);
      if (vlan == best->vlans.end())
         return "nothing";
      bool const isSuspended = vlan->second->isSuspended = !vlan->second->isSuspended;
      record(name)->vlanConfig(Bridging::VlanId(cast.primary))->adminStateIs(stateOf(isSuspended));
      tell_({.what = Change::vlanAttribute,
             .name = name,
             .number = cast.primary,
             .attribute = static_cast<int>(VlanAttr::isSuspended)});
      return vlanText(name, cast.primary) + ", a primary, " + (isSuspended ? "suspended" : "active");
   }
   case Kind::secondaryMoved: {
      unsigned const to = names(cast.small, cast.primary) ? cast.other : cast.primary;
      roleIs(name, cast.small, {.type = 1, .primary = to});
      return vlanText(name, cast.small) + " moves to primary " + std::to_string(to);
   }
   case Kind::secondaryReplaced: {
      auto const vlan = best->vlans.find(cast.small);
      if (vlan == best->vlans.end())
         return "nothing";
      Vlan again = *vlan->second;
      again.name = again.name == "one" ? "other" : "one"; // the same once more would not reach anybody
      vlanDel(name, cast.small);
      vlanIs(name, cast.small, again);
      return vlanText(name, cast.small) + ", a secondary, deleted and made again";
   }
   case Kind::secondaryLeaves: {
      bool const leaves = names(cast.great, cast.primary);
      roleIs(name, cast.great, leaves ? Role() : cast.greatRole);
      return vlanText(name, cast.great) + (leaves ? " leaves its primary" : " joins its primary");
   }
   case Kind::secondaryHeads:
      if (names(cast.great, cast.small)) {
         roleIs(name, cast.small, {});
         return vlanText(name, cast.small) + ", a secondary, becomes a primary";
      }
      roleIs(name, cast.small, {.type = 1, .primary = cast.primary});
      roleIs(name, cast.great, {.type = 1, .primary = cast.small});
      return vlanText(name, cast.great) + " names " + std::to_string(cast.small) + ", a secondary";
   default: { // trunkTranslated
      auto const ofPorts = bestPortInput();
      if (!ofPorts || !ofPorts->ports.contains(cast.intf))
         return "nothing";
      Tags const from{cast.primary, 0}, to{9, 0};
      bool const goes = ofPorts->ports.at(cast.intf)->egress.contains(from);
      translationIs(ofPorts->name, cast.intf, true, from, goes ? nullptr : &to);
      return ofPorts->name + " " + cast.intf + " leaving " + tagsText(from) +
             (goes ? " not translated" : " translated");
   }
   }
}

} // namespace Model
