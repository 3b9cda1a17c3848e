// What the deferred stage of subinterfaces needs of its owner (SubIntfSm): who has been taken on, and the state
// machines that follow the copies.
#pragma once

#include "records/Interface/SubIntfConfig.h"

#include <string>

namespace Vorn {

class AttrLogCheck;

class SubIntfConfigOutput {
  public:
   // Whether the subinterface has been taken on.
   virtual bool subIntfConfigAfterCodef(Sulvi::IntfId intfId) const = 0;
   virtual void subIntfConfigAfterCodefIs(Sulvi::IntfId intfId) = 0;
   // Takes back what follows from the copy; nothing when it hasn't been taken on.
   virtual void subIntfConfigAfterCodefDel(Sulvi::IntfId intfId) = 0;
   // The copy is complete: its state machine is made and evaluates it.
   virtual void subIntfConfigInitialize(Kem::Ptr<Interface::SubIntfConfig const> const& cfgOut) = 0;

   // The configuration went before it was taken on, or after its status records: a device may be left.
   virtual void subIntfConfigGone(Sulvi::IntfId intfId) = 0;
   // Why the switch can have no such subinterface, in words; empty when it can, or when nothing is configured.
   virtual void subIntfConfigRefused(Sulvi::IntfId intfId, std::string const& problem) = 0;
   // Nothing waits any more.
   virtual void subIntfConfigBacklogEmpty() = 0;
   // Who says whether there is room to write; null for always.
   virtual AttrLogCheck* attrLogCheck() const = 0;

  protected:
   ~SubIntfConfigOutput() = default;
};

} // namespace Vorn
