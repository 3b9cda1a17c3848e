// The world of the tests of VLAN interfaces: records, a kernel in memory and VlanIntfSm on them, on one loop with
// virtual time. No database and no agent.
//
//    TestVlanIntfs world;                        // fabric device up, bridge address set, no interface
//    world.vlanIntf(10);                         // configured, with its status records
//    world.start();
//    EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
//    world.kernel.namespaceIs("red");
//    world.namespacesAreLookedAt();              // as the watcher of namespaces does
//    world.moveTo(10, "red");
//    world.run();
//
// All records are public: a test sets them before start() as an earlier run would have left them. restart() is
// the end of the process, with its sockets, and the next one on what is there. One world at a time: it owns clock
// and kernel.
#pragma once

#include "DynVlanIntf/DynVlanIntfReactor.h"
#include "Vorn/VlanIntfCommon/TestInterfaces.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"
#include "records/Bridging/VlanConfig.h"

namespace Vorn {

class TestVlanIntfs : public virtual TestInterfaces {
  public:
   TestVlanIntfs() {
      kernel.deviceIs("fabric").mtu = 9214;
      kernel.upIs("fabric", true);
   }
   ~TestVlanIntfs() { stop(); }

   // --- Life.
   void start() {
      openKernel();
      makeMachine();
      run();
   }
   // The part of start() that asks the kernel for devices.
   void makeMachine() {
      agent.dynVlanIntfSm_ =
          Kem::makePtr<DynVlanIntfReactor>(dynVlanIntfDir, dynVlanIntfErrorDir, dynVlanIntfList, standbyMode);
      VlanIntfSmInputs in;
      commonInputs(in, &agent);
      in.kernelIntfCollection = kernelIntfCollection;
      in.vlanIntfStatusDir = statusDir;
      in.vlanIntfStatusLocalDir = statusLocalDir;
      in.vlanIntfConfigDir = configDir;
      in.dynVlanIntfList = dynVlanIntfList;
      in.privateVlanLibState = privateVlans;
      in.interfaceInputVlan = interfaceInputVlan;
      in.standbyMode = standbyMode;
      sm = vlanIntfSmFactory(in);
   }
   void stop() {
      if (!kosr)
         return;
      sm = nullptr;
      agent.dynVlanIntfSm_ = nullptr;
      closeKernel();
      dynVlanIntfList = DynVlanIntfList::make();
      run();
   }
   void restart() {
      stop();
      start();
   }

   // --- What is configured.
   static Sulvi::IntfId id(unsigned vlanId) { return vlanIntfIdOf(vlanId); }
   Kem::Ptr<Interface::VlanIntfConfig> configure(unsigned vlanId) {
      return configDir->intfConfigIs(id(vlanId));
   }
   // What the interface manager makes for a configuration.
   void makeStatus(unsigned vlanId) {
      statusDir->intfStatusIs(id(vlanId));
      statusLocalDir->intfStatusLocalIs(id(vlanId));
   }
   Kem::Ptr<Interface::VlanIntfConfig> vlanIntf(unsigned vlanId) {
      makeStatus(vlanId);
      return configure(vlanId);
   }
   void statusDel(unsigned vlanId) {
      statusDir->intfStatusDel(id(vlanId));
      statusLocalDir->intfStatusLocalDel(id(vlanId));
   }
   void vlanIntfDel(unsigned vlanId) { configDir->intfConfigDel(id(vlanId)); }
   // The same of a dynamic source, without status records.
   Kem::Ptr<Interface::VlanIntfConfig> dynamic(unsigned vlanId, char const* source = "overlay") {
      auto dir = dynVlanIntfDir->entity<Interface::Input::DynVlanIntfConfigDir>(source);
      if (!dir) {
         dir = Interface::Input::DynVlanIntfConfigDir::make();
         dir->nameIs(source);
         dynVlanIntfDir->entityPtrIs(dir);
      }
      auto const made = dir->intfConfigIs(id(vlanId));
      made->sourceIs(source);
      return made;
   }
   void enabledIs(unsigned vlanId, bool enabled) {
      configDir->intfConfig(id(vlanId))
          ->enabledStateLocalIs(enabled ? Interface::EnabledState::enabledStateEnabled
                                        : Interface::EnabledState::enabledStateShutdown);
   }
   void moveTo(unsigned vlanId, char const* netNs) { TestInterfaces::moveTo(id(vlanId), netNs); }
   Kem::Ptr<Interface::Input::VlanIntfAddr> publishAddr(char const* name, char const* text) {
      auto const input = Interface::Input::VlanIntfAddr::make();
      input->nameIs(name);
      input->macAddrIs(addr(text));
      interfaceInputVlan->entityPtrIs(input);
      return input;
   }

   // --- What came out.
   // Without the mapping of priorities and the state that was asked for.
   std::string devices(bool withIndexes = false) const {
      std::string result;
      std::istringstream lines(TestInterfaces::devices("vlan", withIndexes));
      for (std::string line; std::getline(lines, line);)
         result += line.substr(0, line.find(", egress")) + "\n";
      return result;
   }
   Kem::Ptr<Interface::VlanIntfStatus> status(unsigned vlanId) const {
      return statusDir->intfStatus(id(vlanId));
   }
   std::string netNsOf(unsigned vlanId) const {
      return statusLocalDir->intfStatusLocal(id(vlanId))->netNsName().stringValue().str();
   }
   bool isRetried(unsigned vlanId) const { return sm->retryIntfCollection().find(id(vlanId)) != nullptr; }
   bool hasCpu(unsigned vlanId) const {
      return config->vlanConfig(static_cast<uint16_t>(vlanId))->intf("Cpu") != nullptr;
   }
   std::string problem(unsigned vlanId) const { return TestInterfaces::problem(id(vlanId)); }

   struct TestAgent final : VlanIntfAgent {
      AttrLogCheck* roomToWrite() override { return log; }
      Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const override { return dynVlanIntfSm_; }
      Kem::Ptr<DynVlanIntfReactor> dynVlanIntfSm_;
      AttrLogCheck* log = nullptr; // null: there is always room
   };

   TestAgent agent;
   bool standbyMode = false;
   Kem::Ptr<Interface::VlanIntfConfigDir> configDir = Interface::VlanIntfConfigDir::make();
   Kem::Ptr<Interface::VlanIntfStatusDir> statusDir = Interface::VlanIntfStatusDir::make();
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> statusLocalDir = Interface::VlanIntfStatusLocalDir::make();
   Kem::Ptr<Kem::Dir> dynVlanIntfDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Kem::Dir> dynVlanIntfErrorDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Kem::Dir> interfaceInputVlan = Kem::Dir::make("vlan");
   Kem::Ptr<DynVlanIntfList> dynVlanIntfList = DynVlanIntfList::make();
   Kem::Ptr<PrivateVlanLib::LibState> privateVlans = PrivateVlanLib::LibState::make();
   Kem::Ptr<VlanIntfSm> sm;
};

} // namespace Vorn
