// The deferred stage of ports: between the best record of each port (Bridging::SwitchIntfConfigDir, which
// refers to the publishers' records) and the ports' state machines.
//
// A port that arrives is copied at once. Afterwards its entry (SwitchIntfConfigEntrySm) applies what moves
// VLAN membership one attribute to a step of the backlog, and everything else as it changes. Owned by
// Switchports, which holds the copies too.
#pragma once

#include "Ulm/Backlog.h"
#include "Ulm/CodefBase.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigEntrySm.h"
#include "records/Bridging/SwitchIntfConfigDir.h"

namespace Vorn {

class SwitchIntfConfigOutput;

class SwitchIntfConfigCodef final : public Ulm::CodefBase {
  public:
   SwitchIntfConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                         Kem::Ptr<Bridging::SwitchIntfConfigDir const> const& configIn,
                         SwitchIntfConfigOutput& configOut);
   // Copies all ports. Asserts "!initialized()". The owner calls it once it holds the stage.
   void handleInitialized() override;

   uint64_t backlogSize() const override { return backlog_.size(); }
   uint64_t processBacklog(Kem::Seconds const& startTime) override;

   // The port has another best record, or none. An existing entry is replaced, and what waited in it
   // is dropped.
   void handleSwitchIntfConfig(Sulvi::IntfId intfId);
   // Takes in all ports of the directory, without deleting entries.
   void handleSwitchIntfConfig();
   // Called by an entry: its waiting attributes differ from the copy, or they are all equal again.
   void updateBacklog(Sulvi::IntfId intfId, bool areConfigsEqual);

   SwitchIntfConfigOutput& configOut() const { return configOut_; }
   Ulm::Backlog<Sulvi::IntfId> const& backlog() const { return backlog_; }
   void backlogDelAll() { backlog_.delAll(); }
   Kem::Ptr<SwitchIntfConfigEntrySm> switchIntfConfigEntrySm(Sulvi::IntfId intfId) const; // null when none
   // Finds or makes the port's entry; a new one is initialized. Other records than those of an existing entry
   // raise a range exception: it has to be deleted first.
   Kem::Ptr<SwitchIntfConfigEntrySm>
   switchIntfConfigEntrySmIs(Sulvi::IntfId intfId,
                             Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& in,
                             Kem::Ptr<Bridging::Input::SwitchIntfConfig> const& out);
   void switchIntfConfigEntrySmDel(Sulvi::IntfId intfId) { childDel(switchIntfConfigEntrySm_, intfId); }

  private:
   // --- Reactions.
   struct KemConfigIn final : Bridging::SwitchIntfConfigDir::NotifieeConst {
      explicit KemConfigIn(SwitchIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onSwitchIntfConfig(Sulvi::IntfId intfId) override { codef.handleSwitchIntfConfig(intfId); }
      SwitchIntfConfigCodef& codef;
   };

   void forEachPart(Kem::PartVisitor const& visit) override {
      CodefBase::forEachPart(visit);
      visit(kemConfigIn_, switchIntfConfigEntrySm_);
   }

   // --- Helpers.
   void createEntry(Sulvi::IntfId intfId, Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& in);

   SwitchIntfConfigOutput& configOut_;
   Kem::HashMap<SwitchIntfConfigEntrySm, Sulvi::IntfId> switchIntfConfigEntrySm_;
   Ulm::Backlog<Sulvi::IntfId> backlog_;
   KemConfigIn kemConfigIn_{*this};
};

} // namespace Vorn
