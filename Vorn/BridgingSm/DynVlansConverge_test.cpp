// Random changes of static inputs, dynamic sources and ports, several in a turn and some while the deferred stages
// have no room: whatever the way was, the end is what a fresh agent makes of the same tree.
#include "Vorn/BridgingSm/TestDynVlans.h"

#include <random>
#include <sstream>

namespace {

using Vorn::TestBridge;

using Mode = TestBridge::Mode;

// Two things are left out, where the way counts: a static entry for a VLAN that "mvrp" and another source claim
// (no static input has VLANs 5 to 8, which all of them claim), and trunk groups of a tap, which only a trunk follows at once.
class RandomChanges {
  public:
   explicit RandomChanges(unsigned seed) : random_(seed) {
      bridge_.attrLogCheck = &log_.check;
      bridge_.input("other");
      bridge_.start();
   }
   void changeAll(int steps) {
      for (int i = 0; i < steps; ++i) {
         change();
         switch (below(6)) {
         case 0:
            bridge_.turn();
            break;
         case 1:
            bridge_.run();
            break;
         case 2:
            log_.fill();
            break;
         case 3:
            log_.drain();
            break;
         default:
            break; // more of the same turn
         }
      }
      log_.drain();
      bridge_.advance(1);
   }
   std::string outcome() {
      std::ostringstream out;
      for (uint16_t const vlanId : bridge_.resolvedVlans()) {
         auto const vlan = bridge_.resolvedVlan(vlanId);
         std::string const name = vlan->configuredName().str();
         // A static VLAN that another input has in the same way keeps the name of the former one as its source.
         bool const isStatic = name[0] == 's';
         out << vlanId << ' ' << (isStatic ? "static" : vlan->configSource().str()) << ' ' << name
             << " groups";
         for (char const* group : {"g", "h"})
            out << (vlan->trunkGroup(group) ? std::string(" ") + group : "");
         for (auto const& port : ports())
            if (auto const member = bridge_.membership(vlanId, port); !member.empty())
               out << ", " << port << ' ' << member;
         out << '\n';
      }
      for (auto const& port : ports())
         out << port << ' ' << bridge_.mode(port) << '\n';
      return out.str();
   }
   void startAfresh() {
      bridge_.stop();
      bridge_.config = Bridging::Config::make();
      bridge_.allSwitchIntfConfigs = Bridging::SwitchIntfConfigDir::make();
      bridge_.start();
      bridge_.advance(1);
   }

  private:
   static std::vector<std::string> ports() {
      return {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet65536"};
   }
   unsigned below(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(random_); }
   std::string port() { return ports()[below(4)]; }
   char const* group() { return below(2) ? "g" : "h"; }
   // "3,5-6" of the numbers from `first` on.
   std::string list(unsigned first) {
      std::string text;
      for (unsigned i = below(4); i > 0; --i) {
         unsigned const from = first + below(8);
         text += (text.empty() ? "" : ",") + std::to_string(from) + '-' +
                 std::to_string(std::min(from + below(3), first + 7));
      }
      return text;
   }

   void change() {
      switch (below(12)) {
      case 0:
      case 1:
      case 2:
         return changeStaticVlan();
      case 3:
      case 4:
      case 5:
         return changeClaims();
      case 6:
         return bridge_.dynVlansDel(source());
      case 7:
      case 8:
         return changePort();
      case 9:
      case 10:
         return changeAllowed();
      default:
         return bridge_.input(below(2) ? "other" : "cli").prioritiesAre(1 + below(3));
      }
   }
   char const* source() {
      static constexpr char const* names[] = {"a", "b", "other", "mvrp"};
      return names[below(4)];
   }
   void changeStaticVlan() {
      auto const input = bridge_.input(below(2) ? "other" : "cli");
      unsigned const number = 1 + below(12);
      auto const vlanId = static_cast<uint16_t>(number <= 4 ? number : number + 4);
      if (below(2)) {
         input.vlanDel(vlanId);
         return;
      }
      auto const vlan = input.vlan(vlanId);
      vlan->configuredNameIs("s" + std::to_string(below(3)));
      if (below(3) == 0)
         vlan->trunkGroupIs(group(), true);
   }
   void changeClaims() {
      Kem::Name const name(source());
      auto const record = bridge_.dynVlans(name,
                                           list(name == Kem::Name("mvrp") ? 1
                                                : below(2)                ? 5
                                                                          : 9),
                                           below(3));
      if (below(4) == 0)
         record->trunkGroupIs(group(), true);
      else if (below(4) == 0)
         record->trunkGroupDelAll();
   }
   void changePort() {
      auto const record = bridge_.port(port());
      static constexpr Mode modes[] = {Mode::access_, Mode::trunk_, Mode::dot1qTunnel_};
      record->switchportModeIs(modes[below(3)]);
      record->accessVlanIs(static_cast<uint16_t>(1 + below(16)));
      record->trunkNativeVlanIs(static_cast<uint16_t>(1 + below(16)));
      record->trunkAllowedVlansIs(below(2) ? "1-4094" : list(1 + below(9)));
      if (below(3) == 0)
         record->trunkGroupIs(group(), true);
      else if (below(3) == 0)
         record->trunkGroupDelAll();
   }
   void changeAllowed() {
      char const* const name = below(2) ? "a" : "mvrp";
      switch (below(5)) {
      case 0:
         return bridge_.dynAllowedDel(name);
      case 1:
         return bridge_.dynAllowed(name)->vlansDel(port());
      case 2:
         return bridge_.dynTrunkGroup(name, group(), port());
      case 3:
         return bridge_.dynAllowed(name)->trunkGroupDel(group());
      default:
         return bridge_.dynAllowed(name)->vlansIs(port(), list(1 + below(9)));
      }
   }

   std::mt19937 random_;
   Vorn::TestAttrLog log_;
   TestBridge bridge_;
};

TEST(DynVlansConvergeTest, endIsWhatAFreshAgentMakesOfTheSameTree) {
   constexpr unsigned series = 200;
   for (unsigned seed = 1; seed <= series; ++seed) {
      RandomChanges changes(seed);
      for (int round = 0; round < 5; ++round) {
         changes.changeAll(20);
         std::string const grown = changes.outcome();
         changes.startAfresh();
         ASSERT_EQ(grown, changes.outcome()) << "seed " << seed << ", round " << round;
      }
   }
}

} // namespace
