#include "Vorn/BridgingSm/StaticHosts.h"

#include "Vorn/testing/TestBridge.h"
#include "Vorn/testing/WriteOrder.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestInput;

constexpr char staticHost[] = "00:1c:73:00:00:01";
constexpr char otherHost[] = "00:1c:73:00:00:02";
constexpr char staticGroup[] = "01:00:5e:00:00:01";

struct StaticHostsTest : testing::Test {
   TestInput input() { return bridge.input("a"); }
   bool isResolved(uint16_t vlanId = 10) {
      return bridge.config->fdbConfig(Bridging::Fid(vlanId)) != nullptr;
   }
   Kem::Ptr<Bridging::FdbConfig> previousRun(uint16_t vlanId = 10) {
      return bridge.config->fdbConfigIs(Bridging::Fid(vlanId));
   }
   Bridging::ConfiguredHost hostOf(char const* addr) {
      return {.addr = Sulvi::EthAddr(std::string_view(addr)), .intf = "Ethernet9"};
   }

   TestBridge bridge;
};

// --- Which VLANs.

TEST_F(StaticHostsTest, hostsComeAndGoWithTheVlan) {
   input().host(10, staticHost, "Ethernet1");
   bridge.start();
   EXPECT_FALSE(isResolved()) << "there is no VLAN";
   bridge.vlan(10);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_FALSE(isResolved());
   EXPECT_FALSE(bridge.sm->staticHosts().fdbConfigSm(10));
   bridge.vlan(10);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
}

TEST_F(StaticHostsTest, filteringDatabaseComesUpBehindTheVlan) {
   input().host(10, staticHost, "Ethernet1");
   bridge.start();
   Vorn::WriteOrder order;
   order.follow("config", *bridge.config);
   bridge.vlan(10);
   bridge.run();
   auto const steps = order.take();
   ASSERT_FALSE(steps.empty());
   EXPECT_THAT(steps.front(), HasSubstr("config.vlanConfig[10]"));
   EXPECT_THAT(steps.back(), HasSubstr("config.fdbConfig[10]"));
}

TEST_F(StaticHostsTest, internalVlanHasNone) {
   input().host(1006, staticHost, "Ethernet1");
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   EXPECT_FALSE(isResolved(1006));
   bridge.sm->handleFdbConfig(1006);
   EXPECT_FALSE(isResolved(1006));
   // The number becomes an ordinary VLAN.
   bridge.vlan(1006);
   bridge.run();
   EXPECT_EQ(bridge.host(1006, staticHost), "Ethernet1");
}

TEST_F(StaticHostsTest, vlanThatIsMappedOntoAnotherDatabaseHasNone) {
   input().host(10, staticHost, "Ethernet1");
   bridge.vlan(10);
   bridge.start();
   EXPECT_TRUE(isResolved());
   bridge.cli->vidToFidMapIs(10, Bridging::Fid(20));
   bridge.run();
   EXPECT_FALSE(isResolved());
   EXPECT_FALSE(bridge.sm->staticHosts().fdbConfigSm(10));
   EXPECT_EQ(bridge.mergedHost(10, staticHost), "Ethernet1") << "the merged record stays";
   bridge.cli->vidToFidMapIs(10, Bridging::Fid(0));
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1") << "0 is no mapping";
   bridge.cli->vidToFidMapIs(10, Bridging::Fid(20));
   bridge.run();
   bridge.cli->vidToFidMapDel(10);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
}

TEST_F(StaticHostsTest, resolvedEntryZeroIsNoMapping) {
   input().host(10, staticHost, "Ethernet1");
   bridge.vlan(10);
   bridge.start();
   bridge.config->vidToFidMapIs(10, Bridging::Fid(0));
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
}

TEST_F(StaticHostsTest, deletedVlanThatIsMappedHasNoneLeft) {
   input().host(10, staticHost, "Ethernet1");
   bridge.vlan(10);
   bridge.start();
   bridge.vlanDel(10);
   bridge.cli->vidToFidMapIs(10, Bridging::Fid(20));
   bridge.run();
   EXPECT_FALSE(isResolved());
   EXPECT_FALSE(bridge.sm->staticHosts().fdbConfigSm(10));
}

TEST_F(StaticHostsTest, mappedVlanOfThePreviousRunLosesItsDatabaseAtTheStart) {
   input().host(10, staticHost, "Ethernet1");
   bridge.vlan(10);
   bridge.cli->vidToFidMapIs(10, Bridging::Fid(20));
   previousRun()->configuredHostIs(Sulvi::EthAddr(std::string_view(staticHost)), hostOf(staticHost));
   bridge.start();
   EXPECT_FALSE(isResolved());
}

TEST_F(StaticHostsTest, whatNoMergedRecordIsThereForGoesAtTheStart) {
   bridge.vlan(10);
   previousRun(10);
   previousRun(20);
   previousRun(5000); // no VLAN's number
   bridge.start();
   EXPECT_TRUE(bridge.config->fdbConfig().empty());
}

TEST_F(StaticHostsTest, whatThePreviousRunResolvedForAVlanThatStaysIsTakenOver) {
   TestInput{bridge.eth}.vlan(10); // so that the first input of the start has it too
   bridge.vlan(10);
   auto const a = input();
   a.host(10, staticHost, "Ethernet1");
   bridge.start();
   auto const resolved = bridge.config->fdbConfig(Bridging::Fid(10));
   bridge.stop();
   bridge.start();
   EXPECT_EQ(bridge.config->fdbConfig(Bridging::Fid(10)), resolved);
   a.host(10, otherHost, "Ethernet2");
   bridge.run();
   EXPECT_EQ(bridge.host(10, otherHost), "Ethernet2");
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
}

// --- The mirror.

TEST_F(StaticHostsTest, mirrorFollowsTheMergedRecord) {
   bridge.vlan(10);
   auto const a = input();
   a.host(10, staticHost, "Ethernet1");
   bridge.start();
   a.host(10, staticHost, "Ethernet2");
   a.host(10, otherHost, "Ethernet3");
   a.group(10, staticGroup, {"Ethernet4"});
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet2");
   EXPECT_EQ(bridge.host(10, otherHost), "Ethernet3");
   EXPECT_EQ(bridge.group(10, staticGroup), "{Ethernet4}");
   a.hostDel(10, staticHost);
   a.groupDel(10, staticGroup);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "");
   EXPECT_EQ(bridge.group(10, staticGroup), "");
   EXPECT_FALSE(
       bridge.sm->staticHosts().fdbConfigSm(10)->ethGroupSm(Sulvi::EthAddr(std::string_view(staticGroup))));
}

TEST_F(StaticHostsTest, whatOnlyTheResolvedRecordHasAtTheStartLeavesIt) {
   bridge.vlan(10);
   auto const left = previousRun();
   left->configuredHostIs(Sulvi::EthAddr(std::string_view(otherHost)), hostOf(otherHost));
   left->configuredHostIs(Sulvi::EthAddr(std::string_view(staticHost)), hostOf(staticHost));
   left->ethGroupIs(Sulvi::EthAddr("01:00:5e:00:00:09"))->intfIs("Ethernet9", true);
   left->ethGroupIs(Sulvi::EthAddr(std::string_view(staticGroup)))->intfIs("Ethernet9", true);
   auto const a = input();
   a.host(10, staticHost, "Ethernet1");
   a.group(10, staticGroup, {"Ethernet1"});
   bridge.start();
   EXPECT_EQ(bridge.host(10, otherHost), "");
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet1");
   EXPECT_EQ(bridge.group(10, "01:00:5e:00:00:09"), "");
   EXPECT_EQ(bridge.group(10, staticGroup), "{Ethernet1}");
}

TEST_F(StaticHostsTest, groupThatLosesItsLastMemberStaysEmpty) {
   bridge.vlan(10);
   auto const group = input().group(10, staticGroup, {"Ethernet1"});
   bridge.start();
   EXPECT_EQ(bridge.group(10, staticGroup), "{Ethernet1}");
   group->intfDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(bridge.group(10, staticGroup), "{}");
}

TEST_F(StaticHostsTest, groupThatIsMergedAgainInOneTurnIsFollowed) {
   bridge.vlan(10);
   input().group(10, staticGroup, {"Ethernet1"});
   bridge.start();
   Sulvi::EthAddr const addr{std::string_view(staticGroup)};
   auto const merged = bridge.fdbConfigDir->fdbConfig(10);
   merged->ethGroupDel(addr);
   merged->ethGroupIs(addr)->intfIs("Ethernet2", true);
   bridge.run();
   EXPECT_EQ(bridge.group(10, staticGroup), "{Ethernet2}");
   merged->ethGroup(addr)->intfIs("Ethernet3", true);
   bridge.run();
   EXPECT_EQ(bridge.group(10, staticGroup), "{Ethernet2 Ethernet3}");
}

TEST_F(StaticHostsTest, vlanThatIsMergedAgainInOneTurnIsFollowed) {
   bridge.vlan(10);
   bridge.start();
   auto const host = hostOf(staticHost);
   bridge.fdbConfigDir->fdbConfigIs(10)->configuredHostIs(host.addr, host);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet9");
   bridge.fdbConfigDir->fdbConfigDel(10);
   auto const other = hostOf(otherHost);
   bridge.fdbConfigDir->fdbConfigIs(10)->configuredHostIs(other.addr, other);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "");
   EXPECT_EQ(bridge.host(10, otherHost), "Ethernet9");
   bridge.fdbConfigDir->fdbConfig(10)->configuredHostIs(host.addr, host);
   bridge.run();
   EXPECT_EQ(bridge.host(10, staticHost), "Ethernet9");
}

TEST_F(StaticHostsTest, hostBeforeTheStartEndsTheAgent) {
   auto const merged = bridge.fdbConfigDir->fdbConfigIs(10);
   auto const sm = Kem::makePtr<Vorn::FdbConfigSm>(merged, bridge.config);
   EXPECT_DEATH(sm->handleConfiguredHost(Sulvi::EthAddr(std::string_view(staticHost))),
                HasSubstr("\"initialized()\""));
}

} // namespace
