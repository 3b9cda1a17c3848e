#include "Vorn/Rules/PortMode.h"

#include <gtest/gtest.h>

namespace {

using Bridging::SwitchportMode;
using InputMode = Bridging::Input::SwitchportMode;

TEST(PortMode, recordThatIsNotEnabledAsksForARoutedPortWhateverItsMode) {
   for (InputMode const mode : {InputMode::access_, InputMode::trunk_, InputMode::dot1qTunnel_,
                                InputMode::tap_, InputMode::tool_, InputMode::routed_}) {
      auto const record = Bridging::Input::SwitchIntfConfig::make("Ethernet1", mode);
      EXPECT_EQ(Vorn::effectiveMode(*record), static_cast<SwitchportMode>(mode));
      record->enabledIs(false);
      EXPECT_EQ(Vorn::effectiveMode(*record), SwitchportMode::routed_);
   }
}

TEST(PortMode, trunkTapAndToolPortsHaveAllowedVlans) {
   for (auto const& [mode, has] : {std::pair(SwitchportMode::access_, false),
                                   {SwitchportMode::trunk_, true},
                                   {SwitchportMode::dot1qTunnel_, false},
                                   {SwitchportMode::tap_, true},
                                   {SwitchportMode::tool_, true},
                                   {SwitchportMode::routed_, false}})
      EXPECT_EQ(Vorn::hasAllowedVlans(mode), has) << static_cast<int>(mode);
}

TEST(PortMode, eachModeNamesItsNativeVlan) {
   auto const record = Bridging::Input::SwitchIntfConfig::make("Ethernet1");
   record->accessVlanIs(10);
   record->trunkNativeVlanIs(20);
   record->tapNativeVlanIs(30);
   struct Case {
      SwitchportMode mode;
      uint16_t vlanId;
      bool mustExist;
   };
   for (Case const& each : {Case{SwitchportMode::access_, 10, true},
                            {SwitchportMode::trunk_, 20, true},
                            {SwitchportMode::dot1qTunnel_, 10, true},
                            {SwitchportMode::tap_, 30, false},
                            {SwitchportMode::tool_, 1, false},
                            {SwitchportMode::routed_, 0, false}}) {
      auto const native = Vorn::configuredNativeVlan(*record, each.mode);
      EXPECT_EQ(native.vlanId, each.vlanId) << static_cast<int>(each.mode);
      EXPECT_EQ(native.mustExist, each.mustExist) << static_cast<int>(each.mode);
   }
   record->trunkNativeVlanIs(0);
   EXPECT_EQ(Vorn::configuredNativeVlan(*record, SwitchportMode::trunk_).vlanId, 0);
}

} // namespace
