// A small switch with routed interfaces for the tests of vornctl: the records as the interface manager, the publishers
// and the agent leave them, and a kernel in memory with the devices. The fabric device is up, and the bridge has an
// address.
#pragma once

#include "TestWorld.h"

#include "NetlinkTesting/FakeKernel.h"
#include "records/Bridging/VlanStatus.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"
#include "records/Interface/IntfNamespaceConfig.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusLocal.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusLocal.h"

namespace Vornctl {

using Interface::IntfForwardingModel;
using Interface::IntfOperStatus;
using Interface::SubIntfEncapType;

struct RoutedWorld : TestWorld {
   RoutedWorld() {
      state.allIntfConfig = Interface::AllIntfConfigDir::make();
      state.allIntfStatus = Interface::AllIntfStatusDir::make();
      state.vlanIntfConfig = Interface::VlanIntfConfigDir::make();
      state.vlanIntfStatus = Interface::VlanIntfStatusDir::make();
      state.vlanIntfStatusLocal = Interface::VlanIntfStatusLocalDir::make();
      state.dynVlanIntfs = below(root, "dynvlanintf");
      state.allVlanIntfAutoState = Interface::AllVlanIntfAutoState::make();
      state.vlanStatus = Bridging::VlanStatusDir::make();
      state.subIntfConfig = Interface::SubIntfConfigDir::make();
      state.subIntfStatus = Interface::SubIntfStatusDir::make();
      state.subIntfStatusLocal = Interface::SubIntfStatusLocalDir::make();
      state.subIntfHwStatus = Interface::Hardware::SubIntfStatusDir::make();
      state.intfNamespace = Interface::AllIntfNamespaceConfigDir::make();
      state.config->bridgeMacAddrIs(bridgeAddr);
      kernel.deviceIs("fabric").isUp = true;
   }

   // --- VLAN interfaces. A good one: up with a forwarding port, its device in place.
   Kem::Ptr<Interface::VlanIntfConfig> vlanIntf(uint16_t number) {
      Sulvi::IntfId const id = vlanIntfId(number);
      auto const config = state.vlanIntfConfig->intfConfigIs(id);
      config->sourceIs("cli");
      vlan(number);
      member(number, "Cpu", true);
      forwards(number, "Ethernet1");
      status(number, config);
      auto& device = kernel.vlanDeviceIs(vlanDevice(number), "fabric", number);
      device.isUp = true;
      device.address = bridgeAddr.bytes();
      return config;
   }
   static Sulvi::IntfId vlanIntfId(uint16_t number) { return Sulvi::IntfId("Vlan" + std::to_string(number)); }
   static std::string vlanDevice(uint16_t number) { return "vlan" + std::to_string(number); }
   // The status records that belong to a configuration, as of an interface that is up.
   Kem::Ptr<Interface::VlanIntfStatus> status(uint16_t number,
                                              Kem::Ptr<Interface::VlanIntfConfig> const& config) {
      auto const made = state.vlanIntfStatus->intfStatusIs(vlanIntfId(number));
      made->intfConfigIs(config);
      made->operStatusIs(IntfOperStatus::intfOperUp);
      made->deviceNameIs(vlanDevice(number));
      made->addrIs(bridgeAddr);
      made->maxMtuIs(9214);
      state.vlanIntfStatusLocal->intfStatusLocalIs(vlanIntfId(number))->netNsNameIs("default");
      return made;
   }
   Kem::Ptr<Interface::Input::DynVlanIntfConfigDir> dynVlanIntfs(char const* name, uint32_t priority) {
      auto const made = entity<Interface::Input::DynVlanIntfConfigDir>(state.dynVlanIntfs, name);
      made->priorityIs(priority);
      return made;
   }
   void forwards(uint16_t number, char const* port) {
      state.vlanStatus->vlanStatusIs(number)->vlanPortStatusIs(port, true);
   }
   void noPortForwards(uint16_t number) { state.vlanStatus->vlanStatusDel(number); }

   // --- Subinterfaces. A good one of a routed Ethernet1, which is made.
   Kem::Ptr<Interface::SubIntfConfig> subIntf(uint16_t number, uint16_t vlanNumber) {
      parent();
      Sulvi::IntfId const id = subIntfId(number);
      auto const config = state.subIntfConfig->intfConfigIs(id);
      config->vlanIdIs(vlanNumber);
      config->encapTypeIs(SubIntfEncapType::subIntfEncapDot1q);
      auto const made = state.subIntfStatus->intfStatusIs(id);
      made->intfConfigIs(config);
      made->operStatusIs(IntfOperStatus::intfOperUp);
      made->deviceNameIs(subDevice(number));
      made->addrIs(bridgeAddr);
      made->programInHwIs(true);
      state.subIntfStatusLocal->intfStatusLocalIs(id);
      state.subIntfHwStatus->subIntfStatusIs(id)->hardwareSuccessIs(true);
      auto& device = kernel.vlanDeviceIs(subDevice(number), "et1", vlanNumber);
      device.isUp = true;
      device.address = bridgeAddr.bytes();
      return config;
   }
   static Sulvi::IntfId subIntfId(uint16_t number) {
      return Sulvi::IntfId("Ethernet1." + std::to_string(number));
   }
   static std::string subDevice(uint16_t number) { return "et1." + std::to_string(number); }
   Kem::Ptr<Interface::IntfStatus> parent() {
      if (auto const made = state.allIntfStatus->intfStatus("Ethernet1"))
         return made;
      kernel.deviceIs("et1").isUp = true;
      auto const made = state.allIntfStatus->intfStatusIs("Ethernet1");
      made->operStatusIs(IntfOperStatus::intfOperUp);
      made->forwardingModelIs(IntfForwardingModel::intfForwardingModelRouted);
      made->deviceNameIs("et1");
      return made;
   }

   // --- Namespaces.
   void configureInto(Sulvi::IntfId id, char const* netNs) {
      state.intfNamespace->intfNamespaceConfigIs(id)->netNsNameIs(netNs);
   }
   // Its device is there, too.
   void moveVlanIntf(uint16_t number, char const* netNs) {
      kernel.namespaceIs(netNs);
      kernel.deviceDel(vlanDevice(number));
      auto& device = kernel.vlanDeviceIs(vlanDevice(number), "fabric", number, netNs);
      device.isUp = true;
      device.address = bridgeAddr.bytes();
      state.vlanIntfStatusLocal->intfStatusLocal(vlanIntfId(number))->netNsNameIs(netNs);
      configureInto(vlanIntfId(number), netNs);
   }

   static inline Sulvi::EthAddr const bridgeAddr{0x02, 0, 0, 0, 0, 0x02};
   Netlink::FakeKernel kernel;
};

} // namespace Vornctl
