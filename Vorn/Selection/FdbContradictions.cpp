#include "Vorn/Selection/FdbContradictions.h"

#include "Kem/Trace.h"

namespace Vorn {

namespace {

Kem::TraceFacility contradictionTrace("VornSelectorFdb");

std::string contradictionText(FdbUse const& use) {
   return "is a static host in input " + use.bestHost.input->name().str() + " and a group in input " +
          use.bestGroup.input->name().str() + ": the " + (use.isGroup ? "group" : "host") + " counts";
}

} // namespace

void FdbContradictions::useIs(Bridging::VlanId vlanId, Sulvi::EthAddr addr, FdbUse const& use) {
   std::pair const key(vlanId, addr);
   if (!use.isContradiction()) {
      reported_.erase(key);
      return;
   }
   auto const text = contradictionText(use);
   auto& reported = reported_[key];
   if (reported == text)
      return;
   reported = text;
   KEM_TRACE(contradictionTrace, 0, "Vlan " << vlanId << ": " << addr << ' ' << text);
}

void FdbContradictions::vlanDel(Bridging::VlanId vlanId) {
   std::erase_if(reported_, [&](auto const& entry) { return entry.first.first == vlanId; });
}

} // namespace Vorn
