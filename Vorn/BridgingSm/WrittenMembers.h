// What one port wrote last into each VLAN, a byte for each number, so that a pass over all VLANs can skip
// those where nothing changes without looking them up. Only the passes of VlanMembership.cpp read it. A VLAN
// is forgotten when it is deleted, and when somebody else edits it (ResolvedVlans::handleForeignChange).
#pragma once

#include "records/Bridging/types.h"

#include <array>
#include <cstdint>

namespace Vorn {

class WrittenMembers {
  public:
   // A membership as one number: the two flags, the direction, and a bit that says that there is one.
   using Code = uint8_t;
   static constexpr Code none = 0;
   static constexpr Code unknown = 0xff;
   static Code code(Bridging::VlanPortConfig const& member) {
      return static_cast<Code>(1 | member.tagged << 1 | member.mappedUntagged << 2 |
                               static_cast<unsigned>(member.direction) << 3);
   }

   // Everything is unknown at first: the previous run may have left members. It stays unknown for a port
   // whose membership is written by others too: the processor's, which CpuPort.h writes.
   explicit WrittenMembers(bool isWrittenByOthersToo) : always_(isWrittenByOthersToo ? unknown : Code(0)) {
      codes_.fill(unknown);
   }
   Code operator[](uint16_t vlanId) const { return codes_[vlanId]; } // 0 to 4094
   void codeIs(Bridging::VlanId vlanId, Code code) { codes_[vlanId] = code | always_; }
   void forget(Bridging::VlanId vlanId) { codes_[vlanId] = unknown; }

  private:
   Code const always_;
   std::array<Code, Bridging::VlanId::max + 1> codes_;
};

} // namespace Vorn
