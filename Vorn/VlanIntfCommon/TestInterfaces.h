// What the test worlds of routed interfaces have in common: a kernel in memory, the records that both state machines
// are given, the hosted machines that look at that kernel, and a loop with virtual time. A world derives from it and
// adds its own records and its state machine (TestSubIntfs).
//
//    start: openKernel(); make the state machine from commonInputs(&agent)
//    stop:  let go of the state machine; closeKernel()
//
// Worlds derive from it virtually, so that one of both state machines is made of theirs.
//
// What is in the kernel and in the records stays from one run to the next, as in a restart of the agent. One
// world at a time: it owns clock and kernel.
#pragma once

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "KernelNetworkInfo/Manager.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/VlanIntfCommon/VlanIntfInputs.h"
#include "records/Agent/Status.h"
#include "records/KernelNetworkInfo/Interface.h"
#include "records/KernelNetworkInfo/Root.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

namespace Vorn {

class TestInterfaces {
  public:
   static constexpr char bridgeAddr[] = "02:00:00:00:00:01";

   static Sulvi::EthAddr addr(char const* text) { return Sulvi::EthAddr(std::string_view(text)); }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void advance(Kem::Seconds duration) { Kem::activityManager()->advance(duration); }
   // Delivers what has changed, without a timer and so without a slice.
   static void notice() { Kem::activityManager()->deliverQueued(); }

   // --- Namespaces, as the watcher of namespaces sees them.
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
   void namespacesAreLookedAt() {
      for (auto const& [name, netNs] : netNsCollection->netNsByName())
         if (!names.contains(name.stringValue().str()))
            netNsCollection->netNsByNameDel(name);
      for (auto const& name : names)
         netNsCollection->netNsByNameIs(name)->inodeIs(kernel.netNsInode(name));
   }
   void moveTo(Sulvi::IntfId intfId, char const* netNs) {
      nsConfigDir->intfNamespaceConfigIs(intfId)->netNsNameIs(netNs);
   }

   // --- What came out. Lines of FakeKernel::describe() of the devices whose names begin so.
   std::string devices(std::string const& start, bool withIndexes = false) const {
      std::string result;
      std::istringstream lines(kernel.describe(withIndexes));
      for (std::string line; std::getline(lines, line);)
         if (line.starts_with(start))
            result += line + "\n";
      return result;
   }
   std::string problem(Sulvi::IntfId intfId) const {
      auto const* const text = agentStatus->deviceProblem(intfId);
      return text ? text->str() : "";
   }

   Kem::VirtualTime time;
   Netlink::FakeKernel kernel;
   std::set<std::string> names; // of namespaces
   Kem::Ptr<Bridging::Config> config = Bridging::Config::make();
   Kem::Ptr<Bridging::HwCapabilities> hwCapabilities = Bridging::HwCapabilities::make();
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollection = KernelNetNsInfo::Root::make();
   Kem::Ptr<Interface::AllIntfNamespaceConfigDir> nsConfigDir = Interface::AllIntfNamespaceConfigDir::make();
   Kem::Ptr<::Agent::Status> agentStatus = ::Agent::Status::make();
   Kem::Ptr<KernelNetworkInfo::Root> kernelIntfCollection = KernelNetworkInfo::Root::make();
   Kem::Ptr<KernelNetworkInfo::Manager> devicesManager; // null between runs, as the next
   Kem::Ptr<KernelOperState::Root> kosr;
   Kem::Ptr<DeviceProblems> problems = Kem::makePtr<DeviceProblems>(agentStatus);
   int socketFd = -1;
   int netlinkFd = -1;

   // --- The parts of a start and a stop.
   void openKernel() {
      openSockets();
      makeManagers();
   }
   // Those without which there is no agent.
   void openSockets() {
      socketFd = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, {});
      netlinkFd = kernel.routeSocket();
   }
   void makeManagers() {
      auto const activity = Kem::activityManager()->config();
      devicesManager = Kem::makePtr<KernelNetworkInfo::Manager>(activity, kernelIntfCollection, nullptr,
                                                                nullptr, Sulvi::NamespaceName());
      kosr = Kem::makePtr<KernelOperState::Root>("kosr");
      kosr->intfStatusOperStatusSmIs(activity, kosr->intfStatusDirIs("intfStatusDir"),
                                     kosr->intfStatusLocalDirIs("intfStatusLocalDir"), kosr->kosmIs(),
                                     netNsCollection);
      problems = Kem::makePtr<DeviceProblems>(agentStatus);
   }
   void closeKernel() {
      devicesManager = nullptr;
      kosr = nullptr;
      kernel.close(socketFd);
      kernel.close(netlinkFd);
      kernelIntfCollection = KernelNetworkInfo::Root::make();
   }
   void commonInputs(VlanIntfInputs& in, VlanIntfAgent* agent) const {
      in.fabricDeviceName = "fabric";
      in.socketFd = socketFd;
      in.netlinkFd = netlinkFd;
      in.kernelOperStateManager = kosr->kosm();
      in.kernelOperStateRoot = kosr;
      in.bridgingConfig = config;
      in.bridgingHwCapabilities = hwCapabilities;
      in.netNsCollection = netNsCollection;
      in.allIntfNamespaceConfigDir = nsConfigDir;
      in.clock = Kem::ActivityFacility::clock();
      in.vornAgent = agent;
      in.problems = problems;
   }

  protected:
   TestInterfaces() { config->bridgeMacAddrIs(addr(bridgeAddr)); }
   ~TestInterfaces() = default;
};

} // namespace Vorn
