// The rank of a dynamic source among those that ask for one VLAN interface: the greatest priority wins, and among
// equals the greatest name, bytewise. 0 takes part. No two sources are equal, since names are unique.
#pragma once

#include "Kem/String.h"

#include <compare>
#include <cstdint>

namespace Vorn {

struct SourcePriorityPair {
   uint32_t priority = 0;
   Kem::String8 name;

   // The greater one is preferred.
   friend bool operator==(SourcePriorityPair const&, SourcePriorityPair const&) = default;
   friend std::strong_ordering operator<=>(SourcePriorityPair const&, SourcePriorityPair const&) = default;
};

} // namespace Vorn
