// The kernel's side of the benchmark of devices: making them without an agent, and looking at them.
//
// All of it is in the network namespace of the process. What the kernel refuses ends the program with a message.
#pragma once

#include "Netlink/Socket.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

using Address = std::array<uint8_t, 6>;

// A dummy device that is up, its index.
int makeBase(std::string const& name, uint32_t mtu);
// With the devices on it.
void deleteLink(std::string const& name);
int indexOf(std::string const& name);

struct VlanLink {
   std::string name;
   int base = 0; // index
   uint16_t vlanId = 0;
};

// Makes VLAN devices as a good program would that does nothing else: one request each, with all that the device is
// to have, and each answer waited for.
class LinkMaker {
  public:
   LinkMaker();
   void make(VlanLink const& link, Address const& address, uint32_t mtu);

  private:
   Netlink::Socket socket_;
};

// Makes VLAN devices by the calls that the agent makes, one after the other, and nothing else: what its order of steps
// costs in this kernel. `seconds` is added up over all devices, if it is timed; in a user-mode kernel the clock costs
// as much as a call.
class StepMaker {
  public:
   struct Step {
      char const* name;
      double seconds = 0;
   };
   explicit StepMaker(bool isTimed);
   ~StepMaker();
   StepMaker(StepMaker const&) = delete;
   StepMaker& operator=(StepMaker const&) = delete;
   void make(VlanLink const& link, std::string const& base, Address const& address, uint32_t mtu);
   std::vector<Step> const& steps() const { return steps_; }

  private:
   template <class Call>
   void step(char const* name, Call const& call);

   bool const isTimed_;
   Netlink::Socket socket_;
   int fd_;
   size_t at_ = 0; // in steps_
   std::vector<Step> steps_;
};

// How many VLAN devices there are that are switched on, with that address and MTU. The kernel settles their operational
// state by itself, a second later.
size_t countReady(Address const& address, uint32_t mtu);

// The kernel's news of devices from the construction on.
class LinkNews {
  public:
   LinkNews();
   struct Count {
      unsigned changed = 0; // RTM_NEWLINK
      unsigned deleted = 0; // RTM_DELLINK
      bool isWhole = true;  // nothing was lost
   };
   Count count(); // since the last call

  private:
   Netlink::Socket socket_;
};

} // namespace Bench
