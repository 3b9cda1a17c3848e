#include "Vorn/Rules/AllowedVlans.h"

#include <gtest/gtest.h>

namespace {

using Bridging::Input::SwitchIntfConfig;
using InputMode = Bridging::Input::SwitchportMode;

struct AllowedVlansTest : testing::Test {
   AllowedVlansTest() {
      record->trunkAllowedVlansIs("10-12");
      record->tapAllowedVlansIs("20,21");
      record->toolAllowedVlansIs("30");
      record->asymVlansIs("40-42");
   }
   Kem::Ptr<SwitchIntfConfig> const record = SwitchIntfConfig::make("Ethernet1");
};

TEST_F(AllowedVlansTest, tapAndToolHaveListsOfTheirOwnAndAllOthersThatOfATrunk) {
   struct Case {
      InputMode mode;
      char const* attribute;
      char const* list;
      char const* vlans;
   };
   for (Case const& each : {Case{InputMode::access_, "trunkAllowedVlans", "10-12", "10-12"},
                            {InputMode::trunk_, "trunkAllowedVlans", "10-12", "10-12"},
                            {InputMode::dot1qTunnel_, "trunkAllowedVlans", "10-12", "10-12"},
                            {InputMode::tap_, "tapAllowedVlans", "20,21", "20-21"},
                            {InputMode::tool_, "toolAllowedVlans", "30", "30"},
                            {InputMode::routed_, "trunkAllowedVlans", "10-12", "10-12"}})
      for (bool const isEnabled : {true, false}) {
         record->switchportModeIs(each.mode);
         record->enabledIs(isEnabled);
         auto const allowed = Vorn::allowedVlans(*record);
         EXPECT_STREQ(allowed.attribute, each.attribute);
         EXPECT_EQ(allowed.list.view(), each.list);
         EXPECT_EQ(allowed.vlans.text(), each.vlans);
         EXPECT_EQ(allowed.leftOut, "");
      }
}

TEST_F(AllowedVlansTest, itemsThatAreNoVlanNumbersAreNamedAndTheOthersCount) {
   record->switchportModeIs(InputMode::trunk_);
   record->trunkAllowedVlansIs("7,bad,9-5,8");
   auto const allowed = Vorn::allowedVlans(*record);
   EXPECT_EQ(allowed.vlans.text(), "7-8");
   EXPECT_EQ(allowed.leftOut, "bad,9-5");
}

TEST_F(AllowedVlansTest, accessPortWithAListIsAsymmetric) {
   EXPECT_TRUE(Vorn::isAsymmetric(*record));
   EXPECT_EQ(Vorn::asymVlans(*record).vlans.text(), "40-42");
   record->asymVlansIs("40,no,5000");
   EXPECT_EQ(Vorn::asymVlans(*record).vlans.text(), "40");
   EXPECT_EQ(Vorn::asymVlans(*record).leftOut, "no,5000");
   // A list without any VLAN is still a list.
   record->asymVlansIs(",");
   EXPECT_TRUE(Vorn::isAsymmetric(*record));
   EXPECT_TRUE(Vorn::asymVlans(*record).vlans.empty());
   record->asymVlansIs("");
   EXPECT_FALSE(Vorn::isAsymmetric(*record));
}

TEST_F(AllowedVlansTest, otherModesIgnoreTheAsymmetricList) {
   for (InputMode const mode :
        {InputMode::trunk_, InputMode::dot1qTunnel_, InputMode::tap_, InputMode::tool_, InputMode::routed_}) {
      record->switchportModeIs(mode);
      EXPECT_FALSE(Vorn::isAsymmetric(*record)) << static_cast<int>(mode);
      EXPECT_TRUE(Vorn::asymVlans(*record).vlans.empty()) << static_cast<int>(mode);
   }
}

TEST_F(AllowedVlansTest, subinterfaceHasNeitherSet) {
   auto const subintf = SwitchIntfConfig::make("Ethernet1.7", InputMode::trunk_);
   EXPECT_FALSE(Vorn::hasVlanSets("Ethernet1.7"));
   EXPECT_TRUE(Vorn::hasVlanSets("Ethernet1"));
   EXPECT_TRUE(Vorn::allowedVlans(*subintf).vlans.empty());
   subintf->switchportModeIs(InputMode::access_);
   subintf->asymVlansIs("40");
   EXPECT_TRUE(Vorn::asymVlans(*subintf).vlans.empty());
}

TEST_F(AllowedVlansTest, dynamicSourcesReachAllModesButTapAndTool) {
   for (auto const mode : {InputMode::access_, InputMode::trunk_, InputMode::dot1qTunnel_, InputMode::tap_,
                           InputMode::tool_, InputMode::routed_}) {
      record->switchportModeIs(mode);
      bool const isReached = mode != InputMode::tap_ && mode != InputMode::tool_;
      EXPECT_EQ(Vorn::takesDynamicVlans(*record), isReached) << static_cast<int>(mode);
      EXPECT_EQ(Vorn::takesDynAllowedVlans(*record), isReached) << static_cast<int>(mode);
   }
}

TEST(AllowedVlans, dynamicListsAreNotForPortsInsideTheSwitch) {
   for (char const* name : {"Ethernet65536", "Port-Channel65536", "Ethernet1.5"}) {
      auto const record = SwitchIntfConfig::make(name);
      record->switchportModeIs(InputMode::trunk_);
      EXPECT_EQ(Vorn::takesDynamicVlans(*record), name != std::string("Ethernet1.5")) << name;
      EXPECT_FALSE(Vorn::takesDynAllowedVlans(*record)) << name;
   }
}

} // namespace
