#include "Vorn/KernelDevices/VlanDevice.h"

#include "Kem/TestTrace.h"
#include "Netlink/TestChannel.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/KernelDevices/TestRequest.h"
#include "Vorn/KernelDevices/TestScript.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sched.h>

namespace {

using Vorn::createVlanDevice;
using Vorn::numberBytes;
using Vorn::vlan10Request;
using VlanDeviceLines = std::vector<std::string>;

uint32_t sequenceOf(std::string const& request) {
   uint32_t sequence;
   std::memcpy(&sequence, request.data() + offsetof(nlmsghdr, nlmsg_seq), sizeof sequence);
   return sequence;
}

struct CreateVlanDeviceTest : testing::Test {
   CreateVlanDeviceTest() { kernel.deviceIs("fabric").isUp = true; }
   Vorn::VlanCreateStatus vlan10Is(Sulvi::NamespaceName netNs = {}) {
      return createVlanDevice("fabric", "vlan10", 10, route, std::move(netNs));
   }

   Kem::TestTrace trace;
   Netlink::FakeKernel kernel;
   int const route = kernel.routeSocket();
   int const socket = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "");
};

TEST_F(CreateVlanDeviceTest, requestIsThisToTheByte) {
   for (auto const* const netNs : {"", "default"}) {
      EXPECT_EQ(vlan10Is(netNs), Vorn::VlanCreated);
      EXPECT_EQ(kernel.lastRequest(), vlan10Request(sequenceOf(kernel.lastRequest()), 2));
      kernel.deviceDel("vlan10");
   }
   EXPECT_EQ(kernel.count("open"), 0);
   EXPECT_EQ(kernel.count("close"), 0);
   EXPECT_EQ(trace.take(), VlanDeviceLines{});
}

TEST_F(CreateVlanDeviceTest, requestForANamespaceEndsWithItsDescriptor) {
   kernel.namespaceIs("red");
   int const nextFd = kernel.getnsByName("red", CLONE_NEWNET) + 1;
   EXPECT_EQ(vlan10Is("red"), Vorn::VlanCreated);
   EXPECT_EQ(kernel.lastRequest(), vlan10Request(sequenceOf(kernel.lastRequest()), 2, nextFd));
   EXPECT_TRUE(kernel.findDevice("vlan10", "red"));
   EXPECT_EQ(kernel.openDescriptors(), 3); // route, socket, and that of the test
}

TEST_F(CreateVlanDeviceTest, aDeviceThatExistsIsSaidSo) {
   EXPECT_EQ(vlan10Is(), Vorn::VlanCreated);
   EXPECT_EQ(vlan10Is(), Vorn::VlanExists);
   EXPECT_EQ(trace.take(), VlanDeviceLines{"RTNETLINK answer: File exists"});
}

TEST_F(CreateVlanDeviceTest, withoutTheBaseNothingIsSent) {
   kernel.deviceDel("fabric");
   EXPECT_EQ(vlan10Is(), Vorn::VlanNoBase);
   EXPECT_EQ(kernel.count("sendmsg"), 0);
   EXPECT_EQ(trace.take(),
             VlanDeviceLines{"if_nametoindex() error adding Vlan 10 to interface fabric No such device"});
}

TEST_F(CreateVlanDeviceTest, withoutTheNamespaceNothingIsSent) {
   EXPECT_EQ(vlan10Is("red"), Vorn::VlanNoNamespace);
   EXPECT_EQ(kernel.count("sendmsg"), 0);
   EXPECT_EQ(trace.take(), VlanDeviceLines{"Cannot getns red to interface 10: fabric"});
}

TEST_F(CreateVlanDeviceTest, otherErrorsAreTracedAndTheNamespaceIsClosed) {
   kernel.namespaceIs("red");
   kernel.fail("sendmsg", ENOBUFS);
   EXPECT_EQ(vlan10Is("red"), Vorn::VlanRefused);
   EXPECT_EQ(errno, ENOBUFS);
   EXPECT_EQ(trace.take(),
             (VlanDeviceLines{"rtnetlink sendmsg error: -1",
                              "Error adding Vlan 10 to interface fabric: No buffer space available (105)"}));
   EXPECT_EQ(kernel.openDescriptors(), 2);
   kernel.fail("answer", ENODEV);
   EXPECT_EQ(vlan10Is("red"), Vorn::VlanRefused);
   EXPECT_EQ(vlan10Is("red"), Vorn::VlanCreated);
}

TEST_F(CreateVlanDeviceTest, anErrorOfTheKernelBlocks) {
   kernel.rightIs(false);
   EXPECT_THROW(vlan10Is(), Netlink::FakeKernel::Blocked);
   EXPECT_EQ(trace.take(),
             (VlanDeviceLines{"RTNETLINK answer: Operation not permitted", "Unexpected reply"}));
}

TEST_F(CreateVlanDeviceTest, aNameThatFillsTheRequestIsAnAssertionOnlyWithANamespace) {
   kernel.namespaceIs("red");
   EXPECT_DEATH(createVlanDevice("fabric", std::string(4052, 'n'), 10, route, "red"),
                "Assertion \"rc == 0\" failed");
   // The kernel refuses these names; nothing is written behind the request.
   EXPECT_THROW(createVlanDevice("fabric", std::string(4052, 'n'), 10, route, ""),
                Netlink::FakeKernel::Blocked);
   for (size_t length = 4053; length < 4200; ++length)
      EXPECT_ANY_THROW(createVlanDevice("fabric", std::string(length, 'n'), 10, route, "")) << length;
}

TEST_F(CreateVlanDeviceTest, aNamespaceThatCantBeClosedIsAnAssertion) {
   kernel.namespaceIs("red");
   kernel.fail("close", EIO);
   EXPECT_DEATH(vlan10Is("red"), "Assertion \"close\\( netns \\) == 0\" failed");
}

// --- Ioctls.

std::string vlanArguments(int command, std::string const& name, uint32_t value = 0, uint16_t qos = 0) {
   std::string bytes = numberBytes(static_cast<uint32_t>(command)) + name +
                       std::string(24 - name.size(), '\0') + numberBytes(value) + std::string(20, '\0');
   bytes += static_cast<char>(qos);
   return bytes + std::string(3, '\0');
}

struct VlanIoctlTest : testing::Test {
   static constexpr unsigned long siocsifvlan = 0x8983;
   using Ioctls = std::vector<std::pair<unsigned long, std::string>>;
   Kem::TestTrace trace;
   Vorn::ScriptedKernel kernel;
};

TEST_F(VlanIoctlTest, argumentsAreTheseToTheByte) {
   EXPECT_EQ(Vorn::destroyVlanDevice("vlan10", 5), 0);
   EXPECT_EQ(Vorn::setVlanDeviceEgressMap("vlan10", 7, 6, 5), 0);
   EXPECT_EQ(Vorn::setVlanDeviceNameType(5), 0);
   EXPECT_EQ(kernel.ioctls, (Ioctls{{siocsifvlan, vlanArguments(1, "vlan10")},
                                    {siocsifvlan, vlanArguments(3, "vlan10", 7, 6)},
                                    {siocsifvlan, vlanArguments(6, "", 2)}}));
   EXPECT_EQ(kernel.lastFd, 5);
   EXPECT_EQ(trace.take(), VlanDeviceLines{});
}

TEST_F(VlanIoctlTest, namesAreCutAtTwentyFourBytes) {
   Vorn::destroyVlanDevice("an-interface-name-of-twenty-nine", 5);
   Vorn::destroyVlanDevice(std::string("with\0zero", 9), 5);
   EXPECT_EQ(kernel.ioctls, (Ioctls{{siocsifvlan, vlanArguments(1, "an-interface-name-of-twe")},
                                    {siocsifvlan, vlanArguments(1, "with")}}));
}

TEST_F(VlanIoctlTest, failuresAreTracedAndReturned) {
   kernel.onIoctl = [](unsigned long, void*) { return EPERM; };
   EXPECT_EQ(Vorn::destroyVlanDevice("vlan10", 5), -1);
   EXPECT_EQ(errno, EPERM);
   EXPECT_EQ(Vorn::setVlanDeviceEgressMap("vlan10", 7, 7, 5), -1);
   EXPECT_EQ(errno, EPERM);
   EXPECT_EQ(trace.take(),
             (VlanDeviceLines{"Error removing Vlan device vlan10 Operation not permitted 1",
                              "Error setting vlan device egress map for vlan10 Operation not permitted 1"}));
   EXPECT_EQ(Vorn::setVlanDeviceNameType(5), -1);
   EXPECT_EQ(trace.take(), VlanDeviceLines{});
}

} // namespace
