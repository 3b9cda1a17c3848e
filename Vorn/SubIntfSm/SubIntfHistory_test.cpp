// Random histories of subinterfaces: whatever happened, status and devices are those of a fresh start on the same
// records, and the status is the one of the table.
#include "Vorn/Rules/SubIntfIds.h"
#include "Vorn/Rules/SubIntfStatus.h"
#include "Vorn/SubIntfSm/TestSubIntfs.h"

#include <map>
#include <random>

namespace Vorn {
namespace {

using OperStatus = TestSubIntfs::OperStatus;

class SubIntfHistoryTest : public testing::TestWithParam<unsigned> {
  public:
   static constexpr int steps = 150;
   static constexpr char const* const parents[] = {"Ethernet1", "Ethernet2", "Port-Channel5"};
   static constexpr char const* const spaces[] = {"red", "blue"};
   static constexpr char const* const calls[] = {"socket",        "open",
                                                 "setns",         "SIOCSIFHWADDR",
                                                 "SIOCSIFMTU",    "SET_VLAN_EGRESS_PRIORITY_CMD",
                                                 "SIOCGIFHWADDR", "if_nametoindex"};

   Kem::TestTrace trace;
   TestSubIntfs world;
   std::mt19937 random{GetParam()};
   std::string history;

   unsigned below(unsigned n) { return random() % n; }
   bool chance(unsigned percent) { return below(100) < percent; }
   std::string anyParent() { return parents[below(3)]; }
   // Few numbers and VLAN ids, so that they meet.
   Sulvi::IntfId anySubIntf() { return anyParent() + "." + std::to_string(1 + below(4)); }
   unsigned anyVlan() { return chance(10) ? 0 : chance(5) ? 4095 : 10 + below(4); }

   void SetUp() override {
      world.port("Port-Channel5");
      world.namespaceIs("red");
   }

   // One thing that others do.
   std::string operation() {
      auto const intfId = anySubIntf();
      auto const parent = anyParent();
      auto const config = world.configDir->intfConfig(intfId);
      auto const name = [&](char const* verb) {
         return std::string(verb) + " " + intfId.stringValue().str();
      };
      switch (below(26)) {
      case 0:
      case 1:
      case 2:
         world.subIntf(intfId, anyVlan());
         return name("create");
      case 3:
         if (world.sm)
            world.subIntfDel(intfId);
         else
            world.configDir->intfConfigDel(intfId);
         return name("remove");
      case 4:
      case 5:
         if (config)
            config->vlanIdIs(static_cast<uint16_t>(anyVlan()));
         return name("vlan");
      case 6:
         if (config)
            config->encapTypeIs(chance(70) ? Interface::SubIntfEncapType::subIntfEncapDot1q
                                           : Interface::SubIntfEncapType::subIntfEncapNone);
         return name("encap");
      case 7:
         if (config)
            config->enabledStateLocalIs(chance(60) ? Interface::EnabledState::enabledStateDefault
                                                   : Interface::EnabledState::enabledStateShutdown);
         return name("shutdown");
      case 8:
         if (config)
            config->enabledIs(chance(70));
         return name("enabled");
      case 9:
         if (config)
            config->mtuIs(chance(20) ? 70000 : 1000 + 1000 * below(9));
         return name("mtu");
      case 10:
         if (config)
            config->addrIs(chance(50) ? Sulvi::EthAddr() : world.addr("02:00:00:00:00:aa"));
         return name("addr");
      case 11:
         if (auto const status = world.portStatus(parent))
            status->operStatusIs(chance(70) ? OperStatus::intfOperUp : OperStatus::intfOperDown);
         return "parent's state " + parent;
      case 12:
         if (auto const status = world.portStatus(parent))
            status->forwardingModelIs(chance(70) ? world.routed : world.bridged);
         return "parent's model " + parent;
      case 13:
         if (chance(50))
            world.allIntfStatusDir->intfStatusDel(parent);
         else
            world.allIntfStatusDir->newIntfStatus(parent)->operStatusIs(OperStatus::intfOperUp);
         return "parent's record " + parent;
      case 14:
      case 15:
         world.programmedIs(intfId, chance(80));
         return name("hardware");
      case 16:
         if (chance(50))
            world.hwStatusDir->subIntfStatusDel(intfId);
         else
            world.hwStatusDir->newSubIntfStatus(intfId)->hardwareSuccessIs(chance(50));
         return name("hardware's record");
      case 17:
         if (chance(50) && world.sm)
            world.statusDir->intfStatusDel(
                intfId); // a start leaves devices alone whose status is still missing
         else if (config)
            world.makeStatus(intfId);
         return name("status record");
      case 18:
         // A start doesn't know where the device is without it, and leaves it alone.
         if (chance(30) && world.sm)
            world.statusLocalDir->intfStatusLocalDel(intfId);
         else if (chance(50))
            world.statusLocalDir->newIntfStatusLocal(intfId);
         else if (config)
            world.makeStatus(intfId);
         return name("local record");
      case 19:
         if (config) {
            auto const another = world.configDir->newIntfConfig(intfId);
            another->vlanIdIs(static_cast<uint16_t>(anyVlan()));
            another->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapDot1q);
         }
         return name("another configuration");
      case 20:
         if (chance(50))
            world.moveTo(intfId, spaces[below(2)]);
         else
            world.nsConfigDir->intfNamespaceConfigDel(intfId);
         return name("namespace");
      case 21: {
         char const* const netNs = spaces[below(2)];
         if (world.names.contains(netNs))
            world.namespaceDel(netNs);
         else
            world.namespaceIs(netNs);
         return std::string("come or go ") + netNs;
      }
      case 22:
         world.config->bridgeMacAddrIs(chance(80) ? world.addr(world.bridgeAddr) : Sulvi::EthAddr());
         return "bridge address";
      case 23: {
         auto const deviceName = Sulvi::kernelDeviceName(chance(50) ? intfId : Sulvi::IntfId(parent)).str();
         if (world.kernel.findDevice(deviceName)) {
            if (chance(50))
               world.kernel.upIs(deviceName, chance(50));
            else
               world.kernel.deviceDel(deviceName);
         }
         return "by hand " + deviceName;
      }
      case 24: {
         auto& device = world.kernel.deviceIs(Sulvi::kernelDeviceName(parent).str());
         device.mtu = chance(80) ? 9214 : 1500;
         world.kernel.deviceChanged(device);
         world.kernel.upIs(device.name, true);
         return "device of " + parent;
      }
      default:
         world.kernel.fail(calls[below(8)], ENOMEM, 1 + static_cast<int>(below(5)));
         return "a failure";
      }
   }

   // What the records say that it should be, worked out anew.
   std::string expected(Sulvi::IntfId intfId) {
      auto const status = world.statusDir->intfStatus(intfId);
      if (!status)
         return "-";
      auto const config = world.configDir->intfConfig(intfId);
      bool programInHw = false;
      auto operStatus = OperStatus::intfOperLowerLayerDown;
      if (config && world.statusLocalDir->intfStatusLocal(intfId)) {
         auto const parent = world.allIntfStatusDir->intfStatus(parentOfSubIntf(intfId));
         auto const hw = world.hwStatusDir->subIntfStatus(intfId);
         auto const row = subIntfRow(
             subIntfFacts(*config, !(world.config->bridgeMacAddr() == Sulvi::EthAddr()),
                          isVlanIdTaken(intfId, *world.configDir, *world.statusDir, *world.statusLocalDir),
                          parent.ptr(), hw.ptr()));
         operStatus = operStatusOf(row);
         programInHw = wantsProgramInHw(row);
      }
      std::string text = toString(operStatus);
      text = text.substr(std::string("intfOper").size());
      text[0] = static_cast<char>(tolower(text[0]));
      return text + (programInHw ? ", in hardware" : "");
   }
   std::string states() {
      std::string result;
      for (auto const& [intfId, status] : world.statusDir->intfStatus())
         result += intfId.stringValue().str() + " " + world.state(intfId) + "\n";
      return result;
   }
   // What is compared with a fresh start. Who of the claimants of a VLAN id has the device doesn't count; and a
   // namespace that has lost its name lives as long as this agent keeps a socket in it.
   std::string comparedDevices() {
      std::string result;
      std::istringstream lines(world.subIntfDevices(true));
      for (std::string line; std::getline(lines, line);) {
         auto const intfId = Sulvi::getIntfIdFromKernelDeviceName(line.substr(0, line.find_first_of("@:")));
         if (line.find("(without a name)") == std::string::npos &&
             !isVlanIdTaken(intfId, *world.configDir, *world.statusDir, *world.statusLocalDir))
            result += line + "\n";
      }
      return result;
   }
   std::string changes() {
      std::string result;
      for (auto const& [intfId, status] : world.statusDir->intfStatus())
         result += intfId.stringValue().str() + " " + std::to_string(status->operStatusChange().count) + "\n";
      return result;
   }
   // Each interface that says up has its device, of its VLAN, up; each that doesn't has none that is up. What can't
   // have its device, since there is no base or no namespace, is left out.
   void verifyDevices() {
      for (auto const& [intfId, config] : world.configDir->intfConfig()) {
         auto const isl = world.statusLocalDir->intfStatusLocal(intfId);
         if (!isl || !world.statusDir->intfStatus(intfId))
            continue;
         auto const name = Sulvi::kernelDeviceName(intfId).str();
         auto const base = Sulvi::kernelDeviceName(parentOfSubIntf(intfId)).str();
         auto const* const wantedNs = world.nsConfigDir->intfNamespaceConfig(intfId).ptr();
         std::string const netNs = wantedNs ? wantedNs->netNsName().stringValue().str() : "";
         bool const isNsThere = netNs.empty() || world.names.contains(netNs);
         auto const* const baseDevice = world.kernel.findDevice(base);
         bool const isUp = world.state(intfId) == "up, in hardware";
         if (isUp && isNsThere && baseDevice) {
            auto const* const device = world.kernel.findDevice(name, netNs);
            ASSERT_NE(device, nullptr) << intfId << " lacks its device";
            EXPECT_EQ(device->vlanId, config->vlanId()) << intfId;
            EXPECT_TRUE(device->isUp || !baseDevice->isUp) << intfId;
         } else if (!isUp && isNsThere) {
            for (char const* const ns : {"", "red", "blue"}) {
               auto const* const device = world.kernel.findDevice(name, ns);
               EXPECT_FALSE(device && device->isUp) << intfId << " in " << ns;
            }
         }
      }
   }
   void verify() {
      world.run(); // with what fails
      world.kernel.faultsEnd();
      world.namespacesAreLookedAt();
      world.advance(3);
      for (auto const& [intfId, status] : world.statusDir->intfStatus())
         EXPECT_EQ(world.state(intfId), expected(intfId)) << intfId;
      verifyDevices();
      auto const statesBefore = states();
      auto const changesBefore = changes();
      auto const devicesBefore = comparedDevices();
      world.restart();
      world.advance(3);
      EXPECT_EQ(states(), statesBefore);
      EXPECT_EQ(changes(), changesBefore);
      EXPECT_EQ(comparedDevices(), devicesBefore);
   }
};

TEST_P(SubIntfHistoryTest, AfterAnyHistoryAllIsAsAFreshStartWouldMakeIt) {
   world.start();
   for (int step = 0; step < steps && !HasFailure(); ++step) {
      for (unsigned n = 1 + below(4); n > 0; --n)
         history += operation() + "\n";
      if (chance(70)) {
         world.run();
         history += "  run\n";
      }
      if (chance(10))
         world.advance(1);
      if (chance(5)) {
         world.run();
         world.stop();
         for (unsigned n = below(4); n > 0; --n)
            history += "while away: " + operation() + "\n";
         world.kernel.faultsEnd(); // the agent doesn't start without its own sockets
         world.start();
      }
      if (chance(20)) {
         history += "  verify\n";
         verify();
      }
   }
   verify();
   if (HasFailure())
      std::cout << history;
}

INSTANTIATE_TEST_SUITE_P(Seeds, SubIntfHistoryTest, testing::Range(1u, 101u));

} // namespace
} // namespace Vorn
