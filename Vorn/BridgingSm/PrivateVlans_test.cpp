#include "Vorn/BridgingSm/PrivateVlans.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using Bridging::VlanAdminState;
using Bridging::VlanType;
using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

// Two primary VLANs to be, 100 and 200, with a VLAN interface on 100; and the library that finds the pairs.
struct PrivateVlansTest : testing::Test {
   PrivateVlansTest() {
      bridge.hasLibrary = true;
      bridge.vlan(100);
      bridge.vlan(200);
      bridge.vlanIntf(100);
   }
   // Suspends what the bridging agent knows, so that tests can fill the library's record themselves.
   void startWithoutLibrary() {
      bridge.hasLibrary = false;
      bridge.start();
   }
   std::string cpu(uint16_t vlanId) { return bridge.membership(vlanId, "Cpu"); }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> mappingTrunk(char const* name) {
      auto const port = bridge.trunk(name);
      port->trunkPrivateVlanMappingIs(true);
      return port;
   }

   TestBridge bridge;
};

// --- A pair comes and goes.

TEST_F(PrivateVlansTest, secondarySharesThePrimarysFilteringDatabase) {
   bridge.secondaryVlan(101, 100);
   bridge.start();
   EXPECT_EQ(bridge.fid(101), 100);
   EXPECT_EQ(bridge.fid(100), 0) << "the primary uses its own";
   EXPECT_EQ(cpu(101), "tagged");
   bridge.roleIs(101, VlanType::primary_, 0);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 0);
   EXPECT_EQ(cpu(101), "") << "it has no VLAN interface of its own";
   EXPECT_FALSE(bridge.sm->privateVlans().primaryVlanSm(100));
}

// An asymmetric port prints a line for each look at a VLAN that it is a member of.
TEST_F(PrivateVlansTest, portLooksOnceAtAPrimaryHoweverManySecondariesItGets) {
   startWithoutLibrary();
   bridge.port("Ethernet1")->asymVlansIs("100-119");
   for (uint16_t vlanId = 101; vlanId < 120; ++vlanId)
      bridge.vlan(vlanId);
   bridge.run();
   testing::internal::CaptureStderr();
   for (uint16_t vlanId = 101; vlanId < 120; ++vlanId)
      bridge.privateVlans->primaryVlanIs(100)->secondaryVlanIs(vlanId, true);
   bridge.run();
   std::string const text = testing::internal::GetCapturedStderr();
   for (uint16_t vlanId = 100; vlanId < 120; ++vlanId) {
      std::string const line = "SwitchIntfSm::doSyncSingleVlan(Ethernet1," + std::to_string(vlanId) + ")\n";
      size_t const first = text.find(line);
      EXPECT_NE(first, text.npos) << vlanId;
      EXPECT_EQ(text.find(line, first + 1), text.npos) << vlanId;
   }
}

TEST_F(PrivateVlansTest, secondaryWhosePrimaryIsNotResolvedHasNoEntry) {
   startWithoutLibrary();
   bridge.vlan(101);
   bridge.run();
   bridge.privateVlans->primaryVlanIs(300)->secondaryVlanIs(101, true);
   bridge.privateVlans->vlanTypeAndPrimaryVlanIs(101, {.vlanType = VlanType::secondary_, .primaryVlan = 300});
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 0);
   bridge.privateVlans->primaryVlanIs(100)->secondaryVlanIs(300, true);
   bridge.run();
   EXPECT_EQ(bridge.fid(300), 0) << "nor one that is not resolved itself";
   bridge.privateVlans->primaryVlanIs(100)->secondaryVlanIs(101, true);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100);
   bridge.privateVlans->primaryVlanIs(100)->secondaryVlanIs(101, false);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 0) << "false is none";
}

TEST_F(PrivateVlansTest, secondaryThatLeavesGoesBackToItsOwnVlanInterface) {
   bridge.secondaryVlan(201, 200);
   bridge.vlanIntf(201);
   bridge.secondaryVlan(202, 200);
   bridge.dynVlanIntf(202);
   bridge.secondaryVlan(203, 200);
   bridge.vlanIntf(203)->enabledIs(false);
   bridge.secondaryVlan(204, 200);
   bridge.vlanIntf(204);
   bridge.vlan(204)->adminStateIs(VlanAdminState::suspended);
   bridge.start();
   for (uint16_t const vlanId : {201, 202, 203, 204})
      EXPECT_EQ(cpu(vlanId), "") << "the primary 200 has no VLAN interface";
   for (uint16_t const vlanId : {201, 202, 203, 204})
      bridge.roleIs(vlanId, VlanType::primary_, 0);
   bridge.run();
   EXPECT_EQ(cpu(201), "tagged");
   EXPECT_EQ(cpu(202), "tagged");
   EXPECT_EQ(cpu(203), "") << "disabled";
   EXPECT_EQ(cpu(204), "") << "suspended";
}

TEST_F(PrivateVlansTest, membersOfBothVlansFollowThePair) {
   bridge.access("Ethernet1", 101);
   bridge.access("Ethernet2", 100)->privateVlanMappingIs(101, true);
   mappingTrunk("Ethernet3");
   bridge.vlan(101);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{101});
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{100});
   bridge.secondaryVlan(101, 100);
   bridge.run();
   EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged rx");
   EXPECT_EQ(bridge.membership(100, "Ethernet1"), "untagged mapped tx");
   EXPECT_EQ(bridge.membership(101, "Ethernet2"), "untagged mapped tx");
   EXPECT_EQ(bridge.membership(100, "Ethernet2"), "untagged");
   EXPECT_EQ(bridge.membership(101, "Ethernet3"), "tagged rx");
   bridge.roleIs(101, VlanType::primary_, 0);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{101});
   EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{100});
   EXPECT_EQ(bridge.membership(101, "Ethernet3"), "tagged");
}

TEST_F(PrivateVlansTest, handlersOfAPrimaryWaitForItsFirstEvaluation) {
   bridge.start();
   auto const state = PrivateVlanLib::PrimaryVlanState::make(100);
   auto const sm = Kem::makePtr<Vorn::PrimaryVlanSm>(*bridge.sm, state);
   EXPECT_DEATH(sm->handleSecondaryVlan(101), HasSubstr("\"initialized()\""));
   sm->handleInitialized();
   sm->handleSecondaryVlan(101);
   EXPECT_EQ(bridge.fid(101), 0);
}

TEST_F(PrivateVlansTest, primaryWithoutARecordIsVlanOne) {
   bridge.start();
   auto const sm = Kem::makePtr<Vorn::PrimaryVlanSm>(*bridge.sm, nullptr);
   EXPECT_EQ(sm->primaryVlan(), 1);
   sm->handleInitialized();
   EXPECT_TRUE(sm->initialized());
}

TEST_F(PrivateVlansTest, nothingIsMadeBeforeTheStart) {
   bridge.start();
   auto const sm = Kem::makePtr<Vorn::PrivateVlans>(*bridge.sm, bridge.privateVlans, bridge.cli);
   bridge.privateVlans->primaryVlanIs(100);
   bridge.run();
   EXPECT_FALSE(sm->primaryVlanSm(100));
   bridge.cli->sviMappingIs(100);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"initialized()\""));
}

// --- Translations of trunk ports.

TEST_F(PrivateVlansTest, trunkSendsAPrimaryUnderItsSmallestSecondary) {
   TestTrace trace;
   mappingTrunk("Ethernet1");
   bridge.trunk("Ethernet2");
   bridge.access("Ethernet3", 100)->trunkPrivateVlanMappingIs(true);
   bridge.secondaryVlan(103, 100);
   bridge.start();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 103");
   EXPECT_TRUE(trace.has("Add egress mapping from  100 to 103"));
   bridge.secondaryVlan(102, 100);
   bridge.secondaryVlan(104, 100);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 102");
   EXPECT_EQ(bridge.egress("Ethernet2"), "") << "it doesn't map";
   EXPECT_EQ(bridge.egress("Ethernet3"), "") << "it is no trunk";
}

TEST_F(PrivateVlansTest, smallestSecondaryThatGoesMovesTheTranslationToTheNext) {
   mappingTrunk("Ethernet1");
   for (uint16_t const vlanId : {101, 102, 103})
      bridge.secondaryVlan(vlanId, 100);
   bridge.start();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 101");
   TestTrace trace;
   bridge.vlanDel(101);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 102");
   EXPECT_TRUE(trace.has("Delete egress mapping from 100 to 101"));
   EXPECT_TRUE(
       trace.has(" SwitchIntfSm::doAddPrivateVlanMapping(Ethernet1)  added egress  mapping from 100 to 102"));
   trace.clear();
   bridge.vlanDel(103);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 102");
   EXPECT_FALSE(trace.has("Delete egress mapping")) << "it was not the smallest";
   bridge.vlanDel(102);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "");
}

TEST_F(PrivateVlansTest, configuredTranslationOfAPrimaryWins) {
   auto const port = mappingTrunk("Ethernet1");
   port->egressVlanXlateIs({.outerVlanId = 100}, {.mappedVlanId = 7});
   bridge.secondaryVlan(101, 100);
   bridge.secondaryVlan(201, 200);
   bridge.start();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 7, 200/0 to 201");
   bridge.vlanDel(101);
   bridge.vlanDel(201);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 7")
       << "nor is it taken along when the primary is none any more";
   bridge.secondaryVlan(102, 100);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 7");
}

TEST_F(PrivateVlansTest, disabledTrunkIsKeptInStepToo) {
   // Its mapping is told regardless of `enabled`, and so it would be after a restart.
   mappingTrunk("Ethernet1")->enabledIs(false);
   bridge.secondaryVlan(103, 100);
   bridge.start();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 103");
   bridge.secondaryVlan(102, 100);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 102");
   bridge.vlanDel(102);
   bridge.run();
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 103");
}

// --- Orders of events.

TEST_F(PrivateVlansTest, primaryMayComeAfterItsSecondariesAndGoBeforeThem) {
   bridge.vlanDel(100);
   bridge.secondaryVlan(101, 100);
   bridge.access("Ethernet1", 101);
   mappingTrunk("Ethernet2");
   bridge.start();
   for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(bridge.fid(101), 0);
      EXPECT_EQ(cpu(101), "");
      EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged");
      EXPECT_EQ(bridge.membership(101, "Ethernet2"), "tagged rx") << "still a secondary";
      EXPECT_EQ(bridge.egress("Ethernet2"), "");
      bridge.vlan(100);
      bridge.run();
      EXPECT_EQ(bridge.fid(101), 100);
      EXPECT_EQ(cpu(101), "tagged");
      EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged rx");
      EXPECT_EQ(bridge.membership(100, "Ethernet1"), "untagged mapped tx");
      EXPECT_EQ(bridge.egress("Ethernet2"), "100/0 to 101");
      bridge.vlanDel(100);
      bridge.run();
   }
}

TEST_F(PrivateVlansTest, secondaryThatMovesIsNotTakenAlongByItsOldPrimary) {
   bridge.secondaryVlan(101, 100);
   bridge.secondaryVlan(102, 100);
   bridge.secondaryVlan(201, 200);
   mappingTrunk("Ethernet1");
   bridge.access("Ethernet2", 102);
   bridge.start();
   for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(bridge.fid(102), 100);
      EXPECT_EQ(cpu(102), "tagged");
      EXPECT_EQ(bridge.vlansOf("Ethernet2"), (Numbers{100, 102}));
      bridge.secondaryVlan(102, 200);
      bridge.run();
      EXPECT_EQ(bridge.fid(102), 200);
      EXPECT_EQ(cpu(102), "") << "200 has no VLAN interface";
      EXPECT_EQ(bridge.vlansOf("Ethernet2"), (Numbers{102, 200}));
      EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 101, 200/0 to 102");
      bridge.secondaryVlan(102, 100);
      bridge.run();
      EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 101, 200/0 to 201");
   }
}

// The new primary is told first:
// 1. The library's record says that the VLAN belongs to 200, whose child writes its entry of the map.
// 2. The child of 100 hears that the VLAN has left.
TEST_F(PrivateVlansTest, oldPrimaryThatIsToldLastLeavesWhatTheNewOneWrote) {
   startWithoutLibrary();
   bridge.vlan(101);
   bridge.vlanIntf(200);
   bridge.run();
   auto& state = *bridge.privateVlans;
   state.primaryVlanIs(100)->secondaryVlanIs(101, true);
   state.primaryVlanIs(200);
   state.vlanTypeAndPrimaryVlanIs(101, {.vlanType = VlanType::secondary_, .primaryVlan = 100});
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100);
   state.vlanTypeAndPrimaryVlanIs(101, {.vlanType = VlanType::secondary_, .primaryVlan = 200});
   state.primaryVlan(200)->secondaryVlanIs(101, true);
   bridge.run();
   Vorn::deleteCpuPort(*bridge.resolvedVlan(100));
   bridge.resolvedVlan(200)->intfIs("Cpu", {.tagged = true});
   maybeSyncCpuPort(*bridge.sm, 200);
   state.primaryVlan(100)->secondaryVlanDel(101);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 200);
   EXPECT_EQ(cpu(101), "tagged");
}

TEST_F(PrivateVlansTest, vlanOfAPairThatIsReplacedInOneTurnIsEvaluatedAgain) {
   bridge.secondaryVlan(101, 100);
   bridge.access("Ethernet1", 101);
   bridge.access("Ethernet2", 100)->defaultPrivateVlanMappingIs(true);
   mappingTrunk("Ethernet3");
   bridge.start();
   for (uint16_t const vlanId : {101, 100}) {
      // What nobody evaluates shows by what is missing.
      bridge.config->vidToFidMapDel(101);
      bridge.resolvedPort("Ethernet3")->egressVlanXlateDel({.outerVlanId = 100});
      auto const before = bridge.resolvedVlan(vlanId);
      bridge.sm->staticVlans().vlanConfigAfterCodefDel(vlanId);
      auto const copy = bridge.sm->staticVlans().vlanConfigAfterCodefIs(vlanId);
      if (vlanId == 101)
         copy->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::secondary_, .primaryVlan = 100});
      bridge.sm->staticVlans().vlanConfigSmInitialize(vlanId);
      bridge.run();
      ASSERT_NE(bridge.resolvedVlan(vlanId), before);
      EXPECT_EQ(bridge.fid(101), 100) << vlanId;
      EXPECT_EQ(cpu(101), "tagged") << vlanId;
      EXPECT_EQ(cpu(100), "tagged") << vlanId;
      EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged rx") << vlanId;
      EXPECT_EQ(bridge.membership(100, "Ethernet1"), "untagged mapped tx") << vlanId;
      EXPECT_EQ(bridge.membership(101, "Ethernet2"), "untagged mapped tx") << vlanId;
      EXPECT_EQ(bridge.membership(101, "Ethernet3"), "tagged rx") << vlanId;
      EXPECT_EQ(bridge.egress("Ethernet3"), "100/0 to 101") << vlanId;
   }
}

TEST_F(PrivateVlansTest, primaryWhoseRecordIsTakenAwayWithItsSecondariesIsCleanedUp) {
   startWithoutLibrary();
   mappingTrunk("Ethernet1");
   bridge.vlan(101);
   bridge.run();
   bridge.privateVlans->primaryVlanIs(100)->secondaryVlanIs(101, true);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100);
   EXPECT_EQ(bridge.egress("Ethernet1"), "100/0 to 101");
   bridge.privateVlans->primaryVlanDel(100);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 0);
   EXPECT_EQ(cpu(101), "");
   EXPECT_EQ(bridge.egress("Ethernet1"), "");
   EXPECT_FALSE(bridge.sm->privateVlans().primaryVlanSm(100));
}

TEST_F(PrivateVlansTest, otherRecordOfAPrimaryIsFollowedInTheOldOnesPlace) {
   startWithoutLibrary();
   for (uint16_t const vlanId : {101, 102, 103})
      bridge.vlan(vlanId);
   bridge.run();
   auto const before = bridge.privateVlans->primaryVlanIs(100);
   before->secondaryVlanIs(101, true);
   before->secondaryVlanIs(102, true);
   bridge.run();
   auto const after = bridge.privateVlans->newPrimaryVlan(100);
   after->secondaryVlanIs(102, true);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 0);
   EXPECT_EQ(bridge.fid(102), 100);
   after->secondaryVlanIs(103, true);
   before->secondaryVlanDel(102);
   bridge.run();
   EXPECT_EQ(bridge.fid(102), 100);
   EXPECT_EQ(bridge.fid(103), 100);
}

// VLAN 150 leaves its primary and is one from then on. Its secondary may be looked at first, and has to follow
// when 150 has its processor's port back.
TEST_F(PrivateVlansTest, secondaryThatBecomesAPrimaryHasItsOwnSecondariesFollow) {
   for (bool const isToldFirst : {false, true}) {
      bridge.stop();
      bridge.config = Bridging::Config::make();
      bridge.vlanIntf(150);
      bridge.vlan(150);
      bridge.vlan(151);
      startWithoutLibrary();
      auto& state = *bridge.privateVlans;
      state.primaryVlanDelAll();
      state.primaryVlanIs(200)->secondaryVlanIs(150, true);
      state.vlanTypeAndPrimaryVlanIs(150, {.vlanType = VlanType::secondary_, .primaryVlan = 200});
      state.primaryVlanIs(150);
      bridge.run();
      EXPECT_EQ(cpu(150), "");
      auto const join = [&] {
         state.primaryVlan(150)->secondaryVlanIs(151, true);
         state.vlanTypeAndPrimaryVlanIs(151, {.vlanType = VlanType::secondary_, .primaryVlan = 150});
      };
      if (isToldFirst)
         join();
      state.primaryVlan(200)->secondaryVlanDel(150);
      state.vlanTypeAndPrimaryVlanDel(150);
      if (!isToldFirst)
         join();
      bridge.run();
      EXPECT_EQ(cpu(150), "tagged");
      EXPECT_EQ(cpu(151), "tagged") << isToldFirst;
   }
}

// Roles that come and go before the library is told of them: for it nothing has happened, and nobody comes back
// to the VLAN. What is done meanwhile keeps to its pairs.
TEST_F(PrivateVlansTest, processorsPortIsThatOfTheRolesInTheEnd) {
   bridge.secondaryVlan(101, 999);
   bridge.vlan(102);
   bridge.vlanIntf(102);
   bridge.start();
   auto& vlans = bridge.sm->resolvedVlans();
   auto const names = [&](uint16_t vlanId, uint16_t primary) {
      vlans.vlanTypeAndPrimaryVlanIs(*vlans.vlan(vlanId),
                                     {.vlanType = VlanType::secondary_, .primaryVlan = primary});
      maybeSyncCpuPort(*bridge.sm, vlanId);
   };
   names(101, 100);
   names(101, 998);
   bridge.run();
   EXPECT_EQ(cpu(101), "") << "it has no VLAN interface";

   names(102, 999);
   bridge.run();
   EXPECT_EQ(cpu(102), "tagged") << "its own";
   names(102, 200);
   names(102, 998);
   bridge.run();
   EXPECT_EQ(cpu(102), "tagged");
   names(102, 200);
   bridge.run();
   EXPECT_EQ(cpu(102), "") << "of the pair that it now makes";
   names(102, 100);
   bridge.run();
   EXPECT_EQ(bridge.fid(102), 100);
   EXPECT_EQ(cpu(102), "tagged") << "of another pair";

   vlans.vlanTypeAndPrimaryVlanIs(*vlans.vlan(102), {});
   maybeSyncCpuPort(*bridge.sm, 102);
   names(102, 100);
   bridge.run();
   EXPECT_EQ(cpu(102), "tagged") << "the same pair as before";
}

// A source claims the number of a secondary VLAN, whose input then makes it again: it is a plain VLAN for a moment
// only.
TEST_F(PrivateVlansTest, secondaryThatIsMadeAgainKeepsTheProcessorsPort) {
   bridge.secondaryVlan(101, 100);
   bridge.dynVlans("overlay", "101");
   bridge.start();
   ASSERT_EQ(cpu(101), "tagged");
   bridge.vlanDel(101);
   bridge.secondaryVlan(101, 100);
   bridge.run();
   EXPECT_EQ(cpu(101), "tagged");
}

// --- The map of the command line.

TEST_F(PrivateVlansTest, pairComesBeforeTheCommandLinesMap) {
   bridge.cli->vidToFidMapIs(101, 50);
   bridge.cli->vidToFidMapIs(102, 0);
   bridge.secondaryVlan(101, 100);
   bridge.secondaryVlan(102, 100);
   bridge.start();
   EXPECT_EQ(bridge.fid(101), 100);
   EXPECT_EQ(bridge.fid(102), 100);
   bridge.cli->vidToFidMapIs(101, 60);
   bridge.cli->vidToFidMapIs(102, 70);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100) << "whoever writes last";
   EXPECT_EQ(bridge.fid(102), 100);
   bridge.vlanDel(100);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 60) << "the command line's is left";
   EXPECT_EQ(bridge.fid(102), 70);
   bridge.cli->vidToFidMapDel(102);
   bridge.run();
   EXPECT_EQ(bridge.fid(102), 0);
   bridge.vlan(100);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100);
   bridge.cli->vidToFidMapDel(101);
   bridge.run();
   EXPECT_EQ(bridge.fid(101), 100) << "nor does it take the pair's entry along";
}

} // namespace
