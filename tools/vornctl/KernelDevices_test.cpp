#include "KernelDevices.h"

#include "Netlink/TestChannel.h"
#include "Netlink/TestNamespace.h"
#include "NetlinkTesting/FakeKernel.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {

using namespace Vornctl;
using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Key;

struct KernelDevicesTest : testing::Test {
   Netlink::FakeKernel kernel;
   KernelView view;
};

TEST_F(KernelDevicesTest, deviceIsReadWithAllThatIsShownOfIt) {
   auto& fabric = kernel.deviceIs("fabric");
   fabric.isUp = true;
   auto& device = kernel.vlanDeviceIs("vlan10", "fabric", 10);
   device.mtu = 9000;
   device.isUp = true;
   device.operState = 5;
   device.address = {2, 0, 0, 0, 0, 7};
   auto const& netNs = view.at("");
   EXPECT_EQ(netNs.problem, "");
   EXPECT_THAT(netNs.deviceByName, ElementsAre(Key("fabric"), Key("lo"), Key("vlan10")));
   auto const* const read = netNs.findDevice("vlan10");
   ASSERT_TRUE(read);
   EXPECT_EQ(read->index, device.index);
   EXPECT_EQ(read->addr, Sulvi::EthAddr(2, 0, 0, 0, 0, 7));
   EXPECT_EQ(read->mtu, 9000u);
   EXPECT_TRUE(read->isUp());
   EXPECT_EQ(kernelOperStateText(read->operState), "dormant");
   EXPECT_EQ(read->kind, "vlan");
   EXPECT_EQ(read->vlanId, 10);
   EXPECT_EQ(netNs.nameOf(read->baseIndex), "fabric");
   EXPECT_EQ(netNs.findDevice("vlan11"), nullptr);
   EXPECT_EQ(netNs.nameOf(99), "");
}

// The index of such a base is one of another namespace, where it may be that of anything.
TEST_F(KernelDevicesTest, baseInAnotherNamespaceHasNoNameHere) {
   kernel.deviceIs("fabric");
   kernel.namespaceIs("red");
   kernel.vlanDeviceIs("vlan10", "fabric", 10, "red");
   EXPECT_FALSE(view.at("red").findDevice("vlan10")->isBaseHere);
   EXPECT_TRUE(view.at("").findDevice("fabric")->isBaseHere);
}

TEST_F(KernelDevicesTest, eachNamespaceIsAskedOnce) {
   kernel.namespaceIs("red");
   kernel.deviceIs("dummy0", "dummy", "red");
   for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(view.at("red").findDevice("dummy0"));
      EXPECT_FALSE(view.at("default").findDevice("dummy0"));
      EXPECT_FALSE(view.at("").findDevice("dummy0"));
   }
   EXPECT_EQ(kernel.count("RTM_GETLINK"), 2);
   EXPECT_EQ(kernel.openDescriptors(), 0);
}

TEST_F(KernelDevicesTest, namespaceThatCannotBeReadIsSaidInWords) {
   EXPECT_FALSE(view.at("gone").exists);
   EXPECT_EQ(view.at("gone").problem, "there is no such namespace");
   EXPECT_EQ(view.at("gone").findDevice("lo"), nullptr);

   kernel.namespaceIs("red");
   kernel.fail("setns", EPERM);
   EXPECT_TRUE(view.at("red").exists);
   EXPECT_EQ(view.at("red").problem, "it can't be entered: Operation not permitted");
}

TEST_F(KernelDevicesTest, flagsAndStatesHaveWords) {
   EXPECT_EQ(kernelFlagsText(0), "none");
   EXPECT_EQ(kernelFlagsText(IFF_UP | IFF_RUNNING | IFF_BROADCAST | 1 << 16 | 1 << 17),
             "up, running, lower up, dormant, broadcast");
   EXPECT_EQ(kernelOperStateText(0), "unknown");
   EXPECT_EQ(kernelOperStateText(3), "lower layer down");
   EXPECT_EQ(kernelOperStateText(6), "up");
   EXPECT_EQ(kernelOperStateText(7), "state 7");
}

// --- Dumps that go wrong.

struct DumpTest : testing::Test {
   Netlink::TestChannel channel;
   int dumps = 0;

   void answerIs(std::function<void(uint32_t sequence)> answer) {
      channel.onSend = [this, answer = std::move(answer)](uint32_t sequence) {
         ++dumps;
         answer(sequence);
      };
   }
   void whole(uint32_t sequence) {
      channel.deliver(Netlink::linkMessage(RTM_NEWLINK, 2, "fabric", IFF_UP, sequence) +
                      Netlink::doneMessage(sequence));
   }
};

TEST_F(DumpTest, interruptedDumpIsAskedForAgainAndItsDevicesAreForgotten) {
   answerIs([&](uint32_t sequence) {
      if (dumps == 1)
         channel.deliver(Netlink::linkMessage(RTM_NEWLINK, 7, "passing", 0, sequence, NLM_F_DUMP_INTR) +
                         Netlink::doneMessage(sequence));
      else
         whole(sequence);
   });
   auto const read = readDevices(channel);
   EXPECT_EQ(dumps, 2);
   EXPECT_EQ(read.problem, "");
   EXPECT_THAT(read.deviceByName, ElementsAre(Key("fabric")));
}

TEST_F(DumpTest, whatWasTooLongForTheBufferIsAskedForAgain) {
   answerIs([&](uint32_t sequence) {
      if (dumps == 1) {
         channel.lose(EMSGSIZE);
         channel.deliver(Netlink::doneMessage(sequence));
      } else {
         channel.deliver(Netlink::linkMessage(RTM_NEWLINK, 9, "late", 0, sequence - 1)); // of the first dump
         whole(sequence);
      }
   });
   auto const read = readDevices(channel);
   EXPECT_EQ(read.problem, "");
   EXPECT_THAT(read.deviceByName, ElementsAre(Key("fabric")));
}

TEST_F(DumpTest, endlessChangesAreGivenUp) {
   answerIs([&](uint32_t sequence) {
      channel.deliver(Netlink::linkMessage(RTM_NEWLINK, 7, "passing", 0, sequence, NLM_F_DUMP_INTR) +
                      Netlink::doneMessage(sequence));
   });
   auto const read = readDevices(channel);
   EXPECT_EQ(dumps, 8);
   EXPECT_EQ(read.problem, "its devices change all the time");
   EXPECT_EQ(read.findDevice("passing"), nullptr);
}

TEST_F(DumpTest, refusalsAndUnreadableAnswersAreSaidInWords) {
   std::string const introduction = "the kernel doesn't list its devices: ";
   answerIs([&](uint32_t sequence) { channel.deliver(Netlink::errorMessage(sequence, EPERM)); });
   EXPECT_EQ(readDevices(channel).problem, introduction + "Operation not permitted");
   answerIs([&](uint32_t sequence) { channel.deliver(Netlink::doneMessage(sequence).substr(0, 17)); });
   EXPECT_EQ(readDevices(channel).problem, introduction + "Protocol error");
   answerIs([](uint32_t) {});
   EXPECT_EQ(readDevices(channel).problem, introduction + "No data available");
   channel.sendError = ENOBUFS;
   EXPECT_EQ(readDevices(channel).problem, introduction + "No buffer space available");
   channel.sendError = 0;
   channel.lastingError = EBADF;
   EXPECT_EQ(readDevices(channel).problem, introduction + "Bad file descriptor");
   EXPECT_EQ(channel.failureCount, 1);
}

// --- The agent's process.

struct AgentProcessTest : testing::Test {
   AgentProcessTest() {
      folder = testing::TempDir() + "AgentProcessTest." + std::to_string(getpid());
      std::filesystem::create_directories(folder + "/77/ns");
   }
   ~AgentProcessTest() override { std::filesystem::remove_all(folder); }
   std::string folder;
};

TEST_F(AgentProcessTest, fabricDeviceIsTheOneOfItsEnvironment) {
   std::filesystem::create_symlink("/proc/self/ns/net", folder + "/77/ns/net");
   EXPECT_EQ(AgentProcess(77, folder).fabricDeviceName(), "fabric");
   std::ofstream(folder + "/77/environ") << "A=1\0XFABRIC_DEVICE_NAME=b\0FABRIC_DEVICE_NAME=fab1\0B="sv;
   EXPECT_EQ(AgentProcess(77, folder).fabricDeviceName(), "fab1");
   EXPECT_EQ(AgentProcess(77, folder).remark(), "");
}

TEST_F(AgentProcessTest, processThatCannotBeLookedIntoIsSaid) {
   EXPECT_THAT(AgentProcess(77, folder).remark(),
               HasSubstr("network namespace of the agent, process 77, can't be found out (No such file"));
   EXPECT_EQ(AgentProcess().remark(), "");
}

// On the real kernel: a process in another namespace, which has nothing but its loopback device.
TEST_F(AgentProcessTest, defaultNamespaceIsThatOfTheAgent) {
   Netlink::TestNamespace ours;
   if (!ours.isEntered())
      GTEST_SKIP() << "no right to make a network namespace";
   ASSERT_EQ(ours.pairIs("left0", "right0"), 0);
   int ready[2];
   ASSERT_EQ(pipe(ready), 0);
   pid_t const child = fork();
   if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      char const answer = unshare(CLONE_NEWNET) == 0 ? 'y' : 'n';
      static_cast<void>(write(ready[1], &answer, 1));
      pause();
      _exit(0);
   }
   char answer = 'n';
   EXPECT_EQ(read(ready[0], &answer, 1), 1);
   EXPECT_EQ(answer, 'y');
   KernelView view(AgentProcess(static_cast<uint32_t>(child)));
   EXPECT_THAT(view.at("").deviceByName, ElementsAre(Key("lo")));
   EXPECT_NE(if_nametoindex("left0"), 0u) << "the thread is back";
   KernelView own;
   EXPECT_THAT(own.at("").deviceByName, ElementsAre(Key("left0"), Key("lo"), Key("right0")));
   kill(child, SIGKILL);
   waitpid(child, nullptr, 0);
   close(ready[0]);
   close(ready[1]);
}

TEST_F(AgentProcessTest, namespaceThatCannotBeEnteredIsNotTakenForOwn) {
   // A file that is no namespace: it differs from vornctl's own, and can't be entered.
   std::ofstream(folder + "/77/ns/net") << "";
   KernelView view(AgentProcess(77, folder));
   EXPECT_EQ(view.at("").problem, "the agent's network namespace can't be entered: Invalid argument");
   EXPECT_EQ(view.at("").findDevice("lo"), nullptr);
}

} // namespace
