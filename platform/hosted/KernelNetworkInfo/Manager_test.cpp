#include "KernelNetworkInfo/Manager.h"

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "Netlink/TestChannel.h"
#include "Netlink/TestNamespace.h"
#include "NetlinkTesting/FakeKernel.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <optional>

namespace {

using KernelNetworkInfo::Manager;
using Netlink::doneMessage;
using Netlink::errorMessage;
using Netlink::linkMessage;
using Devices = std::map<std::string, uint32_t>; // flags by name

Devices devicesOf(KernelNetworkInfo::Root const& root) {
   Devices found;
   root.interfaceByName().forEach(
       [&](Kem::String8 const& name, auto const& device) { found[name.str()] = device->flags(); });
   return found;
}

// --- With a kernel that the test plays.

struct KernelNetworkInfoManagerTest : testing::Test {
   ~KernelNetworkInfoManagerTest() override { manager = nullptr; }
   // Each dump is answered with these, in two datagrams, before send() returns as the kernel does.
   void start(Devices const& devices) {
      kernel = devices;
      auto owned = std::make_unique<Netlink::TestChannel>();
      channel = owned.get();
      channel->onSend = [this](uint32_t sequence) { answer(sequence); };
      manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, std::move(owned));
   }
   void answer(uint32_t sequence) {
      int index = 0;
      for (auto const& [name, flags] : kernel)
         channel->deliver(linkMessage(RTM_NEWLINK, ++index, name, flags, sequence, NLM_F_MULTI));
      channel->deliver(doneMessage(sequence));
   }
   void run() { Kem::activityManager()->runUntilIdle(); }
   size_t dumps() const { return channel->sent.size(); }
   Devices devices() const { return devicesOf(*root); }

   Kem::TestTrace trace;
   Kem::VirtualTime time;
   Devices kernel;
   Netlink::TestChannel* channel = nullptr;
   Kem::Ptr<KernelNetworkInfo::Root> root = KernelNetworkInfo::Root::make();
   Kem::Ptr<Manager> manager;
};

// A channel that reads all that there is with the first datagram: its descriptor tells of nothing more then.
class EagerChannel final : public Netlink::Channel {
  public:
   int descriptor() const override { return bell_.descriptor(); }
   int send(std::string_view message) override {
      news.push_back(doneMessage(Netlink::fixedFrom<nlmsghdr>(message)->nlmsg_seq));
      return 0;
   }
   Netlink::Received receive() override {
      static_cast<void>(bell_.receive());
      if (news.empty())
         return {};
      current_ = std::move(news.front());
      news.pop_front();
      return {Netlink::Received::datagram, current_, 0};
   }
   bool hasMore() const override { return !news.empty(); }
   void ring() { bell_.deliver(""); }

   std::deque<std::string> news;

  private:
   Netlink::TestChannel bell_;
   std::string current_;
};

TEST_F(KernelNetworkInfoManagerTest, whatTheDescriptorDoesNotTellOfIsReadInTheSameTurn) {
   auto owned = std::make_unique<EagerChannel>();
   auto& eager = *owned;
   manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, std::move(owned));
   constexpr int count = 5000;
   for (int index = 1; index <= count; ++index)
      eager.news.push_back(linkMessage(RTM_NEWLINK, index, "eth" + std::to_string(index)));
   eager.ring();
   run();
   EXPECT_EQ(devices().size(), size_t(count));
}

TEST_F(KernelNetworkInfoManagerTest, devicesAreThereWhenItIsMade) {
   start({{"eth0", 1}, {"lo", 0x49}});
   EXPECT_EQ(devices(), (Devices{{"eth0", 1}, {"lo", 0x49}}));
   EXPECT_TRUE(manager->isFollowing());
   ASSERT_EQ(dumps(), 1u);
   auto const header = *Netlink::fixedFrom<nlmsghdr>(channel->sent[0]);
   EXPECT_EQ(header.nlmsg_type, RTM_GETLINK);
   EXPECT_EQ(header.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
}

TEST_F(KernelNetworkInfoManagerTest, socketThatFailsIsTriedAgainLater) {
   start({{"lo", 1}});
   // Losses may end, so a few of them are borne; what says that the socket is no good is believed at once.
   for (auto const& [error, most] : {std::pair(EBADF, 1), std::pair(ENOBUFS, 50)}) {
      channel->failureCount = 0;
      channel->lastingError = error;
      channel->deliver(linkMessage(RTM_NEWLINK, 1, "lo", 1)); // rings
      run();
      EXPECT_FALSE(manager->isFollowing()) << error;
      EXPECT_LE(channel->failureCount, most) << error;
      channel->lastingError = 0;
      Kem::activityManager()->advance(Manager::retryInterval * 1.1);
      EXPECT_TRUE(manager->isFollowing()) << error;
      EXPECT_EQ(devices(), kernel) << error;
   }
}

TEST_F(KernelNetworkInfoManagerTest, notificationsAreFollowedWithoutAnotherDump) {
   start({{"lo", 1}});
   channel->deliver(linkMessage(RTM_NEWLINK, 9, "vlan10", 0, 4711));
   channel->deliver(linkMessage(RTM_NEWLINK, 9, "vlan11", 1));
   run();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"vlan11", 1}}));
   channel->deliver(linkMessage(RTM_DELLINK, 9, "vlan11"));
   run();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}}));
   EXPECT_EQ(dumps(), 1u);
}

TEST_F(KernelNetworkInfoManagerTest, handleInitializedTakesWhatWaitsAtOnce) {
   start({{"lo", 1}});
   channel->deliver(linkMessage(RTM_NEWLINK, 9, "vlan10"));
   manager->handleInitialized();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"vlan10", 0}}));
   EXPECT_EQ(dumps(), 1u);
}

TEST_F(KernelNetworkInfoManagerTest, lostNotificationsAreMadeUpByADump) {
   start({{"eth0", 1}, {"lo", 1}});
   kernel = {{"eth1", 0}, {"lo", 1}};
   channel->lose(ENOBUFS);
   run();
   EXPECT_EQ(dumps(), 2u);
   EXPECT_EQ(devices(), (Devices{{"eth1", 0}, {"lo", 1}}));
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, lossDuringADumpAsksForOneMoreAfterIt) {
   start({{"lo", 1}});
   channel->onSend = [&](uint32_t sequence) {
      if (dumps() == 2) {
         channel->lose(ENOBUFS);
         channel->lose(ENOBUFS);
      }
      answer(sequence);
   };
   channel->lose(ENOBUFS);
   run();
   EXPECT_EQ(dumps(), 3u);
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, dumpThatFailsIsRepeatedLater) {
   start({{"lo", 1}});
   kernel = {};
   channel->onSend = [&](uint32_t sequence) { channel->deliver(errorMessage(sequence, EBUSY)); };
   channel->lose(ENOBUFS);
   run();
   EXPECT_EQ(dumps(), 2u);
   EXPECT_FALSE(manager->isFollowing());
   EXPECT_EQ(devices(), (Devices{{"lo", 1}})) << "a failed dump removes nothing";
   Kem::activityManager()->advance(Manager::retryInterval * 0.9);
   EXPECT_EQ(dumps(), 2u);
   channel->onSend = [&](uint32_t sequence) { answer(sequence); };
   Kem::activityManager()->advance(Manager::retryInterval * 0.2);
   EXPECT_EQ(dumps(), 3u);
   EXPECT_EQ(devices(), Devices{});
}

TEST_F(KernelNetworkInfoManagerTest, requestThatCannotBeSentIsRepeatedLater) {
   start({{"lo", 1}});
   channel->onSend = nullptr;
   channel->sendError = ENOBUFS;
   channel->lose(ENOBUFS);
   run();
   EXPECT_FALSE(manager->isFollowing());
   channel->sendError = 0;
   channel->onSend = [&](uint32_t sequence) { answer(sequence); };
   Kem::activityManager()->advance(Manager::retryInterval * 1.1);
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, interruptedDumpRemovesNothingAndIsRepeated) {
   start({{"eth0", 1}, {"lo", 1}});
   channel->onSend = [&](uint32_t sequence) {
      channel->deliver(linkMessage(RTM_NEWLINK, 5, "vlan10", 0, sequence, NLM_F_MULTI | NLM_F_DUMP_INTR));
      channel->deliver(doneMessage(sequence));
   };
   channel->lose(ENOBUFS);
   run();
   EXPECT_EQ(devices(), (Devices{{"eth0", 1}, {"lo", 1}, {"vlan10", 0}}));
   EXPECT_FALSE(manager->isFollowing());
   channel->onSend = [&](uint32_t sequence) { answer(sequence); };
   Kem::activityManager()->advance(Manager::retryInterval * 1.1);
   EXPECT_EQ(devices(), (Devices{{"eth0", 1}, {"lo", 1}}));
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, endOfAnEarlierDumpEndsNothing) {
   start({{"lo", 1}});
   channel->onSend = [&](uint32_t sequence) { channel->deliver(doneMessage(sequence - 1)); };
   channel->lose(ENOBUFS);
   run();
   EXPECT_FALSE(manager->isFollowing());
   EXPECT_EQ(devices(), (Devices{{"lo", 1}}));
   channel->deliver(linkMessage(RTM_NEWLINK, 1, "lo", 1) + doneMessage(2));
   run();
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, unreadableMessageLeadsToAPacedDump) {
   start({{"lo", 1}});
   for (int i = 0; i < 10; ++i)
      channel->deliver("hostile bytes, long enough for a header");
   channel->deliver(linkMessage(RTM_NEWLINK, 9, "vlan10"));
   run();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"vlan10", 0}})) << "what can be read is taken";
   EXPECT_FALSE(manager->isFollowing());
   EXPECT_EQ(dumps(), 1u);
   Kem::activityManager()->advance(1);
   EXPECT_EQ(dumps(), 2u);
   EXPECT_EQ(devices(), (Devices{{"lo", 1}}));
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(KernelNetworkInfoManagerTest, missingNamespaceIsTracedAndLeavesTheRecord) {
   manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, nullptr, nullptr,
                                   "kni-test-no-such-namespace");
   manager->handleInitialized();
   run();
   EXPECT_TRUE(trace.has("devices of namespace \"kni-test-no-such-namespace\" can't be read: "));
   EXPECT_FALSE(manager->isFollowing());
   EXPECT_EQ(devices(), Devices{});
}

TEST_F(KernelNetworkInfoManagerTest, nothingIsReadAfterItHasGone) {
   start({{"lo", 1}});
   manager = nullptr;
   run();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}}));
}

// --- With devices in memory.

struct FakeDevicesTest : testing::Test {
   ~FakeDevicesTest() override { manager = nullptr; }
   void start(Sulvi::NamespaceName const& netNs = "") {
      manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, nullptr, nullptr, netNs);
   }
   void run() { Kem::activityManager()->runUntilIdle(); }
   // "name #index flags mtu;" of each.
   static std::string textOf(KernelNetworkInfo::Root const& view) {
      std::map<std::string, std::string> lines;
      view.interfaceByName().forEach([&](Kem::String8 const& name, auto const& device) {
         lines[name.str()] = " #" + std::to_string(device->ifIndex()) + " " +
                             std::to_string(device->flags() & IFF_UP) + " " + std::to_string(device->mtu());
      });
      std::string all;
      for (auto const& [name, line] : lines)
         all += name + line + ";";
      return all;
   }
   std::string text() const { return textOf(*root); }

   Kem::TestTrace trace;
   Kem::VirtualTime time;
   Netlink::FakeKernel kernel;
   Kem::Ptr<KernelNetworkInfo::Root> root = KernelNetworkInfo::Root::make();
   Kem::Ptr<Manager> manager;
};

TEST_F(FakeDevicesTest, numbersAndMtusAreFollowed) {
   kernel.deviceIs("fabric").mtu = 9214;
   start();
   EXPECT_EQ(text(), "fabric #2 0 9214;lo #1 0 65536;");
   kernel.upIs("fabric", true);
   kernel.vlanDeviceIs("vlan10", "fabric", 10);
   run();
   EXPECT_EQ(text(), "fabric #2 1 9214;lo #1 0 65536;vlan10 #3 0 9214;");
   auto const before = root->interfaceByName("fabric");
   kernel.deviceDel("fabric");
   kernel.deviceIs("fabric");
   run();
   EXPECT_EQ(text(), "fabric #4 0 1500;lo #1 0 65536;");
   EXPECT_NE(root->interfaceByName("fabric"), before);
}

TEST_F(FakeDevicesTest, aDeviceReplacedDuringAnOverrunShowsItsNewNumber) {
   kernel.deviceIs("fabric");
   start();
   kernel.overrun([&] {
      kernel.deviceDel("fabric");
      kernel.deviceIs("fabric");
   });
   run();
   EXPECT_EQ(text(), "fabric #3 0 1500;lo #1 0 65536;");
}

TEST_F(FakeDevicesTest, theDefaultNamespaceIsTriedUntilItCanBeRead) {
   kernel.fail("socket", EMFILE, 1, true);
   start();
   Kem::activityManager()->advance(5);
   EXPECT_EQ(text(), "");
   EXPECT_EQ(trace.take(),
             std::vector<std::string>{"devices of namespace \"\" can't be read: Too many open files"});
   kernel.faultsEnd();
   Kem::activityManager()->advance(Manager::retryInterval * 1.1);
   EXPECT_EQ(text(), "lo #1 0 65536;");
   EXPECT_TRUE(manager->isFollowing());
}

TEST_F(FakeDevicesTest, aMissingNamespaceIsAskedForOnce) {
   start("red");
   kernel.namespaceIs("red");
   Kem::activityManager()->advance(5);
   EXPECT_EQ(text(), "");
   start("red");
   EXPECT_EQ(text(), "lo #1 0 65536;");
}

// --- With the kernel of this machine.

struct RealKernelTest : testing::Test {
   void SetUp() override {
      if (!ns.isEntered())
         GTEST_SKIP() << "no right to make a network namespace";
      if (int const error = ns.pairIs("left0", "right0"))
         GTEST_SKIP() << "this kernel makes no pair of devices: " << strerror(error);
      manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, nullptr, nullptr, "");
   }
   std::optional<bool> isUp(char const* name) {
      auto const device = root->interfaceByName(name);
      return device ? std::optional(bool(device->flags() & IFF_UP)) : std::nullopt;
   }
   void run() { Kem::activityManager()->runUntilIdle(); }
   Netlink::TestNamespace ns;
   Kem::Ptr<KernelNetworkInfo::Root> root = KernelNetworkInfo::Root::make();
   Kem::Ptr<Manager> manager;
};

TEST_F(RealKernelTest, devicesOfTheNamespaceAreListedAtOnce) {
   EXPECT_TRUE(manager->isFollowing());
   EXPECT_EQ(root->interfaceByName().size(), 3u);
   EXPECT_EQ(isUp("lo"), false);
   EXPECT_EQ(isUp("left0"), false);
   EXPECT_EQ(isUp("right0"), false);
}

TEST_F(RealKernelTest, changesArrive) {
   ASSERT_EQ(ns.upIs("left0", true), 0);
   run();
   EXPECT_EQ(isUp("left0"), true);
   ASSERT_EQ(ns.upIs("left0", false), 0);
   ASSERT_EQ(ns.rename("left0", "fabric"), 0);
   run();
   EXPECT_EQ(isUp("left0"), std::nullopt);
   EXPECT_EQ(isUp("fabric"), false);
   ASSERT_EQ(ns.remove("fabric"), 0);
   run();
   EXPECT_EQ(isUp("fabric"), std::nullopt);
   EXPECT_EQ(isUp("right0"), std::nullopt) << "a pair goes together";
   EXPECT_EQ(root->interfaceByName().size(), 1u);
}

TEST_F(RealKernelTest, stormBeyondTheSocketsRoomIsMadeUp) {
   // The record isn't read while a device goes up and down, until the socket has no room for notifications.
   for (int i = 0; i < 8000; ++i)
      ASSERT_EQ(ns.upIs("lo", i % 2 == 0), 0);
   ASSERT_EQ(ns.pairIs("left1", "right1"), 0);
   ASSERT_EQ(ns.remove("left0"), 0);
   Kem::TestTrace trace("KernelNetworkInfo/0-1");
   run();
   EXPECT_FALSE(trace.from("messages were lost: No buffer space").empty())
       << "the storm was too small to test anything";
   EXPECT_EQ(isUp("left1"), false);
   EXPECT_EQ(isUp("left0"), std::nullopt);
   EXPECT_EQ(isUp("lo"), false);
   EXPECT_TRUE(manager->isFollowing());
}

// A channel whose room for notifications is small, so that it overruns whenever the test wants it.
class NarrowChannel final : public Netlink::Channel {
  public:
   NarrowChannel() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE)) {
      int const bytes = 1;
      setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
      sockaddr_nl address{};
      address.nl_family = AF_NETLINK;
      address.nl_groups = RTMGRP_LINK;
      EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
   }
   ~NarrowChannel() override { close(fd_); }
   int descriptor() const override { return fd_; }
   int send(std::string_view message) override {
      return ::send(fd_, message.data(), message.size(), 0) < 0 ? errno : 0;
   }
   Netlink::Received receive() override {
      auto const length = recv(fd_, buffer_, sizeof buffer_, MSG_DONTWAIT);
      if (length >= 0)
         return {Netlink::Received::datagram, {buffer_, static_cast<size_t>(length)}, 0};
      if (errno == EAGAIN)
         return {};
      overruns += errno == ENOBUFS;
      return {Netlink::Received::lost, {}, errno};
   }
   int overruns = 0;

  private:
   int const fd_;
   char buffer_[65536];
};

TEST_F(RealKernelTest, afterAThousandOverrunsTheViewIsThatOfAFreshDump) {
   manager = nullptr;
   root = KernelNetworkInfo::Root::make();
   auto owned = std::make_unique<NarrowChannel>();
   auto const& channel = *owned;
   manager = Kem::makePtr<Manager>(Kem::activityManager()->config(), root, std::move(owned));
   for (int round = 0; round < 1000; ++round) {
      // To delete devices takes the kernel long, so most rounds only rename one.
      if (round % 50 == 0) {
         ASSERT_EQ(ns.pairIs("left1", "right1"), 0);
      } else if (round % 50 == 25) {
         ASSERT_EQ(ns.remove("left1"), 0);
      }
      ASSERT_EQ(round % 2 == 0 ? ns.rename("left0", "other0") : ns.rename("other0", "left0"), 0);
      for (int i = 0; i < 5; ++i)
         ASSERT_EQ(ns.upIs("lo", (round + i) % 2 == 0), 0);
      run();
      ASSERT_EQ(channel.overruns, round + 1) << "each round has to lose something";
      auto const fresh = KernelNetworkInfo::Root::make();
      auto const second =
          Kem::makePtr<Manager>(Kem::activityManager()->config(), fresh, nullptr, nullptr, "");
      ASSERT_EQ(FakeDevicesTest::textOf(*root), FakeDevicesTest::textOf(*fresh)) << round;
   }
   EXPECT_GE(channel.overruns, 1000);
}

TEST_F(RealKernelTest, hundredsOfDevicesAreOneDump) {
   for (int i = 0; i < 200; ++i) {
      std::string const number = std::to_string(i);
      ASSERT_EQ(ns.pairIs(("a" + number).c_str(), ("b" + number).c_str()), 0);
   }
   auto const other = KernelNetworkInfo::Root::make();
   auto const second =
       Kem::makePtr<Manager>(Kem::activityManager()->config(), other, nullptr, nullptr, "default");
   EXPECT_TRUE(second->isFollowing());
   EXPECT_EQ(other->interfaceByName().size(), 403u);
   EXPECT_TRUE(other->interfaceByName("b199"));
}

} // namespace
