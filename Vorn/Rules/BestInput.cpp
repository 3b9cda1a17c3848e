#include "Vorn/Rules/BestInput.h"

#include "records/Bridging/EthGroup.h"

namespace Vorn {

using Bridging::Input::Config;

Kem::Ptr<Config> bestVlanInput(Kem::Dir const& inputDir) {
   Kem::Ptr<Config> best;
   uint32_t bestPriority = 0;
   forEachInput(inputDir, [&](Kem::Ptr<Config> const& input) {
      if (input->vlanConfigPriority() > bestPriority) {
         best = input;
         bestPriority = input->vlanConfigPriority();
      }
   });
   return best;
}

namespace {

// Not ">" as for VLANs and ports: here the last of equals wins, and 0 takes part.
void preferFdb(FdbHolder& best, FdbHolder const& candidate) {
   if (!best.input || candidate.input->fdbConfigPriority() >= best.input->fdbConfigPriority())
      best = candidate;
}

bool hasFdbGroup(FdbHolder const& holder, Sulvi::EthAddr addr) {
   return addr.isMulticast() && holder.record->ethGroup().find(addr);
}
bool hasFdbHost(FdbHolder const& holder, Sulvi::EthAddr addr) {
   return holder.record->configuredHost().find(addr);
}

} // namespace

FdbInputs::FdbInputs(Kem::Dir const& inputDir, Bridging::VlanId vlanId) {
   forEachInput(inputDir, [&](Kem::Ptr<Config> const& input) {
      if (auto const record = input->fdbConfig(vlanId))
         holders_.push_back({input, record});
   });
}

FdbHolder FdbInputs::best(Sulvi::EthAddr addr) const {
   FdbHolder best;
   for (FdbHolder const& holder : holders_)
      if (hasFdbGroup(holder, addr) || hasFdbHost(holder, addr))
         preferFdb(best, holder);
   return best;
}

FdbUse FdbInputs::use(Sulvi::EthAddr addr) const {
   FdbUse use;
   for (FdbHolder const& holder : holders_) {
      if (hasFdbHost(holder, addr))
         preferFdb(use.bestHost, holder);
      if (hasFdbGroup(holder, addr))
         preferFdb(use.bestGroup, holder);
   }
   use.best = best(addr);
   use.isGroup = use.best.input && use.best.input == use.bestGroup.input;
   return use;
}

void findBestFdbConfig(Kem::Dir const& inputDir, Bridging::VlanId vlanId, Sulvi::EthAddr addr,
                       Kem::Ptr<Config const>& bestConfig) {
   bestConfig = FdbInputs(inputDir, vlanId).best(addr).input;
}

} // namespace Vorn
