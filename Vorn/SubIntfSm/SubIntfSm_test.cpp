#include "Vorn/SubIntfSm/SubIntfSm.h"

#include "Vorn/SubIntfSm/TestSubIntfs.h"

namespace Vorn {
namespace {

using Interface::EnabledState;

class SubIntfSmTest : public testing::Test {
  public:
   Kem::TestTrace trace{"Vorn*/0-9"};
   TestSubIntfs world;

   void TearDown() override {
      if (HasFailure())
         for (auto const& line : trace.take())
            std::cout << "   " << line << "\n";
   }
};

TEST_F(SubIntfSmTest, AConfiguredSubinterfaceBecomesADeviceOnItsParent) {
   world.subIntf("Ethernet1.10", 100)->mtuIs(1400);
   world.start();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1400, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   auto const status = world.statusDir->intfStatus("Ethernet1.10");
   EXPECT_EQ(status->deviceName(), "et1.10");
   EXPECT_EQ(status->addr(), world.addr(world.bridgeAddr));
   EXPECT_EQ(status->maxMtu(), 9214u);
   EXPECT_EQ(world.kernel.findDevice("et1.10")->egress, (std::map<uint32_t, uint32_t>{{7, 7}}));
   EXPECT_TRUE(world.isMirrored("Ethernet1.10"));
   EXPECT_TRUE(world.sm->retryIntfCollection().empty());
   EXPECT_TRUE(world.sm->intfBackLog().empty());
   EXPECT_EQ(world.problem("Ethernet1.10"), "");
}

} // namespace
} // namespace Vorn
