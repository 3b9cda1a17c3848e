// VLAN lists that have been read: the same text is read once, however many ports have it.
//
// A trunk's list is looked at for each VLAN that a dynamic source makes, and most ports of a switch have one of
// a few lists. Keeps a bounded number of texts, and starts afresh beyond that: with more different lists than
// that in use each look reads its text again, which costs time and never memory.
#pragma once

#include "Kem/Collections.h"
#include "Kem/String.h"
#include "VornUtils/VlanIdSet.h"

#include <string>

namespace Vorn {

struct VlanList {
   VornUtils::VlanIdSet vlans;
   std::string leftOut; // its items that are no VLAN numbers, with commas between; empty when there are none
};

class VlanLists {
  public:
   static constexpr size_t capacity = 1024; // of 0.5 KB each

   // Stands until the next call.
   VlanList const& list(Kem::String8 const& text);

  private:
   Kem::ValueMap<Kem::String8, VlanList> lists_;
};

} // namespace Vorn
