// Interfaces in network namespaces of a real kernel, and what an earlier run left behind there.
#include "RoutedSwitch.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <set>

namespace KernelTests {
namespace {

struct KernelNamespacesTest : testing::Test {
   void move(std::string const& intf, std::string const& netNs) {
      sw.bridge.load(Intent().in(intf, netNs).document());
      sw.bridge.settle();
   }
   void moveBack(std::string const& intf) {
      sw.bridge.erase("cell/1/interface/nsconfig.intfNamespaceConfig[" + intf + "]");
      sw.bridge.settle();
   }
   bool isComeUp(std::string const& device, std::string const& netNs) const {
      return eventually([&] { return isUp(sw.net.link(device, netNs)); });
   }

   RoutedSwitch sw;
};

TEST_F(KernelNamespacesTest, interfaceMovesIntoANamespaceAndBack) {
   sw.net.addNamespace("red");
   sw.publish(Intent().vlan(10, {{"mtu", 1400}}));
   EXPECT_EQ(sw.net.names(), "fabric lo vlan10");
   move("Vlan10", "red");
   EXPECT_TRUE(isComeUp("vlan10", "red")) << sw.net.names("red");
   EXPECT_EQ(sw.net.names(), "fabric lo") << "it is in one place";
   Json const link = sw.net.link("vlan10", "red");
   EXPECT_EQ(link["mtu"], 1400) << link;
   EXPECT_EQ(link["address"], bridgeAddress) << link;
   EXPECT_EQ(sw.namespaceOf("eth/vlan", "Vlan10"), R"("red")");
   EXPECT_EQ(sw.operStatus("eth/vlan", "Vlan10"), R"("intfOperUp")");
   moveBack("Vlan10");
   EXPECT_TRUE(isComeUp("vlan10", "")) << sw.net.names();
   EXPECT_EQ(sw.net.names("red"), "lo");
}

TEST_F(KernelNamespacesTest, pingPassesFromANamespaceThroughTheFabric) {
   sw.net.addNamespace("red");
   sw.net.makePeerVlan(10, "10.0.0.2/24");
   sw.publish(Intent().vlan(10, Json::object(), "red"));
   ASSERT_TRUE(isComeUp("vlan10", "red"));
   sw.net.ipIn("red", {"addr", "add", "10.0.0.1/24", "dev", "vlan10"});
   Scenario::Result const ping =
       command({"ip", "netns", "exec", "red", "ping", "-c", "1", "-W", "5", "10.0.0.2"});
   EXPECT_EQ(ping.status, 0) << ping.output << ping.errors;
}

TEST_F(KernelNamespacesTest, subinterfaceMovesBetweenNamespaces) {
   sw.net.addNamespace("red");
   sw.net.addNamespace("blue");
   sw.makePort("et3");
   sw.publish(Intent().routedPort("Ethernet3").subIntf("Ethernet3.5", 100, "red"));
   EXPECT_TRUE(isComeUp("et3.5", "red"));
   move("Ethernet3.5", "blue");
   EXPECT_TRUE(isComeUp("et3.5", "blue"));
   EXPECT_EQ(sw.net.names("red"), "lo");
   EXPECT_EQ(sw.net.names(), "et3 fabric lo");
}

TEST_F(KernelNamespacesTest, interfaceWaitsForItsNamespace) {
   sw.publish(Intent().vlan(10, Json::object(), "late").vlan(20));
   EXPECT_EQ(sw.net.names(), "fabric lo vlan20");
   sw.net.addNamespace("late");
   EXPECT_TRUE(isComeUp("vlan10", "late"));
}

// The kernel takes the device with the namespace; another namespace of that name is another one.
TEST_F(KernelNamespacesTest, namespaceThatIsDeletedAndMadeAgainGetsItsDevicesBack) {
   sw.net.addNamespace("red");
   sw.publish(Intent().vlan(10, Json::object(), "red").vlan(20, Json::object(), "red").vlan(30));
   ASSERT_TRUE(isComeUp("vlan10", "red") && isComeUp("vlan20", "red"));
   int const other = sw.net.link("vlan30")["ifindex"];
   for (int round = 0; round < 3; ++round) {
      sw.net.ip({"netns", "del", "red"});
      if (round > 0) // with time for the agent to see it, and without
         sw.bridge.settle();
      sw.net.addNamespace("red");
      EXPECT_TRUE(isComeUp("vlan10", "red") && isComeUp("vlan20", "red")) << round;
   }
   EXPECT_EQ(sw.net.link("vlan30")["ifindex"], other);
   EXPECT_EQ(sw.net.names(), "fabric lo vlan30");
   moveBack("Vlan10");
   EXPECT_TRUE(isComeUp("vlan10", ""));
   EXPECT_TRUE(sw.bridge.agentProcess().isRunning());
}

// What the agent has open, such as "socket:"; each namespace in use takes a socket.
std::multiset<std::string> openOf(pid_t pid) {
   std::multiset<std::string> open;
   for (auto const& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
      std::error_code error;
      std::string const what = std::filesystem::read_symlink(entry, error);
      open.insert(what.substr(0, what.find('[')));
   }
   return open;
}

TEST_F(KernelNamespacesTest, namespaceThatComesAndGoesAHundredTimesLeavesNothingBehind) {
   sw.net.addNamespaceFast("often");
   sw.publish(Intent().vlan(10, Json::object(), "often").vlan(20));
   ASSERT_TRUE(isComeUp("vlan10", "often"));
   int const other = sw.net.link("vlan20")["ifindex"];
   pid_t const agent = sw.bridge.agentProcess().pid();
   auto const before = openOf(agent);
   for (int round = 1; round <= 100; ++round) {
      sw.net.deleteNamespaceFast("often");
      sw.net.addNamespaceFast("often");
      if (round % 25 == 0) {
         EXPECT_TRUE(isComeUp("vlan10", "often")) << round;
      }
   }
   sw.bridge.settle();
   EXPECT_EQ(openOf(agent), before);
   EXPECT_EQ(sw.net.link("vlan20")["ifindex"], other);
   EXPECT_EQ(sw.net.names(), "fabric lo vlan20");
   EXPECT_EQ(sw.namespaceOf("eth/vlan", "Vlan10"), R"("often")");
}

// 150 bytes is what a namespace's name may have here; the database refuses a longer one.
TEST_F(KernelNamespacesTest, longNamesAndStrangeOnes) {
   std::string const longest(150, 'n'), tooLong(151, 'n'), blank = "a b";
   for (std::string const& name : {longest, tooLong, blank})
      sw.net.addNamespaceFast(name);
   sw.publish(Intent().vlan(10, Json::object(), longest).vlan(20, Json::object(), blank).vlan(30).vlan(40));
   EXPECT_TRUE(isComeUp("vlan10", longest));
   EXPECT_TRUE(isComeUp("vlan20", blank));
   Scenario::Result const refused =
       sw.bridge.database().ctl({"load", "-"}, Intent().in("Vlan30", tooLong).document().dump());
   EXPECT_EQ(refused.status, 3);
   EXPECT_THAT(refused.errors, testing::HasSubstr("NamespaceName::bytes > 150 not allowed"));
   // They lead out of the folder of the namespaces, or to no file in it.
   for (std::string const name : {"..", ".", "../netns", "/", "../../proc/1/ns/net"}) {
      move("Vlan30", name);
      EXPECT_TRUE(sw.bridge.agentProcess().isRunning()) << name;
   }
   moveBack("Vlan30");
   EXPECT_TRUE(isComeUp("vlan30", ""));
   EXPECT_TRUE(isUp(sw.net.link("vlan40")));
}

// The name stays, and leads nowhere.
TEST_F(KernelNamespacesTest, fileThatLeadsToNoNamespaceDisturbsNobody) {
   std::ofstream("/run/netns/broken");
   sw.publish(Intent().vlan(10, Json::object(), "broken").vlan(20));
   EXPECT_EQ(sw.net.names(), "fabric lo vlan20");
   EXPECT_TRUE(isUp(sw.net.link("vlan20")));
   moveBack("Vlan10");
   EXPECT_TRUE(isComeUp("vlan10", ""));
}

// --- What an earlier run left.

struct KernelStaleDevicesTest : testing::Test {
   KernelStaleDevicesTest() {
      for (char const* const base : {"fabric", "et3", "et3_1", "po5", "eth0"})
         net.ip({"link", "add", base, "type", "bridge"});
   }
   void makeDevice(std::string const& name, std::string const& base, std::string const& netNs) {
      Words words = {"link", "add", "link", base, "name", name};
      if (!netNs.empty())
         words.insert(words.end(), {"netns", netNs});
      words.insert(words.end(), {"type", "vlan", "id", std::to_string(++vlan_)});
      net.ip(words);
   }
   // The devices that the agent's would be, and others like them.
   void makeDevices(std::string const& netNs) {
      for (char const* const name : {"vlan5", "vlan10", "vlan4095", "vlanfoo", "vlan007", "vlan10.5"})
         makeDevice(name, "fabric", netNs);
      makeDevice("et3.5", "et3", netNs);
      makeDevice("et3_1.7", "et3_1", netNs);
      makeDevice("po5.7", "po5", netNs);
      // Those of others: by their names, or by what they are on.
      for (char const* const name : {"eth0.100", "et0.5", "vlan77", "et4.7"})
         makeDevice(name, "eth0", netNs);
      net.ipIn(netNs, {"link", "add", "vlan9", "type", "bridge"});
   }
   static constexpr char left[] = "et0.5 et4.7 eth0.100 lo vlan007 vlan10.5 vlan77 vlan9 vlanfoo";
   static constexpr char leftWithBases[] =
       "et0.5 et3 et3_1 et4.7 eth0 eth0.100 fabric lo po5 vlan007 vlan10.5 vlan77 vlan9 vlanfoo";

   Network net;

  private:
   unsigned vlan_ = 100; // the base has each number once, wherever the device is
};

TEST_F(KernelStaleDevicesTest, whatNobodyWantsGoesInEveryNamespaceAndNothingElse) {
   net.addNamespace("red");
   net.addNamespace("idle");
   // The default one last: a device is made there before it moves, and its name must be free.
   for (std::string const netNs : {"red", "idle", ""})
      makeDevices(netNs);
   Scenario::Switch bridge;
   bridge.settle();
   EXPECT_TRUE(eventually([&] { return net.names() == leftWithBases; })) << net.names();
   for (std::string const netNs : {"red", "idle"})
      EXPECT_TRUE(eventually([&] { return net.names(netNs) == left; })) << netNs << ": " << net.names(netNs);
   EXPECT_EQ(net.link("vlan9")["linkinfo"]["info_kind"], "bridge");
   EXPECT_TRUE(bridge.agentProcess().isRunning());
}

// What is configured when the agent comes back counts, in each namespace.
TEST_F(KernelNamespacesTest, whatWasWithdrawnWhileNoAgentRanGoesAndTheRestStays) {
   sw.net.addNamespace("red");
   sw.makePort("et3");
   sw.publish(Intent()
                  .vlan(10)
                  .vlan(20)
                  .vlan(30, Json::object(), "red")
                  .vlan(40, Json::object(), "red")
                  .routedPort("Ethernet3")
                  .subIntf("Ethernet3.5", 100)
                  .subIntf("Ethernet3.6", 101));
   ASSERT_TRUE(isComeUp("vlan10", "") && isComeUp("vlan30", "red") && isComeUp("et3.5", ""));
   int const index = sw.net.link("vlan10")["ifindex"], red = sw.net.link("vlan30", "red")["ifindex"],
             subIntf = sw.net.link("et3.5")["ifindex"];
   sw.bridge.killAgent();
   for (std::string const vlan : {"20", "40"}) {
      sw.bridge.erase("interface/config/eth/vlan.intfConfig[Vlan" + vlan + "]");
      sw.bridge.erase("interface/status/eth/vlan.intfStatus[Vlan" + vlan + "]");
      sw.bridge.erase("cell/1/interface/status/eth/vlan/local.intfStatusLocal[Vlan" + vlan + "]");
   }
   sw.bridge.erase("interface/config/subintf.intfConfig[Ethernet3.6]");
   sw.bridge.startAgent();
   sw.bridge.settle();
   EXPECT_TRUE(eventually([&] { return sw.net.names() == "et3 et3.5 fabric lo vlan10"; })) << sw.net.names();
   EXPECT_TRUE(eventually([&] { return sw.net.names("red") == "lo vlan30"; })) << sw.net.names("red");
   EXPECT_EQ(sw.net.link("vlan10")["ifindex"], index);
   EXPECT_EQ(sw.net.link("vlan30", "red")["ifindex"], red);
   EXPECT_EQ(sw.net.link("et3.5")["ifindex"], subIntf);
}

} // namespace
} // namespace KernelTests
