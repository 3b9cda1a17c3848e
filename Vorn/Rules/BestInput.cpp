#include "Vorn/Rules/BestInput.h"

#include "records/Bridging/EthGroup.h"
#include "records/Bridging/Input/FdbConfig.h"

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

void findBestFdbConfig(Kem::Dir const& inputDir, Bridging::VlanId vlanId, Sulvi::EthAddr addr,
                       Kem::Ptr<Config const>& bestConfig) {
   bestConfig = nullptr;
   uint32_t bestPriority = 0;
   forEachInput(inputDir, [&](Kem::Ptr<Config> const& input) {
      // Not ">=" as for VLANs and ports: here the last of equals wins, and 0 takes part.
      if (bestPriority > input->fdbConfigPriority())
         return;
      auto const fdb = input->fdbConfig(vlanId);
      if (!fdb)
         return;
      if ((addr.isMulticast() && fdb->ethGroup().find(addr)) || fdb->configuredHost().find(addr)) {
         bestConfig = input;
         bestPriority = input->fdbConfigPriority();
      }
   });
}

} // namespace Vorn
