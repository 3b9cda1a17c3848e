// Restart and switchover of the agent on 100 VLAN interfaces and 100 subinterfaces in three namespaces: nobody on
// the kernel's side sees anything of it.
#include "RoutedSwitch.h"

#include "Netlink/Message.h"
#include "Netlink/Socket.h"

#include <gmock/gmock.h>

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

// A flood of pings that counts what is lost.
class Flood {
  public:
   explicit Flood(std::string const& address)
       : ping_(std::vector<std::string>{"/usr/bin/env", "ping", "-f", address}) {
      EXPECT_TRUE(ping_.output().waitFor(answered, Scenario::limit)) << ping_.errors().text();
   }
   // Ends it, after some more have been answered. What is on its way at the end isn't lost.
   int lost() {
      size_t const before = ping_.output().text().size();
      EXPECT_TRUE(eventually([&] { return ping_.output().text().size() > before + 100; }));
      ping_.signal(SIGINT);
      EXPECT_EQ(ping_.wait(), 0);
      std::string const text = ping_.output().text();
      size_t const begin = text.find('.', text.find("of data")), end = text.find("\n---", begin);
      EXPECT_TRUE(begin != text.npos && end != text.npos) << text;
      int outstanding = 0;
      std::string const marks = text.substr(begin, end - begin);
      for (char const mark : marks)
         outstanding += mark == '.' ? 1 : mark == ' ' ? -1 : 0;
      EXPECT_EQ(marks.find_first_not_of(". \b\n"), marks.npos) << marks;
      return outstanding - (marks[marks.find_last_not_of('\n')] == '.' ? 1 : 0);
   }

  private:
   static constexpr char answered[] = "\b \b";
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
   // All devices are up in their namespaces, each of the first with an address.
   static void waitUntilUp(Network const& net) {
      for (size_t place = 0; place < namespaces.size(); ++place)
         EXPECT_TRUE(eventually([&] {
            size_t up = 0;
            for (auto const& [name, link] : net.links(namespaces[place]))
               up += link.contains("linkinfo") && link["linkinfo"]["info_kind"] == "vlan" && isUp(link) &&
                     link["operstate"] == "UP";
            return up == 2 * (count / namespaces.size() + (place < count % namespaces.size() ? 1 : 0));
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
   Scenario::Agent standby(sw.bridge.database(), {"--cell", "2"});
   sw.publish(intent(2));
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
