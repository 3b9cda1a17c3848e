// Operations on the whole tree of state machines: what is passed down has to reach every reactor.
#include "Vorn/testing/TestBridge.h"

#include "records/Bridging/Input/VlanConfig.h"

#include <gtest/gtest.h>

namespace {

using Vorn::TestBridge;

struct WholeTreeTest : testing::Test {
   WholeTreeTest() {
      bridge.vlan(10);
      bridge.vlan(20);
      bridge.access("Ethernet1", 10);
      bridge.trunk("Ethernet2");
      bridge.internalVlansAre(1006, 1010);
      bridge.routed("Ethernet3");
      bridge.vlanIntf(10);
      bridge.publish("other", 50).vlan(30);
      bridge.input("other").host(10, staticHost, "Ethernet1");
      bridge.input("other").group(10, staticGroup, {"Ethernet1"});
      bridge.start();
   }
   // Moves everything that some machine of the tree follows.
   void everythingChanges() {
      ++changes;
      bridge.vlan(10)->configuredNameIs(Kem::String8("name" + std::to_string(changes)));
      bridge.vlan(40 + changes);
      bridge.vlanDel(40 + changes - 1);
      bridge.access("Ethernet1", changes % 2 ? 20 : 10)->vlanTpidIs(0x8100 + changes);
      bridge.trunk("Ethernet2", changes % 2 ? "10" : "20");
      bridge.enabledStateLocalIs("Ethernet3", changes % 2 ? Interface::EnabledState::enabledStateEnabled
                                                          : Interface::EnabledState::enabledStateDefault);
      bridge.forwardingModelIs("Ethernet3", changes % 2
                                                ? Interface::IntfForwardingModel::intfForwardingModelBridged
                                                : Interface::IntfForwardingModel::intfForwardingModelRouted);
      bridge.intf(Sulvi::IntfId("Ethernet" + std::to_string(10 + changes)));
      bridge.vlanIntf(static_cast<uint16_t>(50 + changes));
      bridge.dynVlanIntf(static_cast<uint16_t>(60 + changes));
      bridge.cli->hostAgingTimeIs(100.0 + changes);
      bridge.cli->vidToFidMapIs(10, changes);
      bridge.input("other").prioritiesAre(50 + changes);
      bridge.input(Kem::Name("new" + std::to_string(changes)));
      fdbChanges();
   }
   // Of static hosts and groups: of an input, merged, and mapped.
   void fdbChanges() {
      Sulvi::IntfId const port(changes % 2 ? "Ethernet2" : "Ethernet1");
      auto const other = bridge.input("other");
      other.host(10, staticHost, port);
      other.fdb(static_cast<uint16_t>(70 + changes));
      other.group(10, staticGroup, {"Ethernet1", "Ethernet2"})->intfDel(port);
      other.group(10, changes % 2 ? otherGroup : anotherGroup);
      auto const merged = bridge.fdbConfigDir->fdbConfigIs(10);
      merged->configuredHostDel(Sulvi::EthAddr("00:1c:73:00:00:09"));
      merged->configuredHostIs(Sulvi::EthAddr("00:1c:73:00:00:09"),
                               {.addr = Sulvi::EthAddr("00:1c:73:00:00:09"), .intf = port});
      merged->ethGroupIs(Sulvi::EthAddr(std::string_view(staticGroup)))->intfIs(port, changes % 3 != 0);
      bridge.fdbConfigDir->fdbConfigIs(static_cast<uint16_t>(90 + changes));
      bridge.config->vidToFidMapIs(static_cast<uint16_t>(200 + changes), Bridging::Fid(1));
   }
   static constexpr char staticHost[] = "00:1c:73:00:00:01";
   static constexpr char staticGroup[] = "01:00:5e:00:00:01";
   static constexpr char otherGroup[] = "01:00:5e:00:00:02";
   static constexpr char anotherGroup[] = "01:00:5e:00:00:03";
   // Handlers that run because of it, and timers of the next minute.
   size_t handlersOfChanges() {
      size_t const before = Kem::activityManager()->activitySm().deliveredCount();
      everythingChanges();
      bridge.advance(60);
      return Kem::activityManager()->activitySm().deliveredCount() - before;
   }
   TestBridge bridge;
   uint16_t changes = 0;
};

TEST_F(WholeTreeTest, zombiesHearNothingAndNoTimerIsLeft) {
   EXPECT_GT(handlersOfChanges(), 12u);
   bridge.selector->kemDoZombieReactors(true);
   bridge.sm->kemDoZombieReactors(true);
   EXPECT_EQ(handlersOfChanges(), 0u);
   EXPECT_EQ(Kem::activityManager()->nextTarget(), Kem::never);
}

TEST_F(WholeTreeTest, deliveryIsSwitchedOffForAllAndWhatChangedWaits) {
   bridge.selector->hasNotificationActiveIs(false);
   bridge.sm->hasNotificationActiveIs(false);
   EXPECT_EQ(handlersOfChanges(), 0u);
   EXPECT_EQ(Kem::activityManager()->nextTarget(), Kem::never);
   bridge.sm->hasNotificationActiveIs(true);
   bridge.selector->hasNotificationActiveIs(true);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 20");
   EXPECT_EQ(bridge.resolvedVlan(10)->configuredName().str(), "name1");
}

TEST_F(WholeTreeTest, zombieRunsNoHandlerThatIsCalledDirectly) {
   bridge.selector->kemDoZombieReactors(true);
   auto const port = bridge.portSm("Ethernet1");
   port->kemDoZombieReactors(true);
   auto const before = bridge.resolvedVlans();
   bridge.sm->kemDoZombieReactors(true);
   bridge.sm->vlanConfigCodef()->handleVlanConfig();
   bridge.sm->handleVlanConfig(Bridging::VlanId(10));
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), before);
}

TEST_F(WholeTreeTest, childThatIsRemovedAndStillHeldHearsNothing) {
   auto const port = bridge.portSm("Ethernet1");
   auto const record = Kem::Ptr<Bridging::Input::SwitchIntfConfig const>(&port->switchIntfConfig());
   bridge.portDel("Ethernet1");
   bridge.run();
   ASSERT_FALSE(bridge.portSm("Ethernet1"));
   EXPECT_TRUE(port->isZombie());
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1"));
   Kem::Ptr<Bridging::Input::SwitchIntfConfig>(const_cast<Bridging::Input::SwitchIntfConfig*>(record.ptr()))
       ->accessVlanIs(20);
   bridge.run();
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "");
}

} // namespace
