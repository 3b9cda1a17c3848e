#include "Vorn/Rules/PrivateVlans.h"

#include "records/Bridging/SviMappingState.h"

#include <gtest/gtest.h>

namespace {

using Mode = Bridging::Input::SwitchportMode;

TEST(PrivateVlanRulesTest, trunkThatAsksForItMapsPrimaryVlansEnabledOrNot) {
   auto const record = Bridging::Input::SwitchIntfConfig::make("Ethernet1", Mode::trunk_);
   EXPECT_FALSE(Vorn::mapsPrimaryVlans(*record));
   record->trunkPrivateVlanMappingIs(true);
   EXPECT_TRUE(Vorn::mapsPrimaryVlans(*record));
   record->enabledIs(false);
   EXPECT_TRUE(Vorn::mapsPrimaryVlans(*record));
   for (Mode const mode : {Mode::access_, Mode::dot1qTunnel_, Mode::tap_, Mode::tool_}) {
      record->switchportModeIs(mode);
      EXPECT_FALSE(Vorn::mapsPrimaryVlans(*record)) << static_cast<unsigned>(mode);
   }
}

TEST(PrivateVlanRulesTest, interfaceServesAllUnlessItsMappingNamesSome) {
   auto const config = Bridging::Config::make();
   EXPECT_TRUE(Vorn::isServed(*config, 10, 30)) << "no mapping";
   auto const mapping = config->sviMappingIs(10);
   mapping->defaultSviMappingIs(false);
   mapping->secondaryVlanIs(20, true);
   EXPECT_TRUE(Vorn::isServed(*config, 10, 20));
   EXPECT_FALSE(Vorn::isServed(*config, 10, 30));
   EXPECT_TRUE(Vorn::isServed(*config, 11, 30)) << "of another primary";
   mapping->defaultSviMappingIs(true);
   EXPECT_TRUE(Vorn::isServed(*config, 10, 30));
}

TEST(PrivateVlanRulesTest, entryIsOfTheSingleTagOnly) {
   EXPECT_EQ(Vorn::primaryVlanKey(100), (Bridging::VlanXlateKey{.outerVlanId = 100, .innerVlanId = 0}));
   auto const mapping = Vorn::secondaryVlanMapping(101);
   EXPECT_EQ(mapping, (Bridging::VlanXlateMapping{.mappedVlanId = 101}));
}

} // namespace
