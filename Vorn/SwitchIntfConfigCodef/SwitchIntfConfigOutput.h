// What the deferred stage of ports needs of the owner of the copies (Switchports): the copies, and the
// state machines that follow them.
#pragma once

#include "records/Bridging/Input/SwitchIntfConfig.h"

namespace Vorn {

class AttrLogCheck;

class SwitchIntfConfigOutput {
  public:
   // Finds or makes the copy; a new one makes the port's state machine, which waits to be initialized.
   virtual Kem::Ptr<Bridging::Input::SwitchIntfConfig>
   switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) = 0;
   // Deletes the copy and what follows from it; nothing when there is none.
   virtual void switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) = 0;
   // The copy is complete: its state machine, which exists, evaluates all of it.
   virtual void switchIntfSmInitialize(Sulvi::IntfId intfId) = 0;
   // Who says whether there is room to write; null for always.
   virtual AttrLogCheck* attrLogCheck() const = 0;

  protected:
   ~SwitchIntfConfigOutput() = default;
};

} // namespace Vorn
