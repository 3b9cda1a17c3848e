#include "KernelOperState/KernelOperStateManager.h"

#include "Kem/TestTrace.h"
#include "KernelOperState/TestKernel.h"
#include "Netlink/TestNamespace.h"
#include "NetlinkTesting/FakeKernel.h"

#include <gtest/gtest.h>

#include <fstream>
#include <linux/if.h>

namespace {

using Interface::IntfOperStatus;
using KernelOperState::KernelOperStateManager;

TEST(KernelOperStateManager, kernelIsToldOneOfTheThreeStatesThatItTakes) {
   KernelOperState::TestKernel kernel;
   auto const kosm = kernel.manager();
   EXPECT_EQ(kosm->doSetOperState("vlan10", IntfOperStatus::intfOperUp), 0);
   EXPECT_EQ(kernel.take(), ":vlan10=6;");
   EXPECT_EQ(kosm->doSetOperState("vlan10", IntfOperStatus::intfOperTesting), 0);
   EXPECT_EQ(kernel.take(), ":vlan10=4;");
   for (auto const status : {IntfOperStatus::intfOperDown, IntfOperStatus::intfOperUnknown,
                             IntfOperStatus::intfOperDormant, IntfOperStatus::intfOperNotPresent,
                             IntfOperStatus::intfOperLowerLayerDown, static_cast<IntfOperStatus>(99)}) {
      EXPECT_EQ(kosm->doSetOperState("vlan10", status), 0);
      EXPECT_EQ(kernel.take(), ":vlan10=5;");
   }
}

TEST(KernelOperStateManager, namespaceIsEnteredOnceAndAgainAfterItWent) {
   KernelOperState::TestKernel kernel;
   auto const kosm = kernel.manager();
   for (int i = 0; i < 2; ++i) {
      kosm->doSetOperState("a", IntfOperStatus::intfOperUp, "red");
      kosm->doSetOperState("b", IntfOperStatus::intfOperUp);
      kosm->doSetOperState("c", IntfOperStatus::intfOperUp, "default");
   }
   EXPECT_EQ(kernel.take(), "red:a=6;:b=6;:c=6;red:a=6;:b=6;:c=6;");
   EXPECT_EQ(kernel.opened, "red;;");
   kosm->netNsDel("red");
   kosm->netNsDel("default");
   kosm->netNsDel("blue");
   kosm->doSetOperState("a", IntfOperStatus::intfOperUp, "red");
   kosm->doSetOperState("b", IntfOperStatus::intfOperUp);
   EXPECT_EQ(kernel.opened, "red;;red;");
}

TEST(KernelOperStateManager, failuresAreTracedAndAnswered) {
   Kem::TestTrace trace("KernelOperState/0-1");
   KernelOperState::TestKernel kernel;
   auto const kosm = kernel.manager();
   kernel.error = EOPNOTSUPP;
   EXPECT_EQ(kosm->doSetOperState("vlan10", IntfOperStatus::intfOperUp), EOPNOTSUPP);
   kernel.hasNamespaces = false;
   EXPECT_EQ(kosm->doSetOperState("vlan10", IntfOperStatus::intfOperUp, "red"), ENOENT);
   EXPECT_EQ(
       trace.take(),
       (std::vector<std::string>{
           "state of device vlan10 in namespace \"\" can't be set to 6: Operation not supported",
           "state of device vlan10 in namespace \"red\" can't be set to 6: No such file or directory"}));
}

TEST(KernelOperStateManager, nameThatIsNoDeviceIsNotAskedFor) {
   KernelOperState::TestKernel kernel;
   auto const kosm = kernel.manager();
   EXPECT_EQ(kosm->doSetOperState("", IntfOperStatus::intfOperUp), ENODEV);
   EXPECT_EQ(kosm->doSetOperState("sixteen-bytes-ab", IntfOperStatus::intfOperUp), ENODEV);
   EXPECT_EQ(kernel.take(), "");
   kosm->doSetOperState("fifteen-bytes-a", IntfOperStatus::intfOperUp);
   EXPECT_EQ(kernel.take(), ":fifteen-bytes-a=6;");
}

TEST(KernelOperStateManager, ownChannelsAreThoseOfTheKernelInUse) {
   Netlink::FakeKernel kernel;
   KernelOperStateManager kosm;
   kernel.namespaceIs("red");
   kernel.deviceIs("vlan10", "dummy", "red");
   kernel.deviceIs("vlan11");
   EXPECT_EQ(kosm.doSetOperState("vlan10", IntfOperStatus::intfOperDormant, "red"), 0);
   EXPECT_EQ(kernel.findDevice("vlan10", "red")->operState, IF_OPER_DORMANT);
   EXPECT_EQ(kosm.doSetOperState("vlan11", IntfOperStatus::intfOperTesting), 0);
   EXPECT_EQ(kernel.findDevice("vlan11")->operState, IF_OPER_TESTING);
   EXPECT_EQ(kosm.doSetOperState("vlan10", IntfOperStatus::intfOperUp), ENODEV);
   kernel.fail("answer", ENOMEM);
   EXPECT_EQ(kosm.doSetOperState("vlan11", IntfOperStatus::intfOperUp), ENOMEM);
}

// --- With the kernel of this machine.

// operstate of a device as its kernel reports it: the answer to RTM_GETLINK.
int operStateOf(char const* name) {
   Netlink::Socket socket("", 0);
   ifinfomsg header{};
   header.ifi_index = static_cast<int>(if_nametoindex(name));
   Netlink::MessageBuilder request(RTM_GETLINK, NLM_F_REQUEST, header);
   if (socket.send(request.bytes()) != 0)
      return -1;
   int state = -1;
   Netlink::forEachMessage(socket.receive().bytes, [&](Netlink::Message const& message) {
      if (message.type == RTM_NEWLINK)
         Netlink::forEachAttribute(message.payload.substr(sizeof(ifinfomsg)),
                                   [&](uint16_t type, std::string_view value) {
                                      if (type == IFLA_OPERSTATE)
                                         state = value[0];
                                   });
   });
   return state;
}

TEST(RealKernel, deviceTakesItsState) {
   Netlink::TestNamespace ns;
   if (!ns.isEntered())
      GTEST_SKIP() << "no right to make a network namespace";
   if (int const error = ns.pairIs("left0", "right0"))
      GTEST_SKIP() << "this kernel makes no pair of devices: " << strerror(error);
   ASSERT_EQ(ns.upIs("left0", true), 0);
   ASSERT_EQ(ns.upIs("right0", true), 0);
   // The carrier of a new pair becomes known to the state a moment later, in the kernel's own time.
   for (int i = 0; i < 200 && operStateOf("left0") != IF_OPER_UP; ++i)
      usleep(10000);
   ASSERT_EQ(operStateOf("left0"), IF_OPER_UP);

   KernelOperStateManager kosm;
   EXPECT_EQ(kosm.doSetOperState("left0", IntfOperStatus::intfOperLowerLayerDown), 0);
   EXPECT_EQ(operStateOf("left0"), IF_OPER_DORMANT);
   EXPECT_EQ(kosm.doSetOperState("left0", IntfOperStatus::intfOperUp), 0);
   EXPECT_EQ(operStateOf("left0"), IF_OPER_UP);
   EXPECT_EQ(kosm.doSetOperState("nobody0", IntfOperStatus::intfOperUp), ENODEV);
}

} // namespace
