// What the publishers of the property test ask for, as plain structs: the inputs of the model.
//
// Records are shared pointers because a record is more than what it says: one that was deleted and made
// again is another record, and those who followed the first one must notice. A record that its publisher has
// deleted stays as long as somebody still holds it.
#pragma once

#include <bitset>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Model {

enum Mode { access = 0, trunk = 1, tunnel = 2, tap = 3, tool = 4, routed = 5 };

constexpr unsigned lastVlan = 4094;
using VlanSet = std::bitset<lastVlan + 1>; // by number

constexpr unsigned routedModel = 5;     // of an interface's forwarding model
constexpr unsigned agentsPriority = 10; // of its default records
constexpr char agentsInput[] = "eth"; // the agent's own input: a default record for each port that can bridge

// Role of a VLAN among private VLANs.
struct Role {
   unsigned type = 0; // 1 for a secondary; others are carried
   unsigned primary = 0;
   bool operator==(Role const&) const = default;
};

struct Vlan {
   std::string name{};
   bool isSuspended = false;
   Role role{};
   std::set<std::string> trunkGroups{};
   bool operator==(Vlan const&) const = default;
};

// The tags of a frame, outer and inner; 0 for none.
using Tags = std::pair<unsigned, unsigned>;

std::string tagsText(Tags const& tags); // "10/0"
Tags tagsOf(std::string const& text);

struct Port {
   bool enabled = true;
   int mode = access;
   unsigned accessVlan = 1, trunkNative = 1, tapNative = 1;
   std::string trunkAllowed = "1-4094", tapAllowed = "1-4094", toolAllowed = "1-4094", asym{};
   std::set<std::string> trunkGroups{};
   bool learns = true, floods = true;
   unsigned tpid = 0x8100;
   std::map<Tags, Tags> ingress{}, egress{}; // translations
   unsigned ingressNative = 0, egressNative = 0;
   std::set<unsigned> mappedSecondaries{};
   bool mapsAllSecondaries = false, mapsOnTrunk = false, tagsIdentity = false;
};

// Of these modes a port has allowed VLANs.
constexpr bool isTrunkLike(int mode) {
   return mode == trunk || mode == tap || mode == tool;
}

// The VLAN that the record names for its mode, where a port can only have one that exists; 0 for other modes.
constexpr unsigned configuredNative(Port const& port) {
   return port.mode == trunk                           ? port.trunkNative
          : port.mode == access || port.mode == tunnel ? port.accessVlan
                                                       : 0;
}

// Attributes of a port's record, in the order of the record.
enum class PortAttr {
   enabled,
   mode,
   accessVlan,
   trunkNative,
   trunkAllowed,
   asym,
   trunkGroups,
   learns,
   floods,
   tpid,
   ingress,
   egress,
   ingressNative,
   egressNative,
   mappedSecondaries,
   mapsAllSecondaries,
   mapsOnTrunk,
   tapNative,
   tapAllowed,
   toolAllowed,
   tagsIdentity,
};

enum class VlanAttr { isSuspended, name, role, trunkGroups };

// A static host.
struct Host {
   std::string intf;
   unsigned type = 0; // 0 forwarded, 1 dropped
   bool operator==(Host const&) const = default;
};

// Static hosts and groups of one VLAN, in one input. An address is one of the two.
struct Fdb {
   std::map<std::string, Host> hosts{};
   std::map<std::string, std::shared_ptr<std::set<std::string>>> groups{}; // ports by address
};

struct Input {
   std::string name;
   unsigned vlanPriority = 0, portPriority = 0, fdbPriority = 0;
   std::string detail{};
   std::map<unsigned, std::shared_ptr<Vlan>> vlans{};
   std::map<std::string, std::shared_ptr<Port>> ports{};
   std::map<unsigned, std::shared_ptr<Fdb>> fdbs{}; // by VLAN
};

// What one dynamic source asks for.
struct Source {
   std::string vlans{}; // a list
   unsigned priority = 0;
   std::set<std::string> trunkGroups{};
};

// What one dynamic source adds to trunks.
struct Widener {
   std::map<std::string, std::string> lists{};                             // of VLANs, by port
   std::map<std::string, std::shared_ptr<std::set<std::string>>> groups{}; // ports by trunk group
};

struct IntfConfig {
   bool isShut = false;
};
struct IntfStatus {
   unsigned forwardingModel = 0;
};
// What a VLAN interface and a subinterface have in common.
struct RoutedIntf {
   bool isEnabled = true, isShut = false;
   unsigned mtu = 1500;
   std::string addr{}; // empty for none
   // Being shut down by configuration overrules the stored word.
   bool isInUse() const { return isEnabled && !isShut; }
};
struct VlanIntf : RoutedIntf {
   bool autoState = true;
};
struct SubIntf : RoutedIntf {
   unsigned vlanId = 0;
   bool isDot1q = false;
};
// VLAN interfaces that one dynamic source asks for, by name; some names are of none.
struct VlanIntfSource {
   unsigned priority = 0;
   std::map<std::string, VlanIntf> intfs{};
};
// A port with subinterfaces.
struct Parent {
   unsigned operStatus = 4, forwardingModel = 0;
};
// A device that routed interfaces are on: the fabric device, and those of ports.
struct BaseDevice {
   bool isUp = true;
   unsigned mtu = 9214;
};

// Routed interfaces and all that they depend on, besides `vlanIntfs` below.
struct Routing {
   std::map<std::string, SubIntf> subIntfs;
   std::map<std::string, VlanIntfSource> sources;
   std::set<std::string> statuses, locals;   // records that the interface manager has made, by interface
   std::map<std::string, std::string> netNs; // the namespace of each interface that is to be in one
   std::set<std::string> namespaces;         // that there are
   std::map<std::string, Parent> parents;
   std::map<std::string, bool> hardware; // whether the subinterface is programmed; absent without a record
   std::string bridgeAddr;               // empty for none
   unsigned maxFrame = 9214;
   bool autoState = true;
   std::map<unsigned, std::set<std::string>> forwarding; // ports by VLAN
   std::map<std::string, BaseDevice> devices;            // by name
};

// Which secondary VLANs the interface of a primary VLAN serves.
struct SviMapping {
   bool servesAll = false;
   std::set<unsigned> served{};
   bool operator==(SviMapping const&) const = default;
};

// Settings of the command line for the whole bridge.
struct Settings {
   unsigned rangeMin = 1006, rangeMax = 4094;
   bool allocatesDescending = false;
   double agingTime = 300;
   bool passesPause = false;
   unsigned forwardingMode = 0;
   std::map<unsigned, unsigned> fids;
   std::set<std::string> reserved;
   std::map<unsigned, std::shared_ptr<SviMapping>> sviMappings; // by primary
};

enum class Setting { agingTime, passesPause, forwardingMode, allocationPolicy, range };

struct Intent {
   std::map<std::string, std::shared_ptr<Input>> inputs;              // by name, the order of the directory
   std::shared_ptr<Settings> settings = std::make_shared<Settings>(); // those of the input "cli"
   std::map<std::string, std::shared_ptr<IntfConfig>> intfConfigs;
   std::map<std::string, std::shared_ptr<IntfStatus>> intfStatuses;
   std::map<std::string, VlanIntf> vlanIntfs; // by name
   Routing routing;
   std::map<std::string, std::shared_ptr<Source>> sources;
   std::map<std::string, std::shared_ptr<Widener>> wideners;
   std::vector<unsigned> supportedModes; // of forwarding, by index
   bool isRoutedByDefault = false;
};

// One change of the intent, as those who follow it are notified of it.
struct Change {
   enum What {
      inputs,         // an input came or went: `name`
      vlanPriority,   // of the input `name`
      portPriority,   // of the input `name`
      inputVlan,      // VLAN `number` of the input `name` came or went
      inputPort,      // port `key` of the input `name` came or went
      vlanAttribute,  // `attribute` of VLAN `number` of the input `name`
      portAttribute,  // `attribute` of port `key` of the input `name`; `member` is the key in a collection
      intfConfig,     // of port `key` came or went
      intfConfigShut, // of port `key` changed
      intfStatus,     // of port `key` came or went
      intfStatusModel,
      vlanIntf,           // `key` came or went
      vlanIntfSource,     // a source of them came
      setting,            // `attribute` of the command line's settings
      fid,                // of VLAN `number`
      reserved,           // address `key`
      source,             // `name` came or went
      sourceVlans,        // its list or its rank
      sourceGroup,        // its trunk group `key`
      widener,            // `name` came or went
      widenerList,        // its list for port `key`
      widenerGroup,       // its trunk group `key` came or went
      widenerGroupMember, // port `member` of that group
      sviMapping,         // of primary `number` came or went
      sviServed,          // secondary `key` of it
      sviServesAll,
      inputFdb,    // the hosts and groups of VLAN `number` of the input `name` came or went
      inputHost,   // host `key` of VLAN `number` of the input `name`
      inputGroup,  // group `key` of it came or went
      groupMember, // port `member` of that group
      hardware,    // the list of its forwarding modes
   } what;
   std::string name{};
   std::string key{};
   std::string member{};
   unsigned number = 0;
   int attribute = 0;
};

// The VLANs of a list; an item that isn't a number or a range from 1 to 4094 doesn't count.
VlanSet const& vlansOf(std::string const& list);

} // namespace Model
