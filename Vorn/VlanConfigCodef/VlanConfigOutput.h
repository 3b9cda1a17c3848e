// What the deferred stage of VLANs needs of the owner of the copies (StaticVlans): the input that was
// chosen, the copies, and the state machines that follow them.
#pragma once

#include "Kem/Collections.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/VlanConfig.h"

namespace Vorn {

class AttrLogCheck;

class VlanConfigOutput {
  public:
   using VlanConfigAfterCodef = Kem::HashMap<Bridging::Input::VlanConfig, Bridging::VlanId>;

   // The input that VLANs follow; null when there is none.
   virtual Kem::Ptr<Bridging::Input::Config const> const& configIn() const = 0;
   // All copies, and the copy of one VLAN, which is null when there is none.
   virtual VlanConfigAfterCodef const& vlanConfigAfterCodef() const = 0;
   virtual Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodef(Bridging::VlanId vlanId) const = 0;
   // Finds or makes the copy; a new one makes the VLAN's state machine, which waits to be initialized.
   virtual Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodefIs(Bridging::VlanId vlanId) = 0;
   // Deletes the copy and what follows from it. Called too when the input drops a VLAN before it got a copy.
   virtual void vlanConfigAfterCodefDel(Bridging::VlanId vlanId) = 0;
   // The copy is complete: its state machine, which exists, evaluates it for the first time.
   virtual void vlanConfigSmInitialize(Bridging::VlanId vlanId) = 0;
   // Who says whether there is room to write; null for always.
   virtual AttrLogCheck* attrLogCheck() const = 0;

  protected:
   ~VlanConfigOutput() = default;
};

} // namespace Vorn
