// Network devices as the kernel has them, read for one command by one dump of each namespace that it shows.
//
// Nothing here fails a command: where a namespace can't be read, its view says why in words. What was read is kept,
// so that all of one answer is of one dump. No device is changed.
#pragma once

#include "AgentProcess.h"

#include "Netlink/Channel.h"
#include "Sulvi/EthAddr.h"
#include "Sulvi/NamespaceName.h"

#include <cstdint>
#include <map>
#include <string>

namespace Vornctl {

struct KernelDevice {
   int index = 0;          // in its namespace
   Sulvi::EthAddr addr;    // zero for a device that has none of six bytes
   uint32_t mtu = 0;       // bytes
   uint32_t flags = 0;     // as in netdevice(7)
   uint8_t operState = 0;  // IF_OPER_UP and the like, of linux/if.h
   std::string kind;       // "vlan", "veth"; empty for hardware
   uint16_t vlanId = 0;    // of a VLAN device; 0 for others
   int baseIndex = 0;      // of the device that it is on; 0 for none
   bool isBaseHere = true; // the base is in the same namespace, so that its index means something here

   bool isUp() const;
};
// As ip(8) writes it: "up", "lower layer down"; "state 9" for what has no name.
std::string kernelOperStateText(uint8_t operState);
// Those that say something about an interface, such as "up, broadcast, running"; "none".
std::string kernelFlagsText(uint32_t flags);

struct KernelNamespace {
   bool exists = false;
   std::string problem; // why its devices can't be read; empty when they were
   std::map<std::string, KernelDevice> deviceByName;

   // Null when there is none, or the namespace can't be read.
   KernelDevice const* findDevice(std::string const& name) const;
   // The name of the device with that index; empty when there is none.
   std::string nameOf(int index) const;
};

class KernelView {
  public:
   explicit KernelView(AgentProcess agent = {}) : agent_(std::move(agent)) {}
   // An empty name is the default namespace, which is the one that the agent runs in.
   KernelNamespace const& at(Sulvi::NamespaceName const& netNs);
   // Something about all of it that a reader must know, such as that the default namespace is vornctl's own, since
   // the agent's can't be found out; empty for nothing.
   std::string const& remark() const { return agent_.remark(); }

  private:
   AgentProcess const agent_;
   std::map<std::string, KernelNamespace> namespaces_; // by name, "" for the default one
};

// The devices that the kernel lists on this channel, and why it doesn't in `problem`.
KernelNamespace readDevices(Netlink::Channel& channel);

} // namespace Vornctl
