// The show commands, one function and one source each: a part of the switch's state as a table, or as JSON.
//
// Each names the parts of the state that it needs, is given them, and returns the text to print. Ports have
// their short names in tables and their full names in JSON, in natural order in both.
#pragma once

#include "SwitchState.h"

#include "Sulvi/IntfId.h"

#include <optional>
#include <string>

namespace Vornctl {

struct Format {
   bool wantsJson = false;
   size_t width = 80; // characters of a line of a table
};

// All VLANs, or one with its members one by one; Absent when there is no such VLAN.
inline constexpr Part showVlanParts = Part::config;
std::string showVlan(SwitchState const& state, std::optional<Bridging::VlanId> vlanId, Format const& format);

// All ports that are resolved, or one with all its settings; Absent when there is no such port.
inline constexpr Part showSwitchportParts = Part::config | Part::chosen | Part::inputs;
std::string showSwitchport(SwitchState const& state, std::optional<Sulvi::IntfId> port, Format const& format);

// Primary VLANs with their secondaries, and VLANs whose role makes no pair with what is wrong; or what one
// VLAN is part of. Absent when there is no such VLAN, or it is no private one.
inline constexpr Part showPrivateVlanParts = Part::config;
std::string showPrivateVlan(SwitchState const& state, std::optional<Bridging::VlanId> vlanId,
                            Format const& format);

// Translations of tags on all ports that have some, or on one; configured ones told from those that the agent
// added for private VLANs. Absent when there is no such port.
inline constexpr Part showTranslationParts = Part::config | Part::chosen | Part::inputs;
std::string showTranslation(SwitchState const& state, std::optional<Sulvi::IntfId> port,
                            Format const& format);

// Who publishes, and which publisher won what by which number.
inline constexpr Part showInputsParts = Part::chosen | Part::inputs;
std::string showInputs(SwitchState const& state, Format const& format);

// Static hosts and groups of all VLANs, or of one; Absent when there is no such VLAN.
inline constexpr Part showMacStaticParts = Part::config | Part::inputs;
std::string showMacStatic(SwitchState const& state, std::optional<Bridging::VlanId> vlanId,
                          Format const& format);
// VLANs that dynamic sources claim, all or one with each claim on it; Absent when none claims that VLAN.
inline constexpr Part showDynamicVlanParts = Part::config | Part::inputs | Part::dynamic;
std::string showDynamicVlan(SwitchState const& state, std::optional<Bridging::VlanId> vlanId,
                            Format const& format);

// Internal VLANs of routed ports, and the routed ports that have none.
inline constexpr Part showInternalVlanParts = Part::config | Part::interfaces | Part::causes;
std::string showInternalVlan(SwitchState const& state, Format const& format);

// Disabled ports, with each cause that holds them.
inline constexpr Part showErrdisableParts = Part::causes;
std::string showErrdisable(SwitchState const& state, Format const& format);

// --- Routed interfaces. Devices are asked of the kernel, in the namespaces that the records name; what can't be read
// there is said in place of the value.
inline constexpr Part showIntfParts = Part::config | Part::routed | Part::agentStatus | Part::agentPid;
// All interfaces, or one with all that is known of it; Absent when there is no such interface.
std::string showInterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                          Format const& format);
// VLAN interfaces, all or one; Absent when there is no such VLAN interface.
std::string showVlanInterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                              Format const& format);
// Subinterfaces, all or one; Absent when there is no such subinterface.
std::string showSubinterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                             Format const& format);
// Namespaces that an interface is in or is configured into.
std::string showNamespace(SwitchState const& state, Format const& format);

// How far the agent has come with its work.
inline constexpr Part showBacklogParts = Part::agentStatus | Part::agentPid;
std::string showBacklog(SwitchState const& state, Format const& format);

} // namespace Vornctl
