// The kernel device of an interface: what the kernel has, or in words why nothing can be said of it.
#pragma once

#include "Json.h"
#include "KernelDevices.h"
#include "RoutedIntf.h"

#include <string>

namespace Vornctl {

// Null when there is none, or its namespace can't be read.
KernelDevice const* deviceOf(KernelView& kernel, RoutedIntf const& intf);
// What stands in place of a device that deviceOf doesn't find: "no device", "unreadable"; "-" for an interface that
// need not have one.
std::string absenceText(KernelView& kernel, RoutedIntf const& intf);

// The name of the device that it is to be on: the agent's fabric device for a VLAN interface, the parent's device for
// a subinterface; empty for others.
std::string wantedBase(SwitchState const& state, RoutedIntf const& intf);
// The number of the VLAN that its device is to be of, 0 for none.
uint16_t wantedVlanId(RoutedIntf const& intf);
// How the device differs from what is configured, as in "it is of VLAN 20 and not of VLAN 10"; empty where it doesn't.
std::string mismatchText(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf,
                         KernelDevice const& device);

// Configured MTU in bytes; 0, which nobody can mean, stands for the usual one.
uint32_t configuredMtu(Interface::IntfConfig const& config);
// "1500", "9000 (kernel 1500)", "-" without a configuration and a device.
std::string mtuText(RoutedIntf const& intf, KernelDevice const* device);
// Of the state, else of the device; "-" for none.
std::string addressText(RoutedIntf const& intf, KernelDevice const* device);

// The state of its record; "no status" without one.
std::string stateText(RoutedIntf const& intf);
// Why the interface is in that state, or is to be in another one; "-" where there is nothing to say.
std::string reasonText(RoutedIntf const& intf);

// All of the interface, as the commands print it.
Json intfJson(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf);
// The answer of a show command: the interfaces under `member`, and what concerns all of them.
std::string intfsJsonText(SwitchState const& state, KernelView& kernel, char const* member,
                          std::vector<RoutedIntf> const& intfs);
// Null when no agent is connected.
Json agentPidJson(SwitchState const& state);

// What a reader of a table must know besides, a line each: why devices can't be read, what the agent says that keeps
// devices away, that there is no agent. Empty, or with an empty line in front.
std::string remarksText(SwitchState const& state, KernelView& kernel, std::vector<RoutedIntf> const& intfs,
                        size_t width);

} // namespace Vornctl
