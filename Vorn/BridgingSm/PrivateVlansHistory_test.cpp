// Private VLANs, translations and mappings, with dynamic VLANs and static hosts between them: any history ends
// where a start with the same tree does, on what the previous run left and from nothing.
//
// Left out is what depends on the order of events by intention: which internal VLAN a routed port draws, when
// the processor's port follows a VLAN interface, and what a trunk becomes when its input loses the
// translation of a primary VLAN.
#include "Vorn/testing/TestBridge.h"

#include <random>

namespace {

using Bridging::VlanAdminState;
using Bridging::VlanType;
using Vorn::TestBridge;
using Vorn::TestInput;

using Mode = TestBridge::Mode;

class PrivateVlansHistory {
  public:
   explicit PrivateVlansHistory(unsigned seed) : random_(seed) {
      bridge.hasLibrary = true;
      for (uint16_t const vlanId : {1, 2, 3, 6})
         bridge.vlanIntf(vlanId);
      for (char const* port : ports)
         bridge.port(port)->trunkAllowedVlansIs("1-8");
      bridge.port("Ethernet1")->trunkGroupIs("a", true);
      bridge.input("other").port("Ethernet1")->accessVlanIs(2);
   }

   // A few changes, with the loop running in between or not; all delivered at the end.
   void go() {
      for (unsigned steps = 1 + below(8); steps > 0; --steps) {
         switch (below(6)) {
         case 0:
         case 1:
            changeSourcesAndHosts();
            break;
         case 2:
            changePorts();
            break;
         default:
            changeVlans();
         }
         if (isHeads())
            bridge.turn();
      }
      bridge.run();
   }

   // All that private VLANs have a part in, the translations, and the hosts.
   std::string outcome() {
      std::string text;
      for (uint16_t const vlanId : bridge.resolvedVlans()) {
         text += "VLAN " + std::to_string(vlanId) + " fid " + std::to_string(bridge.fid(vlanId)) + " host " +
                 bridge.host(vlanId, hostAddr);
         for (char const* member : {"Cpu", "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"})
            text += std::string("; ") + member + " " + bridge.membership(vlanId, member);
         text += '\n';
      }
      for (char const* port : ports)
         text += std::string(port) + " " + bridge.mode(port) + ": " + bridge.ingress(port) + "; " +
                 bridge.egress(port) + '\n';
      return text;
   }

   TestBridge bridge;

  private:
   unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
   uint16_t number() { return static_cast<uint16_t>(1 + below(8)); }
   bool isHeads() { return below(2) == 0; }
   // The command line's, or the one that outranks it from time to time.
   TestInput input() { return below(4) == 0 ? bridge.input("other") : TestInput{bridge.cli}; }

   void changeVlans() {
      uint16_t const vlanId = number();
      TestInput const in = input();
      switch (below(9)) {
      case 0:
         return in.vlanDel(vlanId);
      case 1: // replaced
         in.vlanDel(vlanId);
         in.vlan(vlanId);
         return;
      case 2:
         return in.vlan(vlanId)->adminStateIs(isHeads() ? VlanAdminState::active : VlanAdminState::suspended);
      case 3:
         isHeads() ? in.vlan(vlanId)->trunkGroupIs("a", true) : in.vlan(vlanId)->trunkGroupDel("a");
         return;
      case 4:
         isHeads() ? bridge.cli->vidToFidMapIs(vlanId, static_cast<uint16_t>(below(3) * 40))
                   : bridge.cli->vidToFidMapDel(vlanId);
         return;
      case 5:
         if (below(4) == 0)
            return bridge.cli->sviMappingDel(vlanId);
         bridge.sviMapping(vlanId)->defaultSviMappingIs(isHeads());
         isHeads() ? bridge.sviMapping(vlanId)->secondaryVlanIs(number(), isHeads())
                   : bridge.sviMapping(vlanId)->secondaryVlanDel(number());
         return;
      default:
         // A primary type with a primary named is a mistake that publishers make, and so is another type.
         if (auto const type = below(8); type == 0)
            in.vlan(vlanId)->vlanTypeAndPrimaryVlanIs({});
         else
            in.vlan(vlanId)->vlanTypeAndPrimaryVlanIs(
                {.vlanType = static_cast<VlanType>(type < 7 ? type / 2 % 2 : 2),
                 .primaryVlan = 1 + below(4)});
      }
   }

   // Dynamic VLANs are primaries or plain VLANs: sources know of no roles.
   void changeSourcesAndHosts() {
      char const* const source = isHeads() ? "a" : "b";
      switch (below(5)) {
      case 0:
         return bridge.dynVlansDel(source);
      case 1: { // a static primary where a dynamic one may be, or may come
         auto const primary = static_cast<uint16_t>(1 + below(4));
         bridge.vlan(primary)->vlanTypeAndPrimaryVlanIs({});
         bridge.vlan(primary)->adminStateIs(isHeads() ? VlanAdminState::active : VlanAdminState::suspended);
         return bridge.secondaryVlan(static_cast<uint16_t>(5 + below(4)), primary);
      }
      case 2:
         isHeads() ? input().host(number(), hostAddr, isHeads() ? "Ethernet1" : "Ethernet2")
                   : input().fdbDel(number());
         return;
      default: {
         unsigned const first = 1 + below(4); // the numbers that secondaries name
         std::string const list = std::to_string(first) + '-' + std::to_string(first + below(3));
         bridge.dynVlans(source, list.c_str(), below(3));
      }
      }
   }

   void changePorts() {
      char const* const name = ports[below(std::size(ports))];
      TestInput const in = input();
      auto const port = in.port(name);
      switch (below(9)) {
      case 0:
         return port->switchportModeIs(static_cast<Mode>(below(5)));
      case 1:
         return port->switchportModeIs(isHeads() ? Mode::access_ : Mode::trunk_);
      case 2:
         return port->enabledIs(below(4) != 0);
      case 3:
         port->trunkNativeVlanIs(number());
         return port->accessVlanIs(number());
      case 4:
         isHeads() ? port->privateVlanMappingIs(number(), true) : port->privateVlanMappingDel(number());
         return port->defaultPrivateVlanMappingIs(below(4) == 0);
      case 5:
         return port->trunkPrivateVlanMappingIs(isHeads());
      case 6: // never of a VLAN that may be a primary
         isHeads() ? port->egressVlanXlateIs({.outerVlanId = static_cast<uint16_t>(5 + below(4))},
                                             {.mappedVlanId = 9})
                   : port->egressVlanXlateDelAll();
         return;
      case 7:
         isHeads() ? port->ingressVlanXlateIs({.outerVlanId = number()}, {.mappedVlanId = 9})
                   : port->ingressVlanXlateDelAll();
         return;
      default:
         return bridge.input("other").prioritiesAre(isHeads() ? 200 : 50);
      }
   }

   static constexpr char hostAddr[] = "00:1c:73:00:00:01";
   static constexpr char const* ports[] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"};
   std::mt19937 random_;
};

TEST(PrivateVlansHistoryTest, anyHistoryEndsWhereAStartWithTheSameTreeDoes) {
   for (unsigned seed = 1; seed <= 120; ++seed) {
      PrivateVlansHistory history(seed);
      history.bridge.start();
      for (int round = 0; round < 12; ++round) {
         history.go();
         auto const reached = history.outcome();
         history.bridge.restart();
         ASSERT_EQ(reached, history.outcome()) << "after a restart, seed " << seed << " round " << round;
         history.bridge.stop();
         history.bridge.config = Bridging::Config::make();
         history.bridge.start();
         ASSERT_EQ(reached, history.outcome()) << "from nothing, seed " << seed << " round " << round;
      }
   }
}

} // namespace
