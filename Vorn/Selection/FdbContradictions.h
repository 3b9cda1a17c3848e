// Multicast addresses that inputs use as a static host and as a group in one VLAN. A publisher's mistake: the
// selection keeps what the best input says (FdbUse), and this names the mistake in the trace, once when it
// comes up and again when other inputs are in it.
//
// It only reports; nothing is decided by it. Owned by InputSelectorSm, which shares it among the inputs.
#pragma once

#include "Vorn/Rules/BestInput.h"

#include <map>
#include <string>
#include <utility>

namespace Vorn {

class FdbContradictions {
  public:
   // How the address is used now.
   void useIs(Bridging::VlanId vlanId, Sulvi::EthAddr addr, FdbUse const& use);
   // No input holds the VLAN any more.
   void vlanDel(Bridging::VlanId vlanId);

  private:
   std::map<std::pair<Bridging::VlanId, Sulvi::EthAddr>, std::string> reported_; // and how
};

} // namespace Vorn
