// The world of the tests of all routed interfaces: VLAN interfaces and subinterfaces with the machines of both,
// as they share one kernel, one mirror of states and one record of problems in the agent, and the watcher of
// namespaces on a folder of its own. What each kind has of its own is reached through vlans() and subIntfs().
//
//    TestRoutedIntfs world;                      // fabric device and ports up, no interface
//    world.namespaceIs("red");
//    world.vlans().vlanIntf(10);
//    world.subIntfs().subIntf("Ethernet1.10", 10);
//    world.start();
//    EXPECT_EQ(world.kernel.describe(), ...);
#pragma once

#include "KernelNetNsInfo/Manager.h"
#include "Vorn/SubIntfSm/TestSubIntfs.h"
#include "Vorn/VlanIntfSm/TestVlanIntfs.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Vorn {

class TestRoutedIntfs : public TestVlanIntfs, public TestSubIntfs {
  public:
   ~TestRoutedIntfs() {
      stop();
      std::filesystem::remove_all(folder);
   }
   TestVlanIntfs& vlans() { return *this; }
   TestSubIntfs& subIntfs() { return *this; }
   TestVlanIntfs const& vlans() const { return *this; }
   TestSubIntfs const& subIntfs() const { return *this; }

   using TestInterfaces::moveTo;
   using TestInterfaces::openSockets;
   using TestInterfaces::run;

   // --- Namespaces; the watcher sees them with the next turn of the loop.
   void namespaceIs(std::string const& netNs) {
      kernel.namespaceIs(netNs);
      std::ofstream(folder + "/" + netNs);
   }
   void namespaceDel(std::string const& netNs) {
      kernel.namespaceDel(netNs);
      std::filesystem::remove(folder + "/" + netNs);
   }

   // --- Life.
   void start() {
      openSockets();
      startOn();
      run();
   }
   // On sockets that are open, without a turn of the loop.
   void startOn() {
      makeManagers();
      netNsManager =
          Kem::makePtr<KernelNetNsInfo::Manager>(Kem::activityManager()->config(), netNsCollection, folder);
      vlans().makeMachine();
      subIntfs().sm = subIntfSmFactory(subIntfs().inputs());
   }
   // Also after an exception out of start() or the loop.
   void stop() {
      subIntfs().sm = nullptr;
      netNsManager = nullptr;
      vlans().stop();
      netNsCollection = KernelNetNsInfo::Root::make();
   }
   void restart() {
      stop();
      start();
   }

   std::string const folder = newFolder();
   Kem::Ptr<KernelNetNsInfo::Manager> netNsManager; // null between runs

  private:
   static std::string newFolder() {
      std::string name = (std::filesystem::temp_directory_path() / "namespaces.XXXXXX").string();
      return mkdtemp(name.data()) ? name : std::string();
   }
};

} // namespace Vorn
