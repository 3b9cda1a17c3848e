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
#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "KernelNetworkInfo/Manager.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"
#include "records/Bridging/VlanConfig.h"
#include "records/KernelNetworkInfo/Interface.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

namespace Vorn {

class TestVlanIntfs {
  public:
   static constexpr char bridgeAddr[] = "02:00:00:00:00:01";

   TestVlanIntfs() {
      kernel.deviceIs("fabric").mtu = 9214;
      kernel.upIs("fabric", true);
      config->bridgeMacAddrIs(Sulvi::EthAddr(std::string_view(bridgeAddr)));
   }
   ~TestVlanIntfs() { stop(); }

   // --- Life.
   void start() {
      followKernel();
      agent.dynVlanIntfSm_ =
          Kem::makePtr<DynVlanIntfReactor>(dynVlanIntfDir, dynVlanIntfErrorDir, dynVlanIntfList, standbyMode);
      VlanIntfSmInputs in;
      in.fabricDeviceName = "fabric";
      in.socketFd = socketFd = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, {});
      in.netlinkFd = netlinkFd = kernel.routeSocket();
      in.kernelOperStateManager = kosr->kosm();
      in.kernelOperStateRoot = kosr;
      in.bridgingConfig = config;
      in.bridgingHwCapabilities = hwCapabilities;
      in.netNsCollection = netNsCollection;
      in.allIntfNamespaceConfigDir = nsConfigDir;
      in.clock = Kem::ActivityFacility::clock();
      in.vornAgent = &agent;
      in.problems = Kem::makePtr<DeviceProblems>(agentStatus);
      in.kernelIntfCollection = kernelIntfCollection;
      in.vlanIntfStatusDir = statusDir;
      in.vlanIntfStatusLocalDir = statusLocalDir;
      in.vlanIntfConfigDir = configDir;
      in.dynVlanIntfList = dynVlanIntfList;
      in.privateVlanLibState = privateVlans;
      in.interfaceInputVlan = interfaceInputVlan;
      in.standbyMode = standbyMode;
      sm = vlanIntfSmFactory(in);
      run();
   }
   void stop() {
      if (!sm)
         return;
      sm = nullptr;
      agent.dynVlanIntfSm_ = nullptr;
      devicesManager = nullptr;
      kosr = nullptr;
      kernel.close(socketFd);
      kernel.close(netlinkFd);
      kernelIntfCollection = KernelNetworkInfo::Root::make();
      dynVlanIntfList = DynVlanIntfList::make();
      run();
   }
   void restart() {
      stop();
      start();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void advance(Kem::Seconds duration) { Kem::activityManager()->advance(duration); }

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
   void moveTo(unsigned vlanId, char const* netNs) {
      nsConfigDir->intfNamespaceConfigIs(id(vlanId))->netNsNameIs(netNs);
   }
   void namespaceIs(char const* netNs) {
      kernel.namespaceIs(netNs);
      names.insert(netNs);
      namespacesAreLookedAt();
   }
   void namespaceDel(char const* netNs) {
      kernel.namespaceDel(netNs);
      names.erase(netNs);
      namespacesAreLookedAt();
   }
   // What the watcher of namespaces does when it looks.
   void namespacesAreLookedAt() {
      for (auto const& [name, netNs] : netNsCollection->netNsByName())
         if (!names.contains(name.stringValue().str()))
            netNsCollection->netNsByNameDel(name);
      for (auto const& name : names)
         netNsCollection->netNsByNameIs(name)->inodeIs(kernel.netNsInode(name));
   }
   Kem::Ptr<Interface::Input::VlanIntfAddr> publishAddr(char const* name, char const* addr) {
      auto const input = Interface::Input::VlanIntfAddr::make();
      input->nameIs(name);
      input->macAddrIs(Sulvi::EthAddr(std::string_view(addr)));
      interfaceInputVlan->entityPtrIs(input);
      return input;
   }

   // --- What came out.
   // Without the fabric device, and without the mapping of priorities and the state that was asked for.
   std::string devices(bool withIndexes = false) const {
      std::string result;
      std::istringstream lines(kernel.describe(withIndexes));
      for (std::string line; std::getline(lines, line);)
         if (!line.starts_with("fabric"))
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
   bool hasCpu(unsigned vlanId) const { return config->vlanConfig(vlanId)->intf("Cpu") != nullptr; }
   std::string problem(unsigned vlanId) const {
      auto const* const text = agentStatus->deviceProblem(id(vlanId));
      return text ? text->str() : "";
   }

   struct TestAgent final : VlanIntfAgent {
      AttrLogCheck* roomToWrite() override { return nullptr; }
      Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const override { return dynVlanIntfSm_; }
      Kem::Ptr<DynVlanIntfReactor> dynVlanIntfSm_;
   };

   Kem::VirtualTime time;
   Netlink::FakeKernel kernel;
   std::set<std::string> names; // of namespaces
   TestAgent agent;
   bool standbyMode = false;
   Kem::Ptr<Bridging::Config> config = Bridging::Config::make();
   Kem::Ptr<Bridging::HwCapabilities> hwCapabilities = Bridging::HwCapabilities::make();
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollection = KernelNetNsInfo::Root::make();
   Kem::Ptr<Interface::AllIntfNamespaceConfigDir> nsConfigDir = Interface::AllIntfNamespaceConfigDir::make();
   Kem::Ptr<Interface::VlanIntfConfigDir> configDir = Interface::VlanIntfConfigDir::make();
   Kem::Ptr<Interface::VlanIntfStatusDir> statusDir = Interface::VlanIntfStatusDir::make();
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> statusLocalDir = Interface::VlanIntfStatusLocalDir::make();
   Kem::Ptr<Kem::Dir> dynVlanIntfDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Kem::Dir> dynVlanIntfErrorDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Kem::Dir> interfaceInputVlan = Kem::Dir::make("vlan");
   Kem::Ptr<DynVlanIntfList> dynVlanIntfList = DynVlanIntfList::make();
   Kem::Ptr<PrivateVlanLib::LibState> privateVlans = PrivateVlanLib::LibState::make();
   Kem::Ptr<::Agent::Status> agentStatus = ::Agent::Status::make();
   Kem::Ptr<KernelNetworkInfo::Root> kernelIntfCollection = KernelNetworkInfo::Root::make();
   Kem::Ptr<KernelNetworkInfo::Manager> devicesManager;
   Kem::Ptr<KernelOperState::Root> kosr;
   Kem::Ptr<VlanIntfSm> sm;
   int socketFd = -1;
   int netlinkFd = -1;

  private:
   void followKernel() {
      auto const activity = Kem::activityManager()->config();
      devicesManager = Kem::makePtr<KernelNetworkInfo::Manager>(activity, kernelIntfCollection, nullptr,
                                                                nullptr, Sulvi::NamespaceName());
      kosr = Kem::makePtr<KernelOperState::Root>("kosr");
      kosr->intfStatusOperStatusSmIs(activity, kosr->intfStatusDirIs("intfStatusDir"),
                                     kosr->intfStatusLocalDirIs("intfStatusLocalDir"), kosr->kosmIs(),
                                     netNsCollection);
   }
};

} // namespace Vorn
