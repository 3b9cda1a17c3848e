// What the tests of VLAN interfaces have in common: a world and its trace, which is printed where a test fails.
#pragma once

#include "Vorn/VlanIntfSm/TestVlanIntfs.h"

#include <iostream>

namespace Vorn {

class VlanIntfSmTest : public testing::Test {
  public:
   Kem::TestTrace trace{"Vorn*/0-9"};
   TestVlanIntfs world;

   void TearDown() override {
      if (HasFailure())
         for (auto const& line : trace.take())
            std::cout << "   " << line << "\n";
   }
   Kem::Ptr<Bridging::VlanConfig> vlan(unsigned vlanId) {
      return world.config->vlanConfigIs(static_cast<uint16_t>(vlanId), false);
   }
};

} // namespace Vorn
