// Restart and switchover of the agent on 100 VLAN interfaces and 100 subinterfaces in three namespaces: nobody on
// the kernel's side sees anything of it.
#include "RoutedSwitch.h"

#include "Netlink/Message.h"
#include "Netlink/Socket.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace KernelTests {
namespace {

std::vector<std::string> const namespaces{"", "red", "blue"};

// What the kernel says of links and addresses in one namespace from now on, as `ip monitor` would.
class Monitor {
  public:
   explicit Monitor(std::string const& netNs)
       : netNs_(netNs),
         socket_(Sulvi::NamespaceName(netNs.c_str()), RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR) {
      EXPECT_TRUE(socket_.isOpen()) << netNs << ": " << std::strerror(socket_.error());
   }
   // What came since the last call, a line each.
   std::string heard() {
      std::string text;
      for (Netlink::Received got; (got = socket_.receive()).kind != Netlink::Received::nothing;) {
         if (got.kind == Netlink::Received::lost) {
            text += netNs_ + ": lost " + std::strerror(got.error) + '\n';
            if (got.isFailure())
               break;
            continue;
         }
         Netlink::forEachMessage(got.bytes, [&](Netlink::Message const& message) {
            auto const header = Netlink::fixedFrom<ifinfomsg>(message.payload);
            text += netNs_ + ": message " + std::to_string(message.type) + " of device " +
                    std::to_string(header ? header->ifi_index : 0) + '\n';
         });
      }
      return text;
   }

  private:
   std::string const netNs_;
   Netlink::Socket socket_;
};

// Addresses, indexes, states: all that `ip` knows of a namespace.
std::string pictureOf(Network const& net, std::string const& netNs) {
   return net.ipIn(netNs, {"-d", "-o", "addr"}) + net.ipIn(netNs, {"-d", "-o", "link"});
}

// A flood of pings. ping prints a dot for each that it sends, and takes it back with "\b \b" for each answer.
class Flood {
  public:
   explicit Flood(std::string const& address)
       : ping_(std::vector<std::string>{"/usr/bin/env", "ping", "-f", address}) {
      EXPECT_TRUE(ping_.output().waitFor(answer, Scenario::limit)) << ping_.errors().text();
   }
   // Ends it when some more have been answered. What is on its way at one moment isn't at another; what is lost
   // stays out.
   int lost() {
      size_t const until = ping_.output().text().size();
      EXPECT_TRUE(eventually([&] { return countOf(answer, until) > 100; })) << "no more answers";
      ping_.signal(SIGINT);
      EXPECT_EQ(ping_.wait(), 0);
      std::string const text = ping_.output().text();
      int out = 0, fewest = std::numeric_limits<int>::max();
      for (size_t at = text.find("of data.") + 8; at < text.find("\n---"); ++at) {
         EXPECT_TRUE(std::strchr(". \b\n", text[at])) << text.substr(at, 100);
         out += text[at] == '.' ? 1 : text[at] == ' ' ? -1 : 0;
         if (at > until)
            fewest = std::min(fewest, out);
      }
      return fewest;
   }

  private:
   static constexpr char answer[] = "\b \b";
   size_t countOf(std::string const& wanted, size_t begin) {
      std::string const text = ping_.output().text();
      size_t count = 0;
      for (size_t at = begin; (at = text.find(wanted, at)) != text.npos; at += wanted.size())
         ++count;
      return count;
   }
   Scenario::Process ping_;
};

class HitlessTest : public testing::Test {
  protected:
   static constexpr unsigned count = 100; // of each kind

   static std::string namespaceOf(unsigned number) { return namespaces[number % namespaces.size()]; }
   static Intent intent(unsigned cell) {
      Intent all(cell);
      all.routedPort("Ethernet3");
      for (unsigned number = 0; number < count; ++number) {
         all.vlan(1000 + number, {{"mtu", 1400}}, namespaceOf(number));
         all.subIntf("Ethernet3." + std::to_string(number + 1), 2000 + number, namespaceOf(number));
      }
      return all;
   }
   // All devices are up in their namespaces, and the kernel has found that nobody else has their IPv6 addresses.
   static void waitUntilUp(Network const& net) {
      for (size_t place = 0; place < namespaces.size(); ++place)
         EXPECT_TRUE(eventually([&] {
            size_t up = 0;
            for (auto const& [name, link] : net.links(namespaces[place]))
               up += link.contains("linkinfo") && link["linkinfo"]["info_kind"] == "vlan" && isUp(link) &&
                     link["operstate"] == "UP";
            return net.ipIn(namespaces[place], {"addr", "show", "tentative"}).empty() &&
                   up == 2 * (count / namespaces.size() + (place < count % namespaces.size() ? 1 : 0));
         })) << namespaces[place]
             << ": " << net.names(namespaces[place]);
   }
   // Runs `change` and looks for what it does to the network.
   template <class Change>
   static void expectUnseen(Network const& net, Change change) {
      std::vector<std::unique_ptr<Monitor>> monitors;
      std::vector<std::string> before;
      for (std::string const& netNs : namespaces) {
         before.push_back(pictureOf(net, netNs));
         monitors.push_back(std::make_unique<Monitor>(netNs));
      }
      change();
      for (size_t place = 0; place < namespaces.size(); ++place) {
         EXPECT_EQ(monitors[place]->heard(), "") << namespaces[place];
         EXPECT_EQ(pictureOf(net, namespaces[place]), before[place]) << namespaces[place];
      }
   }
};

// What the other tests rely on.
TEST(KernelMonitorTest, deviceThatIsDownForAMomentIsSeen) {
   FabricNetwork net;
   net.makePeerVlan(10, "10.0.0.2/24");
   net.ip({"link", "add", "link", "fabric", "name", "vlan10", "type", "vlan", "id", "10"});
   net.ip({"link", "set", "vlan10", "up"});
   net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan10"});
   // Until the kernel has found that nobody else has its IPv6 addresses, it still says something of them.
   EXPECT_TRUE(eventually([&] { return net.ip({"addr", "show", "tentative"}).empty(); }));
   Flood flood("10.0.0.2");
   Monitor monitor("");
   EXPECT_EQ(monitor.heard(), "");
   net.ipIn("peer", {"link", "set", "tag10", "down"});
   EXPECT_EQ(monitor.heard(), "") << "that is another namespace";
   std::this_thread::sleep_for(std::chrono::milliseconds(100)); // some pings' worth
   net.ipIn("peer", {"link", "set", "tag10", "up"});
   net.ip({"link", "set", "vlan10", "mtu", "1400"});
   net.ip({"addr", "add", "10.0.1.1/24", "dev", "vlan10"});
   std::string const index = std::to_string(net.link("vlan10")["ifindex"].get<int>());
   std::string const heard = monitor.heard();
   EXPECT_NE(heard.find("message 16 of device " + index), heard.npos) << heard;
   EXPECT_NE(heard.find("message 20 of device " + index), heard.npos) << heard;
   EXPECT_GT(flood.lost(), 0);
}

TEST_F(HitlessTest, restartIsNotSeen) {
   RoutedSwitch sw;
   sw.net.addNamespace("red");
   sw.net.addNamespace("blue");
   sw.makePort("et3");
   sw.net.makePeerVlan(1000, "10.0.0.2/24");
   sw.publish(intent(1));
   waitUntilUp(sw.net);
   sw.net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan1000"});
   sw.net.ipIn("red", {"addr", "add", "10.0.1.1/24", "dev", "vlan1001"});
   sw.bridge.settle();
   Flood flood("10.0.0.2");
   expectUnseen(sw.net, [&] {
      sw.bridge.killAgent();
      sw.bridge.startAgent();
      sw.bridge.settle();
   });
   EXPECT_EQ(flood.lost(), 0);
   // The new one works on them.
   sw.bridge.set("interface/config/eth/vlan.intfConfig[Vlan1000].mtu", "1300");
   sw.bridge.settle();
   EXPECT_EQ(sw.net.link("vlan1000")["mtu"], 1300);
}

// The second supervisor has a kernel of its own: here, a network of its own.
TEST_F(HitlessTest, switchoverIsNotSeen) {
   RoutedSwitch sw;
   sw.net.addNamespace("red");
   sw.net.addNamespace("blue");
   sw.makePort("et3");
   std::string const first = "cell/1/redundancy/status", second = "cell/2/redundancy/status";
   sw.bridge.set(first + ".protocol", "protocolHotStandby");
   sw.bridge.done({"create", second, "Redundancy::RedundancyStatus"});
   sw.bridge.set(second + ".protocol", "protocolHotStandby");
   sw.bridge.set(second + ".mode", "modeStandby");
   sw.publish(intent(1));
   waitUntilUp(sw.net);

   FabricNetwork net;
   net.addNamespace("red");
   net.addNamespace("blue");
   net.ip({"link", "add", "et3", "type", "veth", "peer", "name", "et3", "netns", "peer"});
   net.ip({"link", "set", "et3", "up"});
   net.ipIn("peer", {"link", "set", "et3", "up"});
   net.makePeerVlan(1000, "10.0.0.2/24");
   sw.bridge.load(intent(2).document());
   Scenario::Agent standby(sw.bridge.database(), {"--cell", "2"});
   waitUntilUp(net);
   net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan1000"});
   Flood flood("10.0.0.2");
   expectUnseen(net, [&] {
      sw.bridge.killAgent();
      sw.bridge.set(second + ".mode", "modeActive");
      sw.bridge.done({"settle", "--timeout", "20", "--agent", "Vorn@2"});
   });
   EXPECT_EQ(flood.lost(), 0);
   sw.bridge.set("interface/config/eth/vlan.intfConfig[Vlan1000].mtu", "1300");
   EXPECT_TRUE(eventually([&] { return net.link("vlan1000")["mtu"] == 1300; }));
}

} // namespace
} // namespace KernelTests
