// A switch with routed interfaces on a real kernel: the world of the figure in World.h, a database, the agent,
// and the records that others publish for it (interface manager, platform, spanning tree, hardware).
//
//    RoutedSwitch sw;
//    sw.publish(Intent().vlan(10, {{"mtu", 1400}}));
//    EXPECT_EQ(sw.net.link("vlan10")["mtu"], 1400);
#pragma once

#include "World.h"

#include <chrono>
#include <thread>

namespace KernelTests {

inline std::string const bridgeAddress = "02:00:5e:00:00:01";

// What a person, the interface manager and the hardware publish, as a document of `ordelctl load`.
class Intent {
  public:
   explicit Intent(unsigned cell = 1) : cell_("cell/" + std::to_string(cell) + "/") {}

   // A VLAN with a forwarding port, and its VLAN interface with its status records.
   Intent& vlan(unsigned number, Json config = Json::object(), std::string const& netNs = "") {
      std::string const vlan = std::to_string(number), intf = "Vlan" + vlan;
      document_["bridging/input/config/cli"]["vlanConfig"][vlan] = Json::object();
      document_["bridging/vlan/status"]["vlanStatus"][vlan]["vlanPortStatus"]["Ethernet25"] = true;
      document_["interface/config/eth/vlan"]["intfConfig"][intf] = std::move(config);
      document_["interface/status/eth/vlan"]["intfStatus"][intf] = Json::object();
      inCell("interface/status/eth/vlan/local", "VlanIntfStatusLocalDir")["intfStatusLocal"][intf] =
          Json::object();
      return in(intf, netNs);
   }
   // The status of a routed port that is up.
   Intent& routedPort(std::string const& port) {
      document_["interface/status/all"]["intfStatus"][port] = {
          {"operStatus", "intfOperUp"}, {"forwardingModel", "intfForwardingModelRouted"}};
      return *this;
   }
   // A subinterface of a routed port with its status records, done in hardware.
   Intent& subIntf(std::string const& intf, unsigned vlan, std::string const& netNs = "") {
      document_["interface/config/subintf"]["intfConfig"][intf] = {{"vlanId", vlan},
                                                                   {"encapType", "subIntfEncapDot1q"}};
      document_["interface/status/subintf"]["intfStatus"][intf] = Json::object();
      inCell("interface/status/subintf/local", "SubIntfStatusLocalDir")["intfStatusLocal"][intf] =
          Json::object();
      document_["interface/hardware/status/subintf"]["subIntfStatus"][intf] = {{"hardwareSuccess", true}};
      return in(intf, netNs);
   }
   // Puts an interface into a namespace.
   Intent& in(std::string const& intf, std::string const& netNs) {
      if (!netNs.empty())
         inCell("interface/nsconfig",
                "AllIntfNamespaceConfigDir")["intfNamespaceConfig"][intf] = {{"netNsName", netNs}};
      return *this;
   }
   Json const& document() const { return document_; }

  private:
   // A record of the supervisor, which is made for a second one.
   Json& inCell(std::string const& path, std::string const& type) {
      Json& record = document_[cell_ + path];
      record["$type"] = "Interface::" + type;
      return record;
   }

   std::string const cell_;
   Json document_;
};

class RoutedSwitch {
  public:
   RoutedSwitch() {
      bridge.set("bridging/config.bridgeMacAddr", '"' + bridgeAddress + '"');
      bridge.set("bridging/input/config/cli.vlanConfigPriority", "50");
   }
   // Returns when the agent has worked it off.
   void publish(Intent const& intent) {
      bridge.load(intent.document());
      bridge.settle();
   }
   // A port with its kernel device, whose other end is "et3" of the peer for Ethernet3.
   void makePort(std::string const& device) const {
      net.ip({"link", "add", device, "type", "veth", "peer", "name", device, "netns", "peer"});
      net.ip({"link", "set", device, "up"});
      net.ipIn("peer", {"link", "set", device, "up"});
   }
   std::string operStatus(std::string const& dir, std::string const& intf) const {
      return bridge.get("interface/status/" + dir + ".intfStatus[" + intf + "].operStatus");
   }
   std::string namespaceOf(std::string const& dir, std::string const& intf) const {
      return bridge.get("cell/1/interface/status/" + dir + "/local.intfStatusLocal[" + intf + "].netNsName");
   }

   FabricNetwork net;
   Scenario::Switch bridge;
};

// What follows from an event of the kernel comes by itself, and `ordelctl settle` doesn't know of it. A retry comes
// within a second and a half.
template <class Check>
bool eventually(Check check) {
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
   while (!check()) {
      if (std::chrono::steady_clock::now() > end)
         return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
   }
   return true;
}

} // namespace KernelTests
