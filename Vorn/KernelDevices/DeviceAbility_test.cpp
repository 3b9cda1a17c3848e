#include "Vorn/KernelDevices/DeviceAbility.h"

#include "Kem/Time.h"
#include "NetlinkTesting/FakeKernel.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using Vorn::DeviceAbility;
using Vorn::ExistingDevice;

struct DeviceAbilityTest : testing::Test {
   DeviceAbilityTest() { kernel.deviceIs("fabric").isUp = true; }
   Kem::VirtualTime time;
   Netlink::FakeKernel kernel;
   int const fd = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "");
   DeviceAbility ability;
};

TEST_F(DeviceAbilityTest, aKernelThatCanIsAskedOnce) {
   EXPECT_EQ(ability.kernelProblem(fd), "");
   time.advanceTo(Kem::now() + 10);
   EXPECT_EQ(ability.kernelProblem(fd), "");
   EXPECT_EQ(kernel.count("SET_VLAN_NAME_TYPE_CMD"), 1);
}

TEST_F(DeviceAbilityTest, aKernelThatCantIsAskedAgainEachSecond) {
   kernel.has8021q(false);
   EXPECT_EQ(ability.kernelProblem(fd), "the kernel has no 802.1Q");
   kernel.has8021q(true);
   kernel.rightIs(false);
   time.advanceTo(Kem::now() + 0.9);
   EXPECT_EQ(ability.kernelProblem(fd), "the kernel has no 802.1Q");
   EXPECT_EQ(kernel.count("SET_VLAN_NAME_TYPE_CMD"), 1);
   time.advanceTo(Kem::now() + 0.1);
   EXPECT_EQ(ability.kernelProblem(fd), "no right to change network devices (CAP_NET_ADMIN)");
   kernel.rightIs(true);
   kernel.fail("SET_VLAN_NAME_TYPE_CMD", ENOMEM);
   time.advanceTo(Kem::now() + 1);
   EXPECT_EQ(ability.kernelProblem(fd), "the kernel makes no VLAN devices: Cannot allocate memory");
   time.advanceTo(Kem::now() + 1);
   EXPECT_EQ(ability.kernelProblem(fd), "");
   EXPECT_EQ(kernel.count("SET_VLAN_NAME_TYPE_CMD"), 4);
}

TEST_F(DeviceAbilityTest, namesThatTheKernelDoesntTake) {
   EXPECT_EQ(DeviceAbility::nameProblem("et100000000.409"), "");
   EXPECT_EQ(DeviceAbility::nameProblem("et1000000000_1.4094"),
             "device name et1000000000_1.4094 is longer than 15 characters");
   for (auto const* const name : {"", ".", "..", "a/b", "a:b", "a b", "a\tb", "a%d"})
      EXPECT_EQ(DeviceAbility::nameProblem(name),
                "device name \"" + std::string(name) + "\" is not one that the kernel takes");
   EXPECT_NE(DeviceAbility::nameProblem(std::string("a\0b", 3)), "");
}

TEST_F(DeviceAbilityTest, aBaseThatCarriesVlansIsRememberedByItsNumber) {
   EXPECT_EQ(ability.baseProblem("fabric", fd), "");
   auto const asked = kernel.count("SIOCETHTOOL");
   EXPECT_GT(asked, 0);
   EXPECT_EQ(ability.baseProblem("fabric", fd), "");
   EXPECT_EQ(kernel.count("SIOCETHTOOL"), asked);
   kernel.countsReset();
   auto const index = static_cast<uint32_t>(kernel.findDevice("fabric")->index);
   EXPECT_EQ(ability.baseProblem("fabric", fd, index), "");
   EXPECT_EQ(kernel.count("ioctl"), 0);
   // Another device of that name.
   kernel.deviceDel("fabric");
   kernel.deviceIs("fabric").carriesVlans = false;
   EXPECT_EQ(ability.baseProblem("fabric", fd), "device fabric can't carry VLANs");
   EXPECT_EQ(ability.baseProblem("lo", fd), "device lo can't carry VLANs");
}

TEST_F(DeviceAbilityTest, aBaseThatIsMissingIsNoProblemHere) {
   EXPECT_EQ(ability.baseProblem("et1", fd), "");
}

TEST_F(DeviceAbilityTest, aBaseThatCantBeAskedIsAProblemUntilItCan) {
   kernel.fail("SIOCGIFINDEX", ENOMEM);
   EXPECT_EQ(ability.baseProblem("fabric", fd),
             "what device fabric can carry is not known: Cannot allocate memory");
   for (int nth = 1; nth <= 3; ++nth) {
      kernel.fail("SIOCETHTOOL", EPERM, nth);
      EXPECT_EQ(ability.baseProblem("fabric", fd),
                "what device fabric can carry is not known: Operation not permitted");
   }
   EXPECT_EQ(ability.baseProblem("fabric", fd), "");
}

TEST_F(DeviceAbilityTest, aKernelWithoutTheQuestionLetsEachBaseThrough) {
   kernel.fail("SIOCETHTOOL", EOPNOTSUPP);
   EXPECT_EQ(ability.baseProblem("fabric", fd), "");
}

TEST_F(DeviceAbilityTest, existingDevicesAreVlanDevicesOrOthers) {
   kernel.vlanDeviceIs("vlan10", "fabric", 10);
   kernel.deviceIs("vlan9", "bridge");
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), (ExistingDevice{ExistingDevice::vlan, 10, "fabric"}));
   EXPECT_EQ(Vorn::existingDevice("vlan9", fd), (ExistingDevice{.kind = ExistingDevice::other}));
   EXPECT_EQ(Vorn::existingDevice("vlan8", fd), ExistingDevice());
   kernel.fail("GET_VLAN_VID_CMD", ENOMEM);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd),
             (ExistingDevice{.kind = ExistingDevice::unknown, .error = ENOMEM}));
   kernel.fail("GET_VLAN_REALDEV_NAME_CMD", ENODEV); // deleted meanwhile
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), ExistingDevice());
   kernel.rightIs(false);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd).vlanId, 10);
}

} // namespace
