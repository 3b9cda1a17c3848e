// Merges the VLAN interfaces that dynamic sources ask for, and answers each source.
//
//    interface/input/dynvlanintf/NAME        what the source NAME asks for (DynVlanIntfConfigSm)
//                  │
//                  ▼ one winner for each interface (DynVlanIntfConfigPrioritySm): the greatest priority,
//                  │ then the greatest name
//    DynVlanIntfList.intfConfig              the winner's own record; of this process only
//                  │
//                  ▼ a static configuration wins over all: the deferred stage of VLAN interfaces
//    DynVlanIntfList.intfConfigError         says where that is so
//                  │
//                  ▼
//    interface/inputError/dynvlanintf/NAME   for each interface that the source asks for, whether it is not
//                                            configured as the source asked
//
// The answer is true where another source wins, where a static configuration does, and where the name is none of a VLAN
// interface. The entity of answers comes and goes with the source; one that no source has goes, also at the start.
//
// A standby supervisor keeps the list and writes no answers: those are the active one's. The agent owns it.
#pragma once

#include "DynVlanIntf/DynVlanIntfConfigPrioritySm.h"
#include "DynVlanIntf/DynVlanIntfConfigSm.h"
#include "Kem/Dir.h"
#include "records/Interface/Input/DynVlanIntfErrorDir.h"
#include "records/Vorn/DynVlanIntfList.h"

#include <unordered_map>

namespace Vorn {

class DynVlanIntfReactor final : public Kem::StateMachine {
  public:
   // Either directory may be null: no sources, no answers. Evaluates at once.
   DynVlanIntfReactor(Kem::Ptr<Kem::Dir const> dynVlanIntfDir, Kem::Ptr<Kem::Dir> dynVlanIntfErrorDir,
                      Kem::Ptr<DynVlanIntfList> dynVlanIntfList, bool standbyMode);

   bool standbyMode() const { return standbyMode_; }
   // false writes the answers; true writes none from now on, and leaves what was written.
   void standbyModeIs(bool standbyMode);
   // Null when there is no such source.
   Kem::Ptr<DynVlanIntfConfigSm> dynVlanIntfConfigSm(Kem::String8 const& name) const;

   // --- What sources say.
   void configIs(SourcePriorityPair const& source, Sulvi::IntfId intfId,
                 Kem::Ptr<Interface::VlanIntfConfig> const& config);
   void configDel(SourcePriorityPair const& source, Sulvi::IntfId intfId); // nothing when it didn't ask
   // The source has another rank than before, for an interface that it asks for.
   void rankIs(SourcePriorityPair const& before, SourcePriorityPair const& now, Sulvi::IntfId intfId);
   // Makes the source's answer for the interface what it is now.
   void doSyncError(Kem::String8 const& name, Sulvi::IntfId intfId);

  private:
   // --- Reactions.
   struct KemDynVlanIntfDir final : Kem::Dir::NotifieeConst {
      explicit KemDynVlanIntfDir(DynVlanIntfReactor& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleSource(name); }
      void onEntityPtrkemImmediate() override { sm.handleSource(); }
      DynVlanIntfReactor& sm;
   };
   struct KemDynVlanIntfErrorDir final : Kem::Dir::NotifieeConst {
      explicit KemDynVlanIntfErrorDir(DynVlanIntfReactor& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleErrorDir(name); }
      void onEntityPtrkemImmediate() override { sm.handleErrorDir(); }
      DynVlanIntfReactor& sm;
   };
   struct KemDynVlanIntfList final : DynVlanIntfList::NotifieeConst {
      explicit KemDynVlanIntfList(DynVlanIntfReactor& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfigError(Sulvi::IntfId intfId) override { sm.handleIntfConfigError(intfId); }
      void onIntfConfigErrorkemImmediate() override { sm.handleErrorDir(); }
      DynVlanIntfReactor& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemDynVlanIntfDir_, kemDynVlanIntfErrorDir_, kemDynVlanIntfList_, dynVlanIntfConfigSm_);
   }
   void handleInitialized() override;
   void handleSource(Kem::Name const& name);
   void handleSource();
   void handleErrorDir(Kem::Name const& name);
   void handleErrorDir();
   void handleIntfConfigError(Sulvi::IntfId intfId);

   // --- Helpers.
   template <class Change>
   void winnerSync(Sulvi::IntfId intfId, Change&& change);
   void listSync(Sulvi::IntfId intfId, DynVlanIntfConfigPrioritySm const& sources);
   Kem::String8 winnerOf(Sulvi::IntfId intfId) const; // empty when there is none
   bool writesErrors() const { return !standbyMode_ && dynVlanIntfErrorDir_; }
   bool isError(DynVlanIntfConfigSm const& source, Sulvi::IntfId intfId) const;

   Kem::Ptr<Kem::Dir const> const dynVlanIntfDir_;
   Kem::Ptr<Kem::Dir> const dynVlanIntfErrorDir_;
   Kem::Ptr<DynVlanIntfList> const dynVlanIntfList_;
   bool standbyMode_;
   Kem::RbTreeMap<DynVlanIntfConfigSm, Kem::String8> dynVlanIntfConfigSm_; // by the name of the source
   std::unordered_map<Sulvi::IntfId, DynVlanIntfConfigPrioritySm> dynVlanIntfConfigPrioritySm_;
   KemDynVlanIntfDir kemDynVlanIntfDir_{*this};
   KemDynVlanIntfErrorDir kemDynVlanIntfErrorDir_{*this};
   KemDynVlanIntfList kemDynVlanIntfList_{*this};
};

} // namespace Vorn
