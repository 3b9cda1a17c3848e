// One dynamic source of VLAN interfaces: says to its parent which interfaces the source asks for, with which record
// and which rank.
//
// An interface whose name is none of a VLAN interface ("Vlan0", "Vlan4095", "Ethernet1") is named in the trace and asked
// for in vain.
//
// Owned by DynVlanIntfReactor, which takes it out of its table before it tears it down.
#pragma once

#include "DynVlanIntf/SourcePriorityPair.h"
#include "Kem/Collections.h"
#include "Kem/StateMachine.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"

namespace Vorn {

class DynVlanIntfReactor;

class DynVlanIntfConfigSm final : public Kem::StateMachine {
  public:
   using IntfIds = Kem::ValueMap<Sulvi::IntfId, bool>; // true where it is a VLAN interface

   DynVlanIntfConfigSm(Kem::String8 const& name, DynVlanIntfReactor& parent);
   // The source's record, or another one in its place: what only the old one asked for goes.
   void configDirIs(Kem::Ptr<Interface::Input::DynVlanIntfConfigDir const> const& configDir);
   // The source asks for nothing any more.
   void doPrepareToDie() override;

   Kem::String8 const& name() const { return rank_.name; }
   SourcePriorityPair const& rank() const { return rank_; }
   IntfIds const& asked() const { return asked_; }

  private:
   // --- Reactions.
   struct KemConfigDir final : Interface::Input::DynVlanIntfConfigDir::NotifieeConst {
      explicit KemConfigDir(DynVlanIntfConfigSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleConfigDir(); }
      void onPriority() override { sm.handlePriority(); }
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleIntfConfig(intfId); }
      void onIntfConfigkemImmediate() override { sm.handleConfigDir(); }
      DynVlanIntfConfigSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemConfigDir_); }
   void handleConfigDir();
   void handlePriority();
   void handleIntfConfig(Sulvi::IntfId intfId);

   DynVlanIntfReactor& parent_;
   SourcePriorityPair rank_; // as the parent knows it
   IntfIds asked_;           // as the parent knows them
   KemConfigDir kemConfigDir_{*this};
};

} // namespace Vorn
