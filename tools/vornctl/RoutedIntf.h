// All that the records say of one interface, gathered from the places where they say it: who configures it, its
// state, where its kernel device is and should be, and the row of the table that decides its state.
//
// VLAN interfaces and subinterfaces are the agent's, which goes by the tables of Vorn/Rules; of all others their
// publishers' words are shown as they are. Nothing here asks the kernel.
#pragma once

#include "SwitchState.h"

#include "DynVlanIntf/SourcePriorityPair.h"
#include "Sulvi/IntfId.h"
#include "Sulvi/NamespaceName.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/IntfStatusLocal.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/VlanIntfConfig.h"

#include <optional>
#include <string>
#include <vector>

namespace Vornctl {

// What a table of Vorn/Rules says of an interface.
struct IntfVerdict {
   int row = 0; // its number in the table, from 1
   Interface::IntfOperStatus operStatus = Interface::IntfOperStatus::intfOperUnknown;
   std::string reason; // in words, as the end of "Vlan10 is down: "
};

// A directory of dynamic VLAN interfaces that asks for one.
struct DynVlanIntfClaim {
   Vorn::SourcePriorityPair source; // its rank among them
   Kem::Ptr<Interface::VlanIntfConfig> config;

   std::string text() const {
      return source.name.str() + ' ' + std::to_string(source.priority);
   } // "overlay 20"
};

struct RoutedIntf {
   Sulvi::IntfId intfId;
   // --- Records; null where there are none.
   Kem::Ptr<Interface::IntfConfig> config; // the one that counts
   Kem::Ptr<Interface::IntfStatus> status;
   Kem::Ptr<Interface::IntfStatusLocal> local;
   Kem::Ptr<Interface::Hardware::SubIntfStatus> hwStatus;
   Kem::Ptr<Interface::IntfStatus> parentStatus;
   std::vector<DynVlanIntfClaim> claims; // of dynamic sources, the one that would win first

   bool isVlanIntf() const { return intfId.kind() == Sulvi::IntfKind::vlan; }
   bool isSubIntf() const;
   // --- What follows.
   bool isDynamic() const; // its configuration is that of a dynamic source
   // Who configures it: "static", or the name of a dynamic source; empty when nobody does.
   std::string source() const;
   // Claims that don't count, as "overlay 20".
   std::vector<std::string> lostClaims() const;
   // Null for other kinds, and without a configuration.
   Kem::Ptr<Interface::VlanIntfConfig> vlanConfig() const;
   Kem::Ptr<Interface::SubIntfConfig> subConfig() const;
   Kem::Ptr<Interface::SubIntfStatus> subStatus() const;
   // Of a VLAN interface; nothing for other kinds and for a number that no VLAN has.
   std::optional<Bridging::VlanId> vlanId() const;
   // Of a subinterface; empty for other kinds.
   Sulvi::IntfId parent() const;
   // The one that the state names, else the one that it is to have.
   std::string deviceName() const;
   // Whether the agent makes its kernel device: a VLAN interface or subinterface with a number that it takes.
   bool hasAgentDevice() const;

   Sulvi::NamespaceName netNs;         // that its device is in, as the local record says
   Sulvi::NamespaceName wantedNetNs;   // that it is configured into
   std::optional<IntfVerdict> verdict; // nothing for other kinds, and while records are missing
   std::string deviceProblem;          // what the agent says that keeps its device away; empty for nothing
};

// Those that have a configuration or a state, in natural order.
std::vector<Sulvi::IntfId> knownIntfs(SwitchState const& state);
bool isKnownIntf(SwitchState const& state, Sulvi::IntfId intfId);
RoutedIntf routedIntf(SwitchState const& state, Sulvi::IntfId intfId);

// Ports of the VLAN that forward, other than the processor's.
std::vector<Sulvi::IntfId> forwardingPorts(SwitchState const& state, Bridging::VlanId vlanId);
// Other subinterfaces of its parent that claim its VLAN number; what is lacking to be taken up doesn't count.
std::vector<Sulvi::IntfId> rivalsOf(SwitchState const& state, RoutedIntf const& intf);

// "static", "dynamic source overlay", with ", by cli" where the record names its publisher; "none" without one.
std::string sourceText(RoutedIntf const& intf);
// "default" for the default namespace.
std::string netNsText(Sulvi::NamespaceName const& netNs);
// Whether the interface is up by its record.
bool isUpByRecord(RoutedIntf const& intf);

} // namespace Vornctl
