#include "Vorn/Rules/VlanLists.h"

namespace Vorn {

VlanList const& VlanLists::list(Kem::String8 const& text) {
   if (auto const* const known = lists_.find(text))
      return *known;
   if (lists_.size() >= capacity)
      lists_ = {};
   return *lists_
               .findOrInsert(text,
                             [&] {
                                VlanList read;
                                read.leftOut = VornUtils::computeVlanSet(read.vlans, text.view());
                                return read;
                             })
               .first;
}

} // namespace Vorn
