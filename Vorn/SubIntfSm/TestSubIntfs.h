// The world of the tests of subinterfaces: records, a kernel in memory and SubIntfSm on them, on one loop with
// virtual time. No database and no agent.
//
//    TestSubIntfs world;                     // ports Ethernet1 and Ethernet2: routed, up, with devices et1 and et2
//    world.subIntf("Ethernet1.10", 10);      // configured for VLAN 10, with its status records, programmed
//    world.start();
//    EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
//    EXPECT_EQ(world.device("et1.10"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
//
//    world.vlanIs("Ethernet1.10", 11);
//    world.programmedIs("Ethernet1.10", false);
//    world.run();
//    EXPECT_EQ(world.state("Ethernet1.10"), "dormant, in hardware");
//
// All records are public: a test sets them before start() as an earlier run would have left them. restart() is
// the end of the process, with its sockets, and the next one on what is there.
#pragma once

#include "Sulvi/KernelDeviceName.h"
#include "Vorn/SubIntfSm/SubIntfSm.h"
#include "Vorn/VlanIntfCommon/TestInterfaces.h"

namespace Vorn {

class TestSubIntfs : public virtual TestInterfaces {
  public:
   using OperStatus = Interface::IntfOperStatus;
   static constexpr auto routed = Interface::IntfForwardingModel::intfForwardingModelRouted;
   static constexpr auto bridged = Interface::IntfForwardingModel::intfForwardingModelBridged;

   TestSubIntfs() {
      port("Ethernet1");
      port("Ethernet2");
   }
   ~TestSubIntfs() { stop(); }

   // --- Life.
   SubIntfInputs inputs() {
      SubIntfInputs in;
      commonInputs(in, &agent);
      in.kernelIntfCollection = kernelIntfCollection;
      in.subIntfStatusDir = statusDir;
      in.subIntfStatusLocalDir = statusLocalDir;
      in.subIntfConfigDir = configDir;
      in.intfHwCapability = capability;
      in.subIntfHwStatusDir = hwStatusDir;
      in.allIntfStatusDir = allIntfStatusDir;
      in.oxaState = oxaState;
      in.standbyMode = standbyMode;
      return in;
   }
   void start() {
      startOnly();
      run();
   }
   void startOnly() { // without a turn of the loop
      openKernel();
      sm = subIntfSmFactory(inputs());
   }
   void stop() {
      if (!sm)
         return;
      sm = nullptr;
      closeKernel();
      run();
   }
   void restart() {
      stop();
      start();
   }

   // --- What is there.
   // A routed port that is up, with its kernel device.
   Kem::Ptr<Interface::IntfStatus> port(Sulvi::IntfId intfId) {
      auto const name = Sulvi::kernelDeviceName(intfId).str();
      kernel.deviceIs(name).mtu = 9214;
      kernel.upIs(name, true);
      auto const status = allIntfStatusDir->intfStatusIs(intfId);
      status->operStatusIs(OperStatus::intfOperUp);
      status->forwardingModelIs(routed);
      return status;
   }
   Kem::Ptr<Interface::IntfStatus> portStatus(Sulvi::IntfId intfId) const {
      return allIntfStatusDir->intfStatus(intfId);
   }
   Kem::Ptr<Interface::SubIntfConfig> configure(Sulvi::IntfId intfId, unsigned vlanId) {
      auto const made = configDir->intfConfigIs(intfId);
      made->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapDot1q);
      made->vlanIdIs(static_cast<uint16_t>(vlanId));
      return made;
   }
   // What the interface manager makes for a configuration.
   void makeStatus(Sulvi::IntfId intfId) {
      statusDir->intfStatusIs(intfId);
      statusLocalDir->intfStatusLocalIs(intfId);
   }
   Kem::Ptr<Interface::SubIntfConfig> subIntf(Sulvi::IntfId intfId, unsigned vlanId) {
      makeStatus(intfId);
      programmedIs(intfId, true);
      return configure(intfId, vlanId);
   }
   // What the interface manager takes away with a configuration, and the command line before it.
   void subIntfDel(Sulvi::IntfId intfId) {
      configDir->intfConfigDel(intfId);
      statusDir->intfStatusDel(intfId);
      statusLocalDir->intfStatusLocalDel(intfId);
   }
   void vlanIs(Sulvi::IntfId intfId, unsigned vlanId) {
      configDir->intfConfig(intfId)->vlanIdIs(static_cast<uint16_t>(vlanId));
   }
   void programmedIs(Sulvi::IntfId intfId, bool isProgrammed) {
      hwStatusDir->subIntfStatusIs(intfId)->hardwareSuccessIs(isProgrammed);
   }

   // --- What came out.
   // "up, in hardware", "lowerLayerDown" and so on; "-" without a status record.
   std::string state(Sulvi::IntfId intfId) const {
      auto const status = statusDir->intfStatus(intfId);
      if (!status)
         return "-";
      std::string text = toString(status->operStatus());
      text = text.substr(std::string("intfOper").size());
      text[0] = static_cast<char>(tolower(text[0]));
      return text + (status->programInHw() ? ", in hardware" : "");
   }
   // Number of changes of the operational state so far.
   uint32_t changes(Sulvi::IntfId intfId) const {
      return statusDir->intfStatus(intfId)->operStatusChange().count;
   }
   // The device as the kernel describes it, from its kind to its address; "-" when there is none. "et1.10@red" in a
   // namespace. With the index, "#7 " is in front of the state.
   std::string device(std::string const& name, bool withIndex = false) const {
      auto const line = devices(name + ": ", withIndex);
      return line.empty() ? "-" : line.substr(name.size() + 2, line.find(", egress") - name.size() - 2);
   }
   // All devices of subinterfaces, a line each.
   std::string subIntfDevices(bool withIndexes = false) const {
      std::string result;
      std::istringstream lines(devices("", withIndexes));
      for (std::string line; std::getline(lines, line);)
         if (line.substr(0, line.find(':')).find('.') != std::string::npos)
            result += line + "\n";
      return result;
   }
   std::string netNsOf(Sulvi::IntfId intfId) const {
      return statusLocalDir->intfStatusLocal(intfId)->netNsName().stringValue().str();
   }
   bool isRetried(Sulvi::IntfId intfId) const { return sm->retryIntfCollection().find(intfId) != nullptr; }
   bool isMirrored(Sulvi::IntfId intfId) const {
      return kosr->intfStatusDir()->intfStatus(intfId) && kosr->intfStatusLocalDir()->intfStatusLocal(intfId);
   }

   struct TestAgent final : VlanIntfAgent {
      AttrLogCheck* roomToWrite() override { return log; }
      Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const override { abort(); }
      AttrLogCheck* log = nullptr;
   };

   TestAgent agent;
   bool standbyMode = false;
   Kem::Ptr<Interface::SubIntfConfigDir> configDir = Interface::SubIntfConfigDir::make();
   Kem::Ptr<Interface::SubIntfStatusDir> statusDir = Interface::SubIntfStatusDir::make();
   Kem::Ptr<Interface::SubIntfStatusLocalDir> statusLocalDir = Interface::SubIntfStatusLocalDir::make();
   Kem::Ptr<Interface::Hardware::Capability> capability = Interface::Hardware::Capability::make();
   Kem::Ptr<Interface::Hardware::SubIntfStatusDir> hwStatusDir =
       Interface::Hardware::SubIntfStatusDir::make();
   Kem::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Interface::AllIntfStatusDir::make();
   Kem::Ptr<VornOxaState> oxaState; // null but for a hitless start
   Kem::Ptr<SubIntfSm> sm;
};

} // namespace Vorn
