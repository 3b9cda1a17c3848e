// Random histories of records, namespaces, devices and errors: whatever happened before doesn't matter.
#include "Vorn/VlanIntfSm/TestVlanIntfs.h"

#include <array>
#include <random>

namespace Vorn {
namespace {

// What a run of any history comes to is what a start on the same records and the same kernel makes of them.
class VlanIntfHistoryTest : public testing::TestWithParam<int> {
  public:
   std::string outcome() {
      std::string text;
      std::istringstream lines(world.devices());
      for (std::string line; std::getline(lines, line);)
         if (line.find("(without a name)") == std::string::npos) // it is held until its interfaces leave
            text += line.substr(0, line.find(", asked")) + "\n";
      for (unsigned vlanId = 10; vlanId < 14; ++vlanId) {
         if (!world.status(vlanId) || !world.statusLocalDir->intfStatusLocal(world.id(vlanId)))
            continue;
         auto const netNs = world.netNsOf(vlanId);
         text += "Vlan" + std::to_string(vlanId) + " in " + (netNs.empty() ? "default" : netNs) +
                 (world.status(vlanId)->intfConfig() ? ", configured: " : ": ") + world.problem(vlanId) +
                 "\n";
      }
      return text;
   }
   unsigned pick(unsigned count) { return std::uniform_int_distribution<unsigned>(0, count - 1)(random); }
   void change() {
      unsigned const vlanId = 10 + pick(4);
      char const* const netNs[] = {"", "red", "blue"};
      auto const config = world.configDir->intfConfig(world.id(vlanId));
      switch (pick(23)) {
      case 0:
      case 1:
         history += " vlanIntf";
         world.vlanIntf(vlanId);
         break;
      case 2:
         history += " vlanIntfDel";
         world.vlanIntfDel(vlanId);
         break;
      case 3:
         history += " vlanIntfDel+statusDel";
         world.vlanIntfDel(vlanId);
         world.statusDel(vlanId);
         break;
      case 4:
         history += " statusDel";
         world.statusDel(vlanId);
         break;
      case 5:
      case 6: {
         auto const* const name = netNs[pick(3)];
         history += std::string(" moveTo ") + name;
         world.moveTo(vlanId, name);
         break;
      }
      case 7:
      case 8: {
         auto const* const name = netNs[1 + pick(2)];
         history += std::string(" namespaceIs ") + name;
         if (!world.names.contains(name))
            world.namespaceIs(name);
         break;
      }
      case 9: {
         auto const* const name = netNs[1 + pick(2)];
         history += std::string(" namespaceDel ") + name;
         if (world.names.contains(name))
            world.namespaceDel(name);
         break;
      }
      case 10:
         history += " enabled";
         if (config)
            world.enabledIs(vlanId, pick(2) == 0);
         break;
      case 11:
         history += " mtu";
         if (config)
            config->mtuIs(std::array{0u, 67u, 1400u, 9000u}[pick(4)]);
         break;
      case 12:
         history += " fabricDel";
         world.kernel.deviceDel("fabric");
         break;
      case 13:
         history += " fabricIs";
         if (!world.kernel.findDevice("fabric"))
            world.kernel.deviceIs("fabric").mtu = 9214;
         world.kernel.upIs("fabric", true);
         break;
      case 14:
         history += " deviceDel";
         world.kernel.deviceDel("vlan" + std::to_string(vlanId));
         break;
      case 15:
         history += " secondary";
         if (pick(2) == 0)
            world.privateVlans->secondaryVlanIs(static_cast<uint16_t>(vlanId), true);
         else
            world.privateVlans->secondaryVlanDel(static_cast<uint16_t>(vlanId));
         break;
      case 16:
         history += " addr";
         if (config)
            config->addrIs(pick(3) == 0 ? world.addr("01:00:5e:00:00:01") : world.addr("02:00:00:00:00:10"));
         break;
      case 17:
         history += " deviceIs";
         if (!world.kernel.findDevice("vlan" + std::to_string(vlanId)))
            world.kernel.deviceIs("vlan" + std::to_string(vlanId), "bridge");
         break;
      case 18: {
         auto const* const name = netNs[1 + pick(2)];
         history += std::string(" namespace made again ") + name;
         if (world.names.contains(name)) {
            world.kernel.namespaceDel(name);
            world.namespaceIs(name);
         }
         break;
      }
      case 19:
         history += " dynamic";
         world.dynamic(vlanId);
         break;
      case 20:
         history += " dynamicDel";
         world.dynVlanIntfDir->entityPtrDel("overlay");
         break;
      case 21:
         history += " makeStatus";
         world.makeStatus(vlanId);
         break;
      default: {
         auto const* const call = std::array{"ioctl", "setns", "socket", "DEL_VLAN_CMD"}[pick(4)];
         history += std::string(" fail ") + call;
         world.kernel.fail(call, ENOMEM, static_cast<int>(1 + pick(6)));
      }
      }
      history += std::to_string(vlanId) + (pick(2) == 0 ? ";" : ",");
      if (history.back() == ';')
         world.run();
   }

   TestVlanIntfs world;
   std::mt19937 random{static_cast<unsigned>(GetParam())};
   std::string history;
};

TEST_P(VlanIntfHistoryTest, aRunComesToWhatAStartMakes) {
   for (int round = 0; round < 20 && !HasFailure(); ++round) {
      if (round == 0)
         world.start();
      try {
         for (unsigned changes = pick(12); changes > 0; --changes)
            change();
         world.run();
         world.advance(5.0);
      } catch (Netlink::FakeKernel::Exited const&) {
         history += " EXIT "; // then the service manager starts it again
         world.kernel.faultsEnd();
         world.restart();
      }
      world.kernel.faultsEnd();
      world.advance(70.0);
      auto const before = outcome();
      world.restart();
      world.advance(5.0);
      EXPECT_EQ(before, outcome()) << "round " << round << history;
      history.clear();
   }
}

INSTANTIATE_TEST_SUITE_P(Seeds, VlanIntfHistoryTest, testing::Range(0, 60));

} // namespace
} // namespace Vorn
