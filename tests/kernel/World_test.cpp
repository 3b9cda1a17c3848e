// What the other kernel tests rely on: the kernel itself, and how the platform sees it.
#include "World.h"

#include "Kem/Activity.h"
#include "KernelNetworkInfo/Manager.h"
#include "Netlink/Message.h"
#include "Netlink/Socket.h"

#include <gmock/gmock.h>

#include <net/if.h>

namespace KernelTests {
namespace {

using testing::HasSubstr;

struct KernelTest : testing::Test {
   Network net;
};

TEST_F(KernelTest, eachTestHasANetworkOfItsOwn) {
   EXPECT_EQ(net.names(), "lo");
   EXPECT_EQ(net.ip({"netns", "list"}), "");
}

// The request of the agent, as far as the kernel looks at it.
TEST_F(KernelTest, kernelMakesVlanDevicesOnRequest) {
   net.makeFabric();
   Netlink::Socket socket("", 0);
   auto const made = [&](uint16_t vlan, std::string const& name) {
      ifinfomsg header{};
      header.ifi_family = AF_PACKET;
      Netlink::MessageBuilder request(RTM_NEWLINK, NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE, header);
      uint32_t const base = ::if_nametoindex("fabric");
      request.attribute(IFLA_LINK, &base, sizeof base);
      request.textAttribute(IFLA_IFNAME, name);
      size_t const info = request.nestBegin(IFLA_LINKINFO);
      request.attribute(IFLA_INFO_KIND, "vlan");
      size_t const data = request.nestBegin(IFLA_INFO_DATA);
      request.attribute(IFLA_VLAN_ID, &vlan, sizeof vlan);
      request.nestEnd(data);
      request.nestEnd(info);
      return Netlink::transact(socket, request);
   };
   EXPECT_EQ(made(10, "vlan10"), 0);
   Json const link = net.link("vlan10");
   EXPECT_EQ(link["linkinfo"]["info_kind"], "vlan") << link;
   EXPECT_EQ(link["linkinfo"]["info_data"]["id"], 10) << link;
   EXPECT_EQ(link["link"], "fabric") << link;
   EXPECT_FALSE(isUp(link)) << link;
   EXPECT_EQ(made(10, "vlan10"), EEXIST);
   EXPECT_EQ(made(10, "other"), EEXIST) << "one device for each number";
   EXPECT_EQ(made(4096, "vlan4096"), ERANGE);
   EXPECT_EQ(net.names(), "fabric lo vlan10");
}

TEST_F(KernelTest, pingPassesBetweenVlansOfTheSameNumber) {
   net.makeFabric();
   net.makePeerVlan(10, "10.0.0.2/24");
   net.ip({"link", "add", "link", "fabric", "name", "vlan10", "type", "vlan", "id", "10"});
   net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan10"});
   net.ip({"link", "set", "vlan10", "up"});
   Scenario::Result const reached = command({"ping", "-c", "3", "-i", "0.2", "-w", "10", "10.0.0.2"});
   EXPECT_THAT(reached.output, HasSubstr("3 received"));
   EXPECT_EQ(reached.status, 0) << reached.errors;
}

TEST_F(KernelTest, devicesOfANamedNamespaceAreFollowed) {
   net.makeFabric();
   net.makePeerVlan(10, "10.0.0.2/24");
   auto const root = KernelNetworkInfo::Root::make();
   auto const manager = Kem::makePtr<KernelNetworkInfo::Manager>(
       Kem::activityManager()->config(), root, nullptr, nullptr, Sulvi::NamespaceName("peer"));
   auto const isAsTheKernelSays = [&] {
      std::map<std::string, std::vector<unsigned>> seen, wanted;
      root->interfaceByName().forEach([&](Kem::String8 const& name, auto const& device) {
         seen[name.str()] = {device->ifIndex(), device->mtu(), device->flags() & IFF_UP};
      });
      for (auto const& [name, link] : net.links("peer"))
         wanted[name] = {link["ifindex"], link["mtu"], isUp(link) ? unsigned(IFF_UP) : 0};
      EXPECT_EQ(seen, wanted);
   };
   isAsTheKernelSays();
   net.ipIn("peer", {"link", "set", "tag10", "down"});
   net.ipIn("peer", {"link", "set", "fabric", "mtu", "1400"});
   net.makePeerVlan(20, "10.0.1.2/24");
   manager->handleInitialized(); // what the kernel has said by now
   isAsTheKernelSays();
   net.ipIn("peer", {"link", "del", "tag10"});
   manager->handleInitialized();
   isAsTheKernelSays();
   EXPECT_EQ(net.names("peer"), "fabric lo tag20");
}

TEST_F(KernelTest, agentRunsHere) {
   net.makeFabric();
   Scenario::Switch bridge;
   bridge.load(Scenario::leafSwitch);
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "access_ 10");
   EXPECT_EQ(net.names(), "fabric lo");
}

} // namespace
} // namespace KernelTests
