#include "VlanOperStatus/Root.h"

#include "Kem/Record.h"

namespace VlanOperStatus {

namespace {

template <class T>
void requireSameInput(char const* attribute, Kem::Ptr<T> const& standing, Kem::Ptr<T> const& asked) {
   auto const text = [](Kem::Ptr<T> const& input) { return input ? input->fullName() : std::string("null"); };
   if (standing != asked)
      Kem::throwReinstantiating(attribute, text(standing), text(asked));
}

} // namespace

Kem::Ptr<VlanOperStatusSm> Root::vlanOperStatusSmIs(VlanOperStatusInputs const& asked) {
   if (!vlanOperStatusSm_) {
      vlanOperStatusSm_ = Kem::makeInitialized<VlanOperStatusSm>(asked);
      return vlanOperStatusSm_;
   }
   auto const& standing = vlanOperStatusSm_->inputs();
   requireSameInput("vlanIntfStatusDir", standing.vlanIntfStatusDir, asked.vlanIntfStatusDir);
   requireSameInput("vlanStatusDir", standing.vlanStatusDir, asked.vlanStatusDir);
   requireSameInput("vlanIntfConfigDir", standing.vlanIntfConfigDir, asked.vlanIntfConfigDir);
   requireSameInput("dynVlanIntfDir", standing.dynVlanIntfDir, asked.dynVlanIntfDir);
   requireSameInput("dynVlanIntfList", standing.dynVlanIntfList, asked.dynVlanIntfList);
   requireSameInput("privateVlanLibState", standing.privateVlanLibState, asked.privateVlanLibState);
   requireSameInput("allVlanIntfAutoState", standing.allVlanIntfAutoState, asked.allVlanIntfAutoState);
   return vlanOperStatusSm_;
}

} // namespace VlanOperStatus
