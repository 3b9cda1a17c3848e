// Which publisher's input wins: for the VLANs, for one port, and for one static host or group.
//
// The inputs are the entities of the input directory that are a Bridging::Input::Config; others
// are passed over. The order of the directory, that of names, decides between equal priorities,
// and not in the same way everywhere:
//
//    VLANs and ports     the greater priority wins, 0 takes no part, the first of equals stays
//    hosts and groups    the greater priority wins, 0 takes part, the last of equals wins
//
// Functions of the records alone. They change nothing and keep nothing.
#pragma once

#include "Kem/Dir.h"
#include "Sulvi/EthAddr.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <vector>

namespace Vorn {

// Calls visit(input) for each input, in the order of the directory.
template <class Visit>
void forEachInput(Kem::Dir const& inputDir, Visit&& visit) {
   for (auto const& [name, entity] : inputDir.entities())
      if (auto const input = Kem::ptrCast<Bridging::Input::Config>(entity))
         visit(input);
}

// The input that gives all VLANs, whatever it holds; null when every input has the priority 0.
Kem::Ptr<Bridging::Input::Config> bestVlanInput(Kem::Dir const& inputDir);

// The record that decides a port, and the input that holds it; both null when there is none.
struct BestPortRecord {
   Kem::Ptr<Bridging::Input::Config> input;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> record;
};

// An input without a record for the port doesn't count, however high its priority. Calls considering(input)
// for each input that is searched for a record.
template <class Considering>
BestPortRecord bestPortRecord(Kem::Dir const& inputDir, Sulvi::IntfId intfId, Considering&& considering) {
   BestPortRecord best;
   uint32_t bestPriority = 0;
   forEachInput(inputDir, [&](Kem::Ptr<Bridging::Input::Config> const& input) {
      if (bestPriority >= input->switchIntfConfigPriority())
         return;
      considering(*input);
      if (auto const record = input->switchIntfConfig(intfId)) {
         best = {input, record};
         bestPriority = input->switchIntfConfigPriority();
      }
   });
   return best;
}
inline BestPortRecord bestPortRecord(Kem::Dir const& inputDir, Sulvi::IntfId intfId) {
   return bestPortRecord(inputDir, intfId, [](Bridging::Input::Config const&) {});
}

// The input that decides the static host or group of that address in the VLAN, in `bestConfig`: null when
// none has the address. A group counts for a multicast address only, a host for any.
void findBestFdbConfig(Kem::Dir const& inputDir, Bridging::VlanId vlanId, Sulvi::EthAddr addr,
                       Kem::Ptr<Bridging::Input::Config const>& bestConfig);

// One input with its static hosts and groups of a VLAN; both null for none.
struct FdbHolder {
   Kem::Ptr<Bridging::Input::Config const> input;
   Kem::Ptr<Bridging::Input::FdbConfig const> record;
};

// What inputs make of one address. When some have it as a host and others as a group, the kind that the best
// one has counts; an input that has it as both counts with its group.
struct FdbUse {
   FdbHolder best;
   bool isGroup = false; // of the best
   FdbHolder bestHost;   // of those that have it as a host
   FdbHolder bestGroup;  // of those that have it as a group

   bool isContradiction() const { return bestHost.input && bestGroup.input; }
};

// The inputs that hold static hosts or groups of one VLAN, gathered once for a pass over many addresses.
class FdbInputs {
  public:
   FdbInputs(Kem::Dir const& inputDir, Bridging::VlanId vlanId);
   // In the order of the directory.
   std::vector<FdbHolder> const& holders() const { return holders_; }
   // The same rule as findBestFdbConfig.
   FdbHolder best(Sulvi::EthAddr addr) const;
   FdbUse use(Sulvi::EthAddr addr) const;

  private:
   std::vector<FdbHolder> holders_;
};

} // namespace Vorn
