#include "SyncMtu/SyncMtu.h"

#include "Kem/TestTrace.h"
#include "NetlinkTesting/FakeKernel.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/Interface/VlanIntfStatusLocal.h"
#include "records/Interface/VlanIntfStatusLocalDir.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using Lines = std::vector<std::string>;

struct SyncMtuTest : testing::Test {
   SyncMtuTest() {
      kernel.deviceIs("fabric").mtu = 9214;
      kernel.vlanDeviceIs("vlan10", "fabric", 10).mtu = 1500;
      status->maxMtuIs(9214);
      local->netNsNameIs("default");
   }
   bool sync(bool isWithoutMaxMtu = false, bool isOnAnotherDevice = true) {
      return Interface::syncMtu(status, local, config, isWithoutMaxMtu, isOnAnotherDevice, fd);
   }
   unsigned mtu() { return kernel.findDevice("vlan10")->mtu; }
   void baseMtuIs(unsigned mtu) { kernel.findDevice("fabric")->mtu = mtu; }

   Kem::TestTrace trace;
   Netlink::FakeKernel kernel;
   Sulvi::IntfId const intfId{"Vlan10"};
   Kem::Ptr<Interface::VlanIntfConfigDir> configs = Interface::VlanIntfConfigDir::make();
   Kem::Ptr<Interface::VlanIntfStatusDir> statuses = Interface::VlanIntfStatusDir::make();
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> locals = Interface::VlanIntfStatusLocalDir::make();
   Kem::Ptr<Interface::VlanIntfConfig> config = configs->intfConfigIs(intfId);
   Kem::Ptr<Interface::VlanIntfStatus> status = statuses->intfStatusIs(intfId);
   Kem::Ptr<Interface::VlanIntfStatusLocal> local = locals->intfStatusLocalIs(intfId);
   int const fd = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "");
};

TEST_F(SyncMtuTest, deviceGetsTheMtuOfTheConfigurationInOneCall) {
   config->mtuIs(9000);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 9000u);
   EXPECT_EQ(kernel.count("ioctl"), 1);
   EXPECT_EQ(trace.take(), Lines{});
}

TEST_F(SyncMtuTest, zeroIs1500) {
   kernel.findDevice("vlan10")->mtu = 9000;
   config->mtuIs(0);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 1500u);
}

TEST_F(SyncMtuTest, maxMtuIsABoundUnlessItIsNotKnownOrNotAsked) {
   config->mtuIs(9000);
   status->maxMtuIs(2000);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 2000u);
   EXPECT_TRUE(sync(true));
   EXPECT_EQ(mtu(), 9000u);
   status->maxMtuIs(0);
   config->mtuIs(9100);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 9100u);
}

TEST_F(SyncMtuTest, limitsOfTheRange) {
   config->mtuIs(68);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 68u);
   baseMtuIs(65535);
   status->maxMtuIs(0);
   config->mtuIs(65535);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 65535u);
}

TEST_F(SyncMtuTest, whatIsOutOfRangeCountsAsNotConfigured) {
   for (uint32_t const wanted : {1u, 67u, 65536u, 70000u, 0xffffffffu}) {
      config->mtuIs(1400);
      EXPECT_TRUE(sync());
      EXPECT_EQ(mtuProblem(*config), "");
      config->mtuIs(wanted);
      EXPECT_TRUE(sync());
      EXPECT_EQ(mtu(), 1500u) << wanted;
      EXPECT_EQ(mtuProblem(*config),
                "MTU " + std::to_string(wanted) + " is not from 68 to 65535: the device has 1500");
   }
   config->mtuIs(0);
   EXPECT_EQ(mtuProblem(*config), "");
}

TEST_F(SyncMtuTest, aMaximumBelowTheLeastMtuIsNotKnown) {
   config->mtuIs(1400);
   status->maxMtuIs(40);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 1400u);
}

TEST_F(SyncMtuTest, theDeviceBelowIsABound) {
   baseMtuIs(4321);
   config->mtuIs(9000);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 4321u);
   EXPECT_EQ(trace.take(),
             Lines{"device vlan10 has MTU 4321 instead of 9000: the device that it is on carries "
                   "no more"});
   kernel.countsReset();
   EXPECT_TRUE(sync());
   EXPECT_EQ(kernel.count("ioctl"), 3); // what is wanted, what there is, and one more than that
   baseMtuIs(9214);
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 9000u);
}

TEST_F(SyncMtuTest, theLargestIsFoundAtEveryDistance) {
   config->mtuIs(1600);
   for (unsigned base = 1500; base < 1600; ++base) {
      kernel.findDevice("vlan10")->mtu = 1500;
      baseMtuIs(base);
      EXPECT_TRUE(sync());
      EXPECT_EQ(mtu(), base);
   }
}

TEST_F(SyncMtuTest, onNoOtherDeviceItIsRefused) {
   baseMtuIs(4321);
   config->mtuIs(9000);
   EXPECT_TRUE(sync(false, false));
   EXPECT_EQ(mtu(), 1500u);
   EXPECT_EQ(trace.take(),
             Lines{"MTU of device vlan10 in namespace \"default\" can't be set to 9000: Numerical "
                   "result out of range"});
}

TEST_F(SyncMtuTest, failuresAreTriedAgain) {
   config->mtuIs(9000);
   for (int const error : {ENOBUFS, ENOMEM, EPERM, ENODEV, EINTR, EBUSY}) {
      kernel.fail("SIOCSIFMTU", error);
      EXPECT_FALSE(sync());
      EXPECT_EQ(trace.take().size(), 1u);
   }
   kernel.fail("SIOCSIFMTU", EINVAL);
   EXPECT_TRUE(sync());
   baseMtuIs(4000);
   kernel.fail("SIOCGIFMTU", ENOMEM);
   EXPECT_FALSE(sync());
   kernel.fail("SIOCSIFMTU", ENOMEM, 3);
   EXPECT_FALSE(sync());
   EXPECT_TRUE(sync());
   EXPECT_EQ(mtu(), 4000u);
   kernel.deviceDel("vlan10");
   EXPECT_FALSE(sync());
}

TEST_F(SyncMtuTest, nameOfTheStatusComesFirst) {
   kernel.deviceIs("other");
   status->deviceNameIs("other");
   config->mtuIs(1400);
   EXPECT_TRUE(sync());
   EXPECT_EQ(kernel.findDevice("other")->mtu, 1400u);
   EXPECT_EQ(mtu(), 1500u);
}

TEST_F(SyncMtuTest, aSubinterfaceIsFoundByItsKernelName) {
   kernel.deviceIs("et3_1.100");
   status = statuses->intfStatusIs(Sulvi::IntfId("Ethernet3/1.100"));
   config->mtuIs(1400);
   EXPECT_TRUE(sync());
   EXPECT_EQ(kernel.findDevice("et3_1.100")->mtu, 1400u);
}

TEST_F(SyncMtuTest, aNameThatIsTooLongReachesNoOtherDevice) {
   kernel.deviceIs("et1000000000_1.").mtu = 1500;
   status = statuses->intfStatusIs(Sulvi::IntfId("Ethernet1000000000/1.4094"));
   config->mtuIs(1400);
   EXPECT_TRUE(sync());
   EXPECT_EQ(kernel.count("ioctl"), 0);
}

TEST_F(SyncMtuTest, withoutASocketOrARecordNothingIsDone) {
   EXPECT_TRUE(Interface::syncMtu(status, local, config, false, true, 0));
   EXPECT_TRUE(Interface::syncMtu(nullptr, local, config, false, true, fd));
   EXPECT_TRUE(Interface::syncMtu(status, local, nullptr, false, true, fd));
   EXPECT_EQ(kernel.count("ioctl"), 0);
   config->mtuIs(1400);
   EXPECT_TRUE(Interface::syncMtu(status, nullptr, config, false, true, fd));
   EXPECT_EQ(mtu(), 1400u);
}

} // namespace
