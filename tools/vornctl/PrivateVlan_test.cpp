#include "Failures.h"
#include "PrivateVlan.h"
#include "Show.h"
#include "TestWorld.h"
#include "Why.h"

#include "records/Bridging/SviMappingState.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using Bridging::VlanAdminState;
using Bridging::VlanPortDirection;
using Bridging::VlanType;
using nlohmann::json;
using testing::HasSubstr;

constexpr Format asPairsTable;
constexpr Format asPairsJson{.wantsJson = true};

struct PrivateVlanTest : testing::Test {
   Kem::Ptr<Bridging::VlanConfig> role(uint16_t number, VlanType type, uint16_t primary) {
      auto const vlan = world.vlan(number);
      vlan->vlanTypeAndPrimaryVlanIs({.vlanType = type, .primaryVlan = primary});
      return vlan;
   }
   Kem::Ptr<Bridging::VlanConfig> secondary(uint16_t number, uint16_t primary) {
      return role(number, VlanType::secondary_, primary);
   }
   std::string problem(uint16_t number) {
      return pairProblem(*state.config, *state.config->vlanConfig(number));
   }
   std::string cpuDecision(uint16_t number) {
      Explanation const explanation = explain(state, "Cpu", number);
      EXPECT_EQ(explanation.isMember(), explanation.advice.empty());
      return (explanation.isMember() ? "yes: " : "no: ") + explanation.rules.back().finding;
   }

   TestWorld world;
   SwitchState& state = world.state;
};

// --- Pairs.

TEST_F(PrivateVlanTest, pairNeedsAPrimaryThatIsOne) {
   world.vlan(10);
   secondary(11, 10);
   role(12, static_cast<VlanType>(2), 10);
   EXPECT_EQ(problem(10), "");
   EXPECT_EQ(problem(11), "");
   EXPECT_EQ(problem(12), "") << "other types are secondaries too";
   secondary(20, 300);
   secondary(21, 21);
   secondary(22, 0);
   secondary(23, 11);
   role(24, VlanType::primary_, 10);
   secondary(25, 24);
   world.internalVlan(1006, "Ethernet45");
   secondary(26, 1006);
   EXPECT_EQ(problem(20), "VLAN 300, which it names, doesn't exist");
   EXPECT_EQ(problem(21), "it names itself as its primary");
   EXPECT_EQ(problem(22), "it names no primary");
   EXPECT_EQ(problem(23), "VLAN 11, which it names, is a secondary VLAN itself");
   EXPECT_EQ(problem(24), "it is of the primary type, but names VLAN 10 as its primary");
   EXPECT_EQ(problem(25), "VLAN 24, which it names, names a primary itself");
   EXPECT_EQ(problem(26), "VLAN 1006, which it names, is the internal VLAN of Ethernet45");
   EXPECT_EQ(secondariesOf(*state.config, 10), (std::vector<Bridging::VlanId>{11, 12}));
}

// --- show private-vlan.

TEST_F(PrivateVlanTest, pairsAreShownWithPortsByDirection) {
   auto const primary = world.vlan(100);
   auto const server = secondary(101, 100);
   secondary(102, 100)->adminStateIs(VlanAdminState::suspended);
   secondary(30, 300);
   world.vlan(5);
   primary->intfIs("Cpu", {.tagged = true});
   primary->intfIs("Ethernet1", {.tagged = true});
   primary->intfIs("Ethernet2", {.mappedUntagged = true, .direction = VlanPortDirection::txOnly});
   server->intfIs("Ethernet2", {.direction = VlanPortDirection::rxOnly});
   state.config->vidToFidMapIs(101, 100);
   state.config->sviMappingIs(100)->secondaryVlanIs(102, true);
   EXPECT_EQ(showPrivateVlan(state, {}, asPairsTable),
             "Primary  VLAN  Type       Status     FDB  Cpu  Ports\n"
             "-------  ----  ---------  ---------  ---  ---  ---------\n"
             "100      100   primary    active     100  yes  Et1, Et2>\n"
             "100      101   secondary  active     100  -    Et2<\n"
             "100      102   secondary  suspended  102  -\n"
             "-        30    secondary  active     30   -\n"
             "\n"
             "Ports marked < receive only, > send only.\n"
             "\n"
             "The VLAN interface of 100 serves VLAN 102.\n"
             "\n"
             "VLAN 30 makes no pair: VLAN 300, which it names, doesn't exist.\n");
}

TEST_F(PrivateVlanTest, oneVlanIsShownWithWhatItIsPairedWith) {
   world.vlan(100);
   secondary(101, 100);
   secondary(102, 100);
   secondary(30, 30);
   world.vlan(5);
   EXPECT_EQ(
       json::parse(showPrivateVlan(state, 100, asPairsJson))["primaryVlans"]["100"]["secondaryVlans"].size(),
       2u);
   auto const one = json::parse(showPrivateVlan(state, 102, asPairsJson));
   EXPECT_EQ(one["primaryVlans"]["100"]["secondaryVlans"].size(), 1u);
   EXPECT_TRUE(one["primaryVlans"]["100"]["secondaryVlans"].contains("102"));
   EXPECT_TRUE(one["unpairedVlans"].empty());
   auto const wrong = json::parse(showPrivateVlan(state, 30, asPairsJson));
   EXPECT_TRUE(wrong["primaryVlans"].empty());
   EXPECT_EQ(wrong["unpairedVlans"]["30"]["problem"], "it names itself as its primary");
   EXPECT_EQ(wrong["unpairedVlans"]["30"]["primaryVlan"], 30);
   EXPECT_THROW(showPrivateVlan(state, 5, asPairsTable), Absent) << "plain";
   EXPECT_THROW(showPrivateVlan(state, 6, asPairsTable), Absent) << "missing";
}

TEST_F(PrivateVlanTest, jsonTellsDatabaseProcessorMappingAndMembers) {
   world.vlan(100)->intfIs("Cpu", {.tagged = true});
   auto const server = secondary(101, 100);
   server->intfIs("Ethernet2", {.direction = VlanPortDirection::rxOnly});
   secondary(102, 100);
   state.config->vidToFidMapIs(101, 100);
   auto const before = json::parse(showPrivateVlan(state, {}, asPairsJson))["primaryVlans"]["100"];
   EXPECT_TRUE(before["sviMapping"].is_null());
   EXPECT_EQ(before["secondaryVlans"]["102"]["isServed"], true) << "there is no mapping";
   state.config->sviMappingIs(100)->secondaryVlanIs(101, true);
   auto const primary = json::parse(showPrivateVlan(state, {}, asPairsJson))["primaryVlans"]["100"];
   EXPECT_EQ(primary["sviMapping"], json::parse(R"({"default": false, "secondaryVlans": [101]})"));
   EXPECT_EQ(primary["hasCpu"], true);
   EXPECT_EQ(primary["filteringDatabase"], 100);
   EXPECT_EQ(primary["secondaryVlans"]["101"], json::parse(R"({
      "type": "secondary", "status": "active", "filteringDatabase": 100, "hasCpu": false,
      "ports": {"Ethernet2": {"tagged": false, "direction": "rxOnly"}}, "isServed": true})"));
   EXPECT_EQ(primary["secondaryVlans"]["102"]["isServed"], false);
   state.config->sviMappingIs(100)->defaultSviMappingIs(true);
   EXPECT_THAT(showPrivateVlan(state, {}, asPairsTable), HasSubstr("serves all secondaries, by default."));
}

TEST_F(PrivateVlanTest, switchWithoutPrivateVlansShowsNone) {
   world.vlan(5);
   EXPECT_EQ(json::parse(showPrivateVlan(state, {}, asPairsJson)),
             json::parse(R"({"primaryVlans": {}, "unpairedVlans": {}})"));
   EXPECT_EQ(showPrivateVlan(state, {}, asPairsTable), "no private VLANs\n");
}

// --- show translation.

TEST_F(PrivateVlanTest, translationsAreToldByTheirOrigin) {
   world.vlan(100);
   secondary(101, 100);
   auto const record = world.trunkPort("Ethernet1", "1-4094");
   record->trunkPrivateVlanMappingIs(true);
   record->ingressVlanXlateIs({.outerVlanId = 5, .innerVlanId = 6}, {.mappedVlanId = 7});
   record->egressVlanXlateIs({.outerVlanId = 7}, {.mappedVlanId = 5, .mappedInnerVlanId = 6});
   world.trunkPort("Ethernet2", "1-4094");
   auto const out = state.config->switchIntfConfig("Ethernet1");
   out->ingressNativeVlanXlateIs(8);
   out->egressNativeVlanXlateIs(9);
   out->ingressVlanXlateIs({.outerVlanId = 5, .innerVlanId = 6}, {.mappedVlanId = 7});
   out->egressVlanXlateIs({.outerVlanId = 7}, {.mappedVlanId = 5, .mappedInnerVlanId = 6});
   out->egressVlanXlateIs({.outerVlanId = 100}, {.mappedVlanId = 101});
   out->egressVlanXlateIs({.outerVlanId = 300}, {.mappedVlanId = 301});
   EXPECT_EQ(showTranslation(state, {}, asPairsTable),
             "Port  Frames    VLAN      Becomes   Origin\n"
             "----  --------  --------  --------  ---------------\n"
             "Et1   arriving  untagged  8         configured\n"
             "Et1   arriving  5/6       7         configured\n"
             "Et1   leaving   9         untagged  configured\n"
             "Et1   leaving   7         5/6       configured\n"
             "Et1   leaving   100       101       private VLAN\n"
             "Et1   leaving   300       301       nobody any more\n");
   auto const ports = json::parse(showTranslation(state, {}, asPairsJson))["ports"];
   EXPECT_EQ(ports.size(), 1u);
   EXPECT_EQ(ports["Ethernet1"]["ingressNativeVlan"], 8);
   EXPECT_EQ(ports["Ethernet1"]["egressNativeVlan"], 9);
   EXPECT_EQ(ports["Ethernet1"]["ingress"],
             json::parse(R"({"5/6": {"mappedVlan": 7, "mappedInnerVlan": 0, "origin": "configured"}})"));
   EXPECT_EQ(ports["Ethernet1"]["egress"]["100/0"],
             json::parse(R"({"mappedVlan": 101, "mappedInnerVlan": 0, "origin": "privateVlan"})"));
   EXPECT_EQ(ports["Ethernet1"]["egress"]["300/0"]["origin"], "none");
   record->egressVlanXlateIs({.outerVlanId = 100}, {.mappedVlanId = 101});
   EXPECT_THAT(showTranslation(state, {}, asPairsTable), HasSubstr("100       101       configured"));
}

TEST_F(PrivateVlanTest, onePortIsShownAlsoWithoutTranslations) {
   world.trunkPort("Ethernet2", "1-4094");
   EXPECT_EQ(showTranslation(state, "Ethernet2", asPairsTable), "no translations\n");
   EXPECT_EQ(json::parse(showTranslation(state, "Ethernet2", asPairsJson))["ports"].size(), 1u);
   EXPECT_THROW(showTranslation(state, "Ethernet9", asPairsTable), Absent);
}

// --- why.

TEST_F(PrivateVlanTest, whyTellsTheRoleOfTheVlan) {
   world.vlan(100);
   secondary(101, 100);
   secondary(102, 100);
   secondary(30, 300);
   world.vlan(5);
   world.accessPort("Ethernet1", 101);
   auto const role = [&](uint16_t number) -> std::string {
      for (Rule const& rule : explain(state, "Ethernet1", number).rules)
         if (rule.name == "VLAN role")
            return rule.finding;
      return "";
   };
   world.member(101, "Ethernet1", false);
   EXPECT_EQ(role(100), "the primary of VLAN 101 and 102");
   EXPECT_EQ(role(101), "a secondary of VLAN 100, in which the port only receives; it sends in VLAN 100");
   EXPECT_EQ(role(102), "a secondary of VLAN 100");
   EXPECT_EQ(role(30), "a secondary of nobody: VLAN 300, which it names, doesn't exist");
   EXPECT_EQ(role(5), "");
}

TEST_F(PrivateVlanTest, whyTellsWhichWayThePortTakesPartInASecondary) {
   world.vlan(100);
   secondary(101, 100);
   world.accessPort("Ethernet1", 100)->defaultPrivateVlanMappingIs(true);
   world.trunkPort("Ethernet2", "1-4094");
   world.trunkPort("Ethernet3", "1-4094")->trunkPrivateVlanMappingIs(true);
   for (char const* port : {"Ethernet1", "Ethernet2", "Ethernet3"})
      world.member(101, port, false);
   auto const role = [&](char const* port) -> std::string {
      for (Rule const& rule : explain(state, port, 101).rules)
         if (rule.name == "VLAN role")
            return rule.finding;
      return "";
   };
   EXPECT_EQ(role("Ethernet1"),
             "a secondary of VLAN 100, in which the port only sends; it receives in VLAN 100");
   EXPECT_EQ(role("Ethernet2"), "a secondary of VLAN 100");
   EXPECT_EQ(role("Ethernet3"),
             "a secondary of VLAN 100, in which the port only receives (trunkPrivateVlanMapping)");
   EXPECT_EQ(role("Cpu"), "a secondary of VLAN 100");
   state.config->vlanConfig(101)->intfDel("Ethernet3");
   EXPECT_EQ(role("Ethernet3"), "a secondary of VLAN 100") << "it is no member";
}

TEST_F(PrivateVlanTest, whyTellsWhatServesTheProcessorInASecondary) {
   auto const primary = world.vlan(100);
   auto const vlan = secondary(101, 100);
   EXPECT_EQ(cpuDecision(101), "no: its primary VLAN 100 has no active VLAN interface");
   primary->intfIs("Cpu", {.tagged = true});
   state.config->sviMappingIs(100);
   EXPECT_EQ(cpuDecision(101), "no: the interface of its primary VLAN 100 doesn't serve it");
   EXPECT_THAT(explain(state, "Cpu", 101).advice[0], HasSubstr("cli.sviMapping[100].secondaryVlan[101]"));
   vlan->adminStateIs(VlanAdminState::suspended);
   EXPECT_EQ(cpuDecision(101), "no: the VLAN is suspended");
   vlan->adminStateIs(VlanAdminState::active);
   vlan->intfIs("Cpu", {.tagged = true});
   EXPECT_EQ(cpuDecision(101), "yes: the interface of its primary VLAN 100 serves it");
}

} // namespace
