// The deferred stage of subinterfaces: between what is published and SubIntfSm.
//
// A subinterface is taken on when all its three records exist, and let go when one of them goes; one that is replaced
// takes what follows from it down and is taken on again. Once it is taken on, SubIntfConfigEntrySm mirrors later
// changes of the configuration at once. Names of which this switch can have no subinterface are left out and
// reported. Owned by SubIntfSm.
#pragma once

#include "Ulm/Backlog.h"
#include "Ulm/CodefBase.h"
#include "Vorn/SubIntfSm/SubIntfConfigEntrySm.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocalDir.h"

namespace Vorn {

class SubIntfConfigOutput;

class SubIntfConfigCodef final : public Ulm::CodefBase {
  public:
   // The three directories must not be null.
   SubIntfConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                      Kem::Ptr<Interface::SubIntfConfigDir const> const& intfConfigDir,
                      Kem::Ptr<Interface::SubIntfStatusDir const> const& intfStatusDir,
                      Kem::Ptr<Interface::SubIntfStatusLocalDir const> const& intfStatusLocalDir,
                      SubIntfConfigOutput& parent);
   // Puts all that is configured into the backlog. The owner calls it once it holds the stage.
   void handleInitialized() override;

   uint64_t backlogSize() const override { return backlog_.size(); }
   uint64_t processBacklog(Kem::Seconds const& startTime) override;

   // Whether configuration and both status records are there.
   bool existsInOrdel(Sulvi::IntfId intfId) const;

   // The configuration of the interface came, went or was replaced; or all have to be looked at.
   void handleSubIntfConfig(Sulvi::IntfId intfId);
   void handleSubIntfConfig();
   // The same for one of the status records.
   void handleSubIntfStatus(Sulvi::IntfId intfId);

   Ulm::Backlog<Sulvi::IntfId> const& backlog() const { return backlog_; }
   Sulvi::IntfId bookmark() const { return backlog_.bookmark(); }
   Kem::Ptr<SubIntfConfigEntrySm> subIntfConfigEntrySm(Sulvi::IntfId intfId) const; // null when there is none

  private:
   // --- Reactions.
   struct KemIntfConfigDir final : Interface::SubIntfConfigDir::NotifieeConst {
      explicit KemIntfConfigDir(SubIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { codef.handleSubIntfConfig(intfId); }
      SubIntfConfigCodef& codef;
   };
   struct KemIntfStatusDir final : Interface::SubIntfStatusDir::NotifieeConst {
      explicit KemIntfStatusDir(SubIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { codef.handleSubIntfStatus(intfId); }
      SubIntfConfigCodef& codef;
   };
   struct KemIntfStatusLocalDir final : Interface::SubIntfStatusLocalDir::NotifieeConst {
      explicit KemIntfStatusLocalDir(SubIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onIntfStatusLocal(Sulvi::IntfId intfId) override { codef.handleSubIntfStatus(intfId); }
      SubIntfConfigCodef& codef;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      CodefBase::forEachPart(visit);
      visit(kemIntfConfigDir_, kemIntfStatusDir_, kemIntfStatusLocalDir_, subIntfConfigEntrySm_);
   }

   // --- Helpers.
   SubIntfRecords records(Sulvi::IntfId intfId) const;
   void backlogAdd(Sulvi::IntfId intfId);
   void doEntry(Sulvi::IntfId intfId);

   SubIntfConfigOutput& parent_;
   Kem::HashMap<SubIntfConfigEntrySm, Sulvi::IntfId> subIntfConfigEntrySm_;
   Ulm::Backlog<Sulvi::IntfId> backlog_;
   KemIntfConfigDir kemIntfConfigDir_{*this};
   KemIntfStatusDir kemIntfStatusDir_{*this};
   KemIntfStatusLocalDir kemIntfStatusLocalDir_{*this};
};

Kem::Ptr<SubIntfConfigCodef> subIntfConfigCodefFactory(
    Kem::Ptr<Kem::Clock const> const& clock, Kem::Ptr<Interface::SubIntfConfigDir const> const& intfConfigDir,
    Kem::Ptr<Interface::SubIntfStatusDir const> const& intfStatusDir,
    Kem::Ptr<Interface::SubIntfStatusLocalDir const> const& intfStatusLocalDir, SubIntfConfigOutput& parent);

} // namespace Vorn
