// The intent of a whole switch, of any size: every kind of publisher at once, static and dynamic VLANs, private
// VLANs with mapped VLAN interfaces, trunks widened by an overlay, translations, static hosts and groups from
// three inputs. What it asks for follows from the sizes alone.
//
//    WholeIntent const intent{.vlans = 512, .ports = 64, .hosts = 2000};
//    for (std::string const& document : intent.documents())
//       bridge.done({"load", "-"}, document);
//
// Odd VLANs are static, even ones dynamic: every fourth is the protocol's, the others are the overlay's, and
// both claim every hundredth. Static VLANs up to `privateVlans` are in private groups of one primary and up to
// nine secondaries.
#pragma once

#include "Switch.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace Scenario {

struct WholeIntent {
   int vlans = 512;
   int privateVlans = 24; // primaries and secondaries together
   int ports = 64;
   int hosts = 2000; // static ones, each in one to three inputs

   std::vector<std::string> documents() const {
      return {interfaces().dump(), commandLine().dump(), otherInputs().dump(), dynamicSources().dump()};
   }

   static constexpr int groupSize = 10; // a primary and its secondaries
   // The place of a private VLAN in its group, 0 for the primary; -1 for any other VLAN.
   int placeInGroup(int vlan) const {
      int const index = (vlan - 1) / 2;
      return vlan % 2 == 0 || index >= privateVlans ? -1 : index % groupSize;
   }
   int primaryOf(int vlan) const { return vlan - 2 * placeInGroup(vlan); }
   static std::string portName(int port) { return "Ethernet" + std::to_string(port); }

  private:
   using Json = nlohmann::json; // it finds a key among thousands quickly, which the ordered one doesn't

   Json interfaces() const {
      Json intfs = Json::object(), statuses = Json::object(), vlanIntfs = Json::object();
      for (int port = 1; port <= ports; ++port) {
         intfs[portName(port)] = Json::object();
         statuses[portName(port)] = {{"forwardingModel", port % 32 == 0 ? "intfForwardingModelRouted"
                                                                        : "intfForwardingModelBridged"}};
      }
      for (int vlan = 1; vlan <= vlans; ++vlan)
         if (placeInGroup(vlan) == 0 || vlan % 50 == 0)
            vlanIntfs["Vlan" + std::to_string(vlan)] = Json::object();
      return {{"interface/config/eth/intf", {{"intfConfig", intfs}}},
              {"interface/status/eth/intf", {{"intfStatus", statuses}}},
              {"interface/config/eth/vlan", {{"intfConfig", vlanIntfs}}}};
   }

   // --- The command line: static VLANs, ports, and a share of the hosts.

   Json commandLine() const {
      return {{"bridging/input/config/cli",
               {{"vlanConfig", staticVlans()},
                {"switchIntfConfig", switchports()},
                {"fdbConfig", fdb(0)},
                {"sviMapping", sviMapping()},
                {"internalVlanRange", {{"min", std::min(vlans + 1, 4094)}, {"max", 4094}}},
                {"vlanConfigPriority", 100},
                {"switchIntfConfigPriority", 100},
                {"fdbConfigPriority", 100}}}};
   }
   Json staticVlans() const {
      Json all = Json::object();
      for (int vlan = 1; vlan <= vlans; vlan += 2) {
         Json record = {{"configuredName", "static" + std::to_string(vlan)}};
         if (placeInGroup(vlan) > 0)
            record["vlanTypeAndPrimaryVlan"] = {{"vlanType", "secondary_"}, {"primaryVlan", primaryOf(vlan)}};
         if (vlan % 33 == 0)
            record["trunkGroup"] = {{"fabric", true}};
         all[std::to_string(vlan)] = record;
      }
      return all;
   }
   Json switchports() const {
      Json all = Json::object();
      for (int port = 1; port <= ports; ++port)
         all[portName(port)] = switchport(port);
      return all;
   }
   Json switchport(int port) const {
      if (port % 32 == 0)
         return {{"enabled", false}}; // a routed port
      if (port % 8 == 3)              // in a secondary VLAN, or in a primary one with its secondaries
         return {{"switchportMode", "access_"},
                 {"accessVlan", 1 + 2 * (port / 8 % std::max(1, privateVlans))},
                 {"defaultPrivateVlanMapping", port % 16 == 3}};
      Json record = {{"switchportMode", "trunk_"},
                     {"trunkAllowedVlans", port % 4 == 1 ? "1-4094" : "1-" + std::to_string(vlans / 2)},
                     {"trunkPrivateVlanMapping", port % 5 == 0}};
      if (port % 6 == 0)
         record["trunkGroup"] = {{"fabric", true}};
      if (port % 7 == 0) {
         record["egressVlanXlate"] = {{"101/0", {{"mappedVlanId", 201}}}};
         record["ingressVlanXlate"] = {{"201/0", {{"mappedVlanId", 101}}}};
      }
      return record;
   }
   Json sviMapping() const {
      Json all = Json::object();
      for (int vlan = 1; vlan <= vlans; vlan += 4 * groupSize)
         if (placeInGroup(vlan) == 0)
            all[std::to_string(vlan)] = {{"defaultSviMapping", false},
                                         {"secondaryVlan", {{std::to_string(vlan + 2), true}}}};
      return all;
   }

   // --- Others.

   Json otherInputs() const {
      return {{"bridging/input/config/controller",
               {{"$type", "Bridging::Input::Config"}, {"fdbConfig", fdb(1)}, {"fdbConfigPriority", 100}}},
              {"bridging/input/config/security",
               {{"$type", "Bridging::Input::Config"}, {"fdbConfig", fdb(2)}, {"fdbConfigPriority", 200}}}};
   }
   // The first input has every host, the second one in two, the third one in five; each names another port. To
   // every fiftieth host there is a group.
   Json fdb(int input) const {
      static constexpr int share[] = {1, 2, 5};
      Json all = Json::object();
      for (int host = 0; host < hosts; host += share[input]) {
         std::string const vlan = std::to_string(1 + host % vlans);
         std::string const port = portName(1 + (host + input) % ports);
         all[vlan]["configuredHost"][address(0x02, host)] = {{"intf", port}};
         if (host % 50 == 0)
            all[vlan]["ethGroup"][address(0x03, host)] = {{"intf", {{port, true}}}};
      }
      return all;
   }
   static std::string address(int first, int number) {
      char text[18];
      std::snprintf(text, sizeof text, "%02x:00:00:%02x:%02x:%02x", first, number >> 16 & 0xff,
                    number >> 8 & 0xff, number & 0xff);
      return text;
   }
   Json dynamicSources() const {
      std::string protocol, overlay;
      for (int vlan = 2; vlan <= vlans; vlan += 2) {
         bool const isBoths = vlan % 100 == 0;
         if (isBoths || vlan % 4 == 0)
            protocol += (protocol.empty() ? "" : ",") + std::to_string(vlan);
         if (isBoths || vlan % 4 != 0)
            overlay += (overlay.empty() ? "" : ",") + std::to_string(vlan);
      }
      Json widened = Json::object(), members = Json::object(), learned = Json::object();
      for (int port = 4; port <= ports; port += 4)
         learned[portName(port)] = protocol;
      for (int port = 2; port <= ports; port += 4)
         widened[portName(port)] = std::to_string(vlans / 2 + 1) + "-" + std::to_string(vlans);
      for (int port = 1; port <= ports; port += 4)
         members[portName(port)] = true;
      return {{"bridging/input/dynvlan/vlan/mvrp",
               {{"$type", "Bridging::Input::VlanIdSet"}, {"vlans", protocol}, {"configPriority", 10}}},
              {"bridging/input/dynvlan/vlan/overlay",
               {{"$type", "Bridging::Input::VlanIdSet"},
                {"vlans", overlay},
                {"configPriority", 20},
                {"trunkGroup", {{"tunnels", true}}}}},
              {"bridging/input/dynvlan/allowedvlan/mvrp",
               {{"$type", "Bridging::Input::AllowedVlans"}, {"vlans", learned}}},
              {"bridging/input/dynvlan/allowedvlan/overlay",
               {{"$type", "Bridging::Input::AllowedVlans"},
                {"vlans", widened},
                {"trunkGroup", {{"tunnels", {{"intfList", members}}}}}}}};
   }
};

} // namespace Scenario
