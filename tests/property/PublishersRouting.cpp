// What others do about routed interfaces: the command line, the interface manager, ports and their hardware,
// dynamic sources, namespaces, and devices in the kernel.

#include "PublishersRecords.h"

#include "records/Bridging/VlanStatus.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"
#include "records/Interface/IntfNamespaceConfig.h"

namespace Model {

namespace {

constexpr char const* subIntfNames[] = {"Ethernet7.1",     "Ethernet7.2",   "Ethernet7.3",
                                        "Ethernet7.4094",  "Ethernet8/1.1", "Port-Channel2.10",
                                        "Port-Channel2.11"};
constexpr char const* parentNames[] = {"Ethernet7", "Ethernet8/1", "Port-Channel2"};
constexpr char const* baseNames[] = {"fabric", "et7", "et8_1", "po2"};
constexpr char const* netNsNames[] = {"red", "blue"};
constexpr char const* sourceNames[] = {"overlay", "vpn"};
constexpr unsigned mtus[] = {1500, 0, 67, 70000, 68, 9000, 1400, 9214};
constexpr char const* addrs[] = {"", "02:00:00:00:00:aa", "02:00:00:00:00:bb"};
// Of an evaluation. What the agent asks only once, at its start, is not among them.
constexpr char const* calls[] = {"SIOCSIFHWADDR", "SIOCSIFMTU",     "SET_VLAN_EGRESS_PRIORITY_CMD",
                                 "SIOCGIFHWADDR", "if_nametoindex", "socket",
                                 "open",          "setns"};
constexpr int errors[] = {ENOMEM, ENOBUFS, EPERM, EMFILE, EINTR};

std::string someVlanIntf(Dice& dice) {
   return "Vlan" + std::to_string(1 + dice.below(dice.chance() ? 4 : 10));
}
Interface::EnabledState stateOf(RoutedIntf const& intf) {
   return intf.isShut ? Interface::EnabledState::enabledStateShutdown
                      : Interface::EnabledState::enabledStateDefault;
}
Sulvi::EthAddr addrOf(std::string const& text) {
   return text.empty() ? Sulvi::EthAddr() : Sulvi::EthAddr(std::string_view(text));
}

} // namespace

void Publishers::beginRouting() {
   bridgeAddrIs("02:00:00:00:00:01");
   for (char const* const name : baseNames)
      baseIs(name, BaseDevice());
   for (char const* const parent : parentNames)
      parentIs(parent, {.operStatus = 1, .forwardingModel = routedModel});
}

void Publishers::bridgeAddrIs(std::string const& addr) {
   config_->bridgeMacAddrIs(addrOf(addr));
   intent_.routing.bridgeAddr = addr;
}

void Publishers::baseIs(std::string const& name, BaseDevice const& device) {
   auto& made = kernel_.deviceIs(name);
   intent_.routing.devices[name] = device;
   if (made.mtu != device.mtu)
      kernel_.mtuIs(name, device.mtu);
   kernel_.upIs(name, device.isUp);
}

void Publishers::parentIs(std::string const& intf, Parent const& parent) {
   auto const record = allStatuses_->intfStatusIs(intf);
   record->operStatusIs(static_cast<Interface::IntfOperStatus>(parent.operStatus));
   record->forwardingModelIs(static_cast<Interface::IntfForwardingModel>(parent.forwardingModel));
   intent_.routing.parents[intf] = parent;
}

// What the interface manager makes for a configuration.
void Publishers::statusIs(std::string const& intf, bool exists) {
   auto const id = Sulvi::IntfId(intf);
   bool const isVlan = intf.starts_with("Vlan");
   if (exists) {
      isVlan ? void(vlanStatuses_->intfStatusIs(id)) : void(subStatuses_->intfStatusIs(id));
      intent_.routing.statuses.insert(intf);
   } else {
      isVlan ? void(vlanStatuses_->intfStatusDel(id)) : void(subStatuses_->intfStatusDel(id));
      intent_.routing.statuses.erase(intf);
   }
}

void Publishers::localIs(std::string const& intf, bool exists) {
   auto const id = Sulvi::IntfId(intf);
   bool const isVlan = intf.starts_with("Vlan");
   if (exists) {
      isVlan ? void(vlanLocals_->intfStatusLocalIs(id)) : void(subLocals_->intfStatusLocalIs(id));
      intent_.routing.locals.insert(intf);
   } else {
      isVlan ? void(vlanLocals_->intfStatusLocalDel(id)) : void(subLocals_->intfStatusLocalDel(id));
      intent_.routing.locals.erase(intf);
   }
}

bool Publishers::isConfigured(std::string const& intf) const {
   if (intent_.vlanIntfs.contains(intf) || intent_.routing.subIntfs.contains(intf))
      return true;
   for (auto const& [name, source] : intent_.routing.sources)
      if (source.intfs.contains(intf))
         return true;
   return false;
}

// The interface manager follows the configuration: both records, or, now and then, one of them late.
void Publishers::followConfig(Dice& dice, std::string const& intf) {
   bool const isWanted = isConfigured(intf);
   if (isWanted && dice.chance(6))
      return; // both late
   if (!isWanted || !dice.chance(8))
      statusIs(intf, isWanted);
   if (!isWanted || !dice.chance(8))
      localIs(intf, isWanted);
}

std::string Publishers::changeRouted(Dice& dice, RoutedIntf& is, Interface::IntfConfig& record) {
   switch (dice.below(4)) {
   case 0:
      is.isEnabled = !is.isEnabled;
      record.enabledIs(is.isEnabled);
      return is.isEnabled ? "enabled" : "disabled";
   case 1:
      is.isShut = !is.isShut;
      record.enabledStateLocalIs(stateOf(is));
      return is.isShut ? "shut down" : "not shut down";
   case 2:
      is.mtu = dice.oneOf(mtus);
      record.mtuIs(is.mtu);
      return "MTU " + std::to_string(is.mtu);
   default:
      is.addr = dice.oneOf(addrs);
      record.addrIs(addrOf(is.addr));
      return "address " + is.addr;
   }
}

std::string Publishers::changeSubIntf(Dice dice) {
   std::string const intf = dice.oneOf(subIntfNames);
   auto& all = intent_.routing.subIntfs;
   unsigned const vlanId = dice.chance(10) ? 0 : 10 + dice.below(3);
   auto const isMade = [&] {
      auto const record = subConfigs_->intfConfigIs(intf);
      SubIntf const made{{}, vlanId, !dice.chance(8)};
      record->vlanIdIs(static_cast<uint16_t>(made.vlanId));
      record->encapTypeIs(made.isDot1q ? Interface::SubIntfEncapType::subIntfEncapDot1q
                                       : Interface::SubIntfEncapType::subIntfEncapNone);
      all[intf] = made;
      return intf + " made with VLAN " + std::to_string(vlanId) + (made.isDot1q ? "" : ", no encapsulation");
   };
   auto const found = all.find(intf);
   if (found == all.end()) {
      auto const text = isMade();
      followConfig(dice, intf);
      if (!dice.chance(5)) {
         hwStatuses_->subIntfStatusIs(intf)->hardwareSuccessIs(true);
         intent_.routing.hardware[intf] = true;
      }
      return text;
   }
   auto const record = subConfigs_->intfConfig(intf);
   switch (dice.below(6)) {
   case 0:
      subConfigs_->intfConfigDel(intf);
      all.erase(intf);
      followConfig(dice, intf);
      return intf + " gone";
   case 1:
      subConfigs_->intfConfigDel(intf);
      return isMade() + " again";
   case 2:
      found->second.vlanId = vlanId;
      record->vlanIdIs(static_cast<uint16_t>(vlanId));
      return intf + " VLAN " + std::to_string(vlanId);
   case 3:
      found->second.isDot1q = !found->second.isDot1q;
      record->encapTypeIs(found->second.isDot1q ? Interface::SubIntfEncapType::subIntfEncapDot1q
                                                : Interface::SubIntfEncapType::subIntfEncapNone);
      return intf + (found->second.isDot1q ? " dot1q" : " no encapsulation");
   default:
      return intf + " " + changeRouted(dice, found->second, *record);
   }
}

std::string Publishers::changeVlanIntfSource(Dice dice) {
   std::string const name = dice.oneOf(sourceNames), place = "source of VLAN interfaces " + name + " ";
   auto& sources = intent_.routing.sources;
   auto const found = sources.find(name);
   // None of internal VLANs, and sometimes none of a VLAN interface.
   std::string const intf = dice.chance(10) ? "Vlan4095" : someVlanIntf(dice);
   bool const isVlanIntf = intf != "Vlan4095";
   if (found == sources.end()) {
      auto const made = Interface::Input::DynVlanIntfConfigDir::make();
      made->nameIs(Kem::Name(name));
      vlanIntfSources_->entityPtrIs(made);
      sources[name];
      unborn_.insert(place);
      tell_({.what = Change::vlanIntfSource});
      return place + "comes";
   }
   if (unborn_.contains(place))
      return "nothing";
   auto const record = vlanIntfSources_->entity<Interface::Input::DynVlanIntfConfigDir>(Kem::Name(name));
   auto& is = found->second;
   switch (dice.below(8)) {
   case 0: {
      auto const left = is.intfs;
      vlanIntfSources_->entityPtrDel(Kem::Name(name));
      sources.erase(found);
      for (auto const& [gone, config] : left)
         if (gone != "Vlan4095")
            followConfig(dice, gone);
      return place + "goes";
   }
   case 1:
      is.priority = dice.below(3);
      record->priorityIs(is.priority);
      return place + "priority " + std::to_string(is.priority);
   default:
      break;
   }
   auto const asked = is.intfs.find(intf);
   if (asked == is.intfs.end()) {
      record->intfConfigIs(intf);
      is.intfs[intf];
   } else if (dice.chance()) {
      record->intfConfigDel(intf);
      is.intfs.erase(asked);
   } else {
      return place + intf + " " + changeRouted(dice, asked->second, *record->intfConfig(intf));
   }
   if (isVlanIntf)
      followConfig(dice, intf);
   return place + intf + (is.intfs.contains(intf) ? " asked for" : " given up");
}

std::string Publishers::changeIntfRecord(Dice dice) {
   std::string const intf = dice.chance() ? std::string(dice.oneOf(subIntfNames)) : someVlanIntf(dice);
   auto const& in = intent_.routing;
   bool const isWanted = isConfigured(intf);
   if (dice.chance() && in.statuses.contains(intf) && isWanted) {
      statusIs(intf, false);
      statusIs(intf, true);
      return intf + " status record replaced";
   }
   if (dice.chance() && in.locals.contains(intf) && isWanted) {
      localIs(intf, false);
      localIs(intf, true);
      return intf + " local record replaced";
   }
   statusIs(intf, isWanted);
   localIs(intf, isWanted);
   return intf + (isWanted ? " has all its records" : " has no records");
}

std::string Publishers::changeParent(Dice dice) {
   std::string const intf = dice.oneOf(parentNames);
   auto& parents = intent_.routing.parents;
   if (auto const found = parents.find(intf); found != parents.end()) {
      if (dice.chance(6)) {
         allStatuses_->intfStatusDel(intf);
         parents.erase(found);
         return intf + " status gone";
      }
      Parent next = found->second;
      dice.chance() ? next.operStatus = dice.chance() ? 1 : 2
                    : next.forwardingModel = dice.chance() ? routedModel : 1;
      parentIs(intf, next);
   } else {
      parentIs(intf, {.operStatus = 1, .forwardingModel = routedModel});
   }
   return intf + " state " + std::to_string(parents[intf].operStatus) + ", forwarding model " +
          std::to_string(parents[intf].forwardingModel);
}

std::string Publishers::changeHardware(Dice dice) {
   std::string const intf = dice.oneOf(subIntfNames);
   auto& hardware = intent_.routing.hardware;
   if (dice.chance(4)) {
      hwStatuses_->subIntfStatusDel(intf);
      hardware.erase(intf);
      return intf + " has no hardware record";
   }
   bool const isDone = !dice.chance(3);
   hwStatuses_->subIntfStatusIs(intf)->hardwareSuccessIs(isDone);
   hardware[intf] = isDone;
   return intf + (isDone ? " programmed" : " not programmed");
}

std::string Publishers::changeForwarding(Dice dice) {
   auto& in = intent_.routing;
   unsigned const number = 1 + dice.below(6);
   switch (dice.below(6)) {
   case 0:
      in.autoState = !in.autoState;
      autoState_->autoStateIs(in.autoState);
      return in.autoState ? "autostate on" : "autostate off";
   case 1:
      vlanStatus_->vlanStatusDel(Bridging::VlanId(number));
      in.forwarding.erase(number);
      return "VLAN " + std::to_string(number) + " has no forwarding ports";
   default: {
      std::string const port = dice.chance(3) ? "Cpu" : dice.chance() ? "Ethernet1" : "Ethernet2";
      auto const record = vlanStatus_->vlanStatusIs(Bridging::VlanId(number));
      auto& listed = in.forwarding[number];
      bool const leaves = listed.erase(port) != 0;
      if (leaves) {
         record->vlanPortStatusDel(port);
      } else {
         record->vlanPortStatusIs(port, dice.chance());
         listed.insert(port);
      }
      return "VLAN " + std::to_string(number) + " on " + port + (leaves ? " no more" : "");
   }
   }
}

std::string Publishers::changeNamespace(Dice dice) {
   auto& in = intent_.routing;
   std::string const netNs = dice.oneOf(netNsNames);
   switch (dice.below(4)) {
   case 0:
      if (in.namespaces.erase(netNs) != 0) {
         kernel_.namespaceDel(netNs);
         return "namespace " + netNs + " deleted";
      }
      [[fallthrough]];
   case 1: {
      bool const isAgain = in.namespaces.contains(netNs);
      if (isAgain)
         kernel_.namespaceDel(netNs);
      kernel_.namespaceIs(netNs);
      in.namespaces.insert(netNs);
      return "namespace " + netNs + (isAgain ? " made again" : " made");
   }
   default: {
      std::string const intf = dice.chance() ? std::string(dice.oneOf(subIntfNames)) : someVlanIntf(dice);
      if (in.netNs.contains(intf) && dice.chance()) {
         nsConfigs_->intfNamespaceConfigDel(intf);
         in.netNs.erase(intf);
         return intf + " back into the default namespace";
      }
      std::string const wanted = dice.chance(6) ? "" : netNs;
      nsConfigs_->intfNamespaceConfigIs(intf)->netNsNameIs(wanted);
      in.netNs[intf] = wanted;
      return intf + " into namespace '" + wanted + "'";
   }
   }
}

std::string Publishers::changeDevice(Dice dice) {
   auto& in = intent_.routing;
   std::string const name = dice.oneOf(baseNames);
   auto const found = in.devices.find(name);
   switch (dice.below(8)) {
   case 0:
      if (found == in.devices.end())
         break;
      kernel_.deviceDel(name);
      in.devices.erase(found);
      return "device " + name + " gone";
   case 1:
   case 2: {
      if (found == in.devices.end())
         break;
      BaseDevice next = found->second;
      next.isUp = !next.isUp;
      baseIs(name, next);
      return "device " + name + (next.isUp ? " up" : " down");
   }
   case 3: {
      if (found == in.devices.end())
         break;
      BaseDevice next = found->second;
      next.mtu = dice.chance() ? 1500 : 9214;
      baseIs(name, next);
      return "device " + name + " MTU " + std::to_string(next.mtu);
   }
   case 4:
      bridgeAddrIs(in.bridgeAddr.empty() || dice.chance(3)
                       ? dice.chance() ? "02:00:00:00:00:01" : "02:00:00:00:00:02"
                       : "");
      return "bridge address '" + in.bridgeAddr + "'";
   case 5: {
      in.maxFrame = dice.chance() ? 9214 : 1600;
      hardware_->maxFrameSizeIs(in.maxFrame + 22);
      return "packets of at most " + std::to_string(in.maxFrame);
   }
   case 6: {
      // By hand, in the default namespace: a device of ours.
      std::string const victim = dice.chance() ? "vlan" + std::to_string(1 + dice.below(4))
                                               : "et7." + std::to_string(1 + dice.below(3));
      if (!kernel_.findDevice(victim))
         return "nothing";
      kernel_.deviceDel(victim);
      return "device " + victim + " deleted by hand";
   }
   default:
      break;
   }
   if (found != in.devices.end())
      return "nothing";
   baseIs(name, BaseDevice());
   return "device " + name + " made";
}

std::string Publishers::changeRouting(Dice dice) {
   switch (dice.below(18)) {
   case 0:
   case 1:
   case 2:
   case 3:
      return changeSubIntf(dice);
   case 4:
   case 5:
      return changeVlanIntfSource(dice);
   case 6:
   case 7:
      return changeIntfRecord(dice);
   case 8:
   case 9:
      return changeParent(dice);
   case 10:
      return changeHardware(dice);
   case 11:
   case 12:
      return changeForwarding(dice);
   case 13:
   case 14:
      return changeNamespace(dice);
   default:
      return changeDevice(dice);
   }
}

std::string Publishers::makeKernelFail(Dice dice) {
   std::string const call = dice.oneOf(calls);
   bool const isLasting = dice.chance();
   int const nth = isLasting ? 1 : 1 + static_cast<int>(dice.below(4));
   kernel_.fail(call, dice.oneOf(errors), nth, isLasting);
   return "the kernel refuses " + call + (isLasting ? " from now on" : " once");
}

} // namespace Model
