// Decides the operational status of every VLAN interface, and writes operStatus and operStatusChange into its
// status record. Vorn/Rules/VlanIntfStatus.h has the table that decides; here is what has it asked again.
//
// There is no state besides the reactors: each evaluation reads the records as they are, so after any history the
// status is what a machine that starts on the same records would write. Repeated, it changes nothing.
//
// The status record, and its reference to a configuration, are others' work. A referred record that has left its
// directory, before the one in charge of the reference says so, stands for the one that is configured under the name
// now: for the reference as others read it in the state tree.
//
// A status record whose name is none of a VLAN interface ("Vlan0", "Vlan4095") is named in the trace and left alone.
//
// Only an active supervisor has it. Root owns it; nothing deletes it.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Dir.h"
#include "Kem/StateMachine.h"
#include "records/Bridging/VlanStatus.h"
#include "records/Bridging/VlanStatusDir.h"
#include "records/Interface/AllVlanIntfAutoState.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/PrivateVlanLib/LibState.h"
#include "records/Vorn/DynVlanIntfList.h"

namespace VlanOperStatus {

// Null where nothing else is said: there is nothing of the kind, and autostate is on.
struct VlanOperStatusInputs {
   Kem::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir; // the status records, which are written
   Kem::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;    // forwarding ports of each VLAN
   Kem::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfigDir;
   Kem::Ptr<Kem::Dir const> dynVlanIntfDir;               // must not be null
   Kem::Ptr<Vorn::DynVlanIntfList const> dynVlanIntfList; // must not be null
   Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState;
   Kem::Ptr<Interface::AllVlanIntfAutoState const> allVlanIntfAutoState; // the switch for all of them
};

class VlanOperStatusSm final : public Kem::StateMachine {
  public:
   // Follows the inputs from now on, but decides nothing before handleInitialized().
   explicit VlanOperStatusSm(VlanOperStatusInputs inputs);
   // Asserts "dynVlanIntfList() && dynVlanIntfDir()".
   void handleInitialized() override;

   VlanOperStatusInputs const& inputs() const { return in_; }
   // "Vlan" and the number.
   static Sulvi::IntfId vlanIntfNameFromVlanId(Bridging::VlanId vlanId);
   // The configuration under that name that is watched: the static one, or else the dynamic one; null when there is
   // neither.
   Kem::Ptr<Interface::VlanIntfConfig const> vlanIntfConfig(Sulvi::IntfId intfId) const;

   // Decides one interface. Nothing without a status record. One whose name has no VLAN number raises
   // "VlanId::value < 1 or > 4094 not allowed".
   void doSetOperStatus(Sulvi::IntfId intfId);
   // Decides all. Asserts "initialized()".
   void doSyncOperStatus();
   // A VLAN came, went, or has another record. Asserts "initialized()".
   void handleVlanStatus(Bridging::VlanId vlanId);
   // Must not be called: asserts "false". handleVlanStatuses() is for all VLANs.
   static void handleVlanStatus();

  private:
   // --- Reactions.
   struct KemVlanIntfStatusDir final : Interface::VlanIntfStatusDir::NotifieeConst {
      explicit KemVlanIntfStatusDir(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleIntfStatus(); }
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      void onIntfStatuskemImmediate() override { sm.handleIntfStatus(); }
      VlanOperStatusSm& sm;
   };
   struct KemVlanIntfStatus final : Interface::VlanIntfStatus::NotifieeConst {
      explicit KemVlanIntfStatus(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.doSetOperStatus(notifier()->intfId()); }
      void onIntfConfig() override { sm.doSetOperStatus(notifier()->intfId()); }
      VlanOperStatusSm& sm;
   };
   struct KemVlanStatusDir final : Bridging::VlanStatusDir::NotifieeConst {
      explicit KemVlanStatusDir(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onVlanStatus(Bridging::VlanId vlanId) override { sm.handleVlanStatus(vlanId); }
      void onVlanStatuskemImmediate() override { sm.handleVlanStatuses(); }
      VlanOperStatusSm& sm;
   };
   struct KemVlanStatus final : Bridging::VlanStatus::NotifieeConst {
      explicit KemVlanStatus(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      // Once for however many ports: the evaluation looks at all of them.
      void onVlanPortStatus() override { sm.handleVlanPortStatus(notifier()->vlanId()); }
      void onVlanPortStatuskemImmediate() override { sm.handleVlanPortStatus(notifier()->vlanId()); }
      VlanOperStatusSm& sm;
   };
   struct KemVlanIntfConfigDir final : Interface::VlanIntfConfigDir::NotifieeConst {
      explicit KemVlanIntfConfigDir(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleVlanIntfConfig(intfId); }
      void onIntfConfigkemImmediate() override { sm.handleVlanIntfConfig(); }
      VlanOperStatusSm& sm;
   };
   struct KemDynVlanIntfList final : Vorn::DynVlanIntfList::NotifieeConst {
      explicit KemDynVlanIntfList(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleVlanIntfConfig(intfId); }
      void onIntfConfigkemImmediate() override { sm.handleVlanIntfConfig(); }
      VlanOperStatusSm& sm;
   };
   // Of a configuration that is watched by its name, and of one that only a status record refers to.
   struct KemVlanIntfConfig final : Interface::VlanIntfConfig::NotifieeConst {
      explicit KemVlanIntfConfig(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onEnabledStateLocal() override { handleEnabledOrAutoState(); }
      void onEnabled() override { handleEnabledOrAutoState(); }
      void onAutoState() override { handleEnabledOrAutoState(); }
      void handleEnabledOrAutoState() { sm.handleEnabledOrAutoState(notifier()->intfId()); }
      VlanOperStatusSm& sm;
   };
   struct KemPrivateVlanLibState final : PrivateVlanLib::LibState::NotifieeConst {
      explicit KemPrivateVlanLibState(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onSecondaryVlan(Bridging::VlanId vlanId) override { sm.handleSecondaryVlan(vlanId); }
      void onSecondaryVlankemImmediate() override { sm.doSyncOperStatus(); }
      VlanOperStatusSm& sm;
   };
   struct KemAllVlanIntfAutoState final : Interface::AllVlanIntfAutoState::NotifieeConst {
      explicit KemAllVlanIntfAutoState(VlanOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onAutoState() override { sm.doSyncOperStatus(); }
      VlanOperStatusSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleIntfStatus(Sulvi::IntfId intfId);
   void handleIntfStatus();
   void handleVlanStatuses();
   void handleVlanPortStatus(Bridging::VlanId vlanId);
   void handleVlanIntfConfig(Sulvi::IntfId intfId);
   void handleVlanIntfConfig();
   void handleEnabledOrAutoState(Sulvi::IntfId intfId);
   void handleSecondaryVlan(Bridging::VlanId vlanId);

   // --- Helpers.
   void followVlanStatus(Bridging::VlanId vlanId);
   Kem::Ptr<Interface::VlanIntfConfig const> configured(Sulvi::IntfId intfId) const;
   // What the status follows from, and what is followed from now on; null when there is none.
   Kem::Ptr<Interface::IntfConfig const> referredConfig(Interface::VlanIntfStatus const& status) const;
   void referredConfigFollow(Sulvi::IntfId intfId, Kem::Ptr<Interface::IntfConfig const> const& config);

   VlanOperStatusInputs const in_;
   Kem::HashMap<KemVlanIntfStatus, Sulvi::IntfId> vlanIntfStatus_;
   Kem::HashMap<KemVlanStatus, Bridging::VlanId> vlanStatus_;
   Kem::HashMap<KemVlanIntfConfig, Sulvi::IntfId> vlanIntfConfigList_; // watched by their names
   Kem::HashMap<KemVlanIntfConfig, Sulvi::IntfId>
       referredConfig_; // of status records, where that is another one
   KemVlanIntfStatusDir kemVlanIntfStatusDir_{*this};
   KemVlanStatusDir kemVlanStatusDir_{*this};
   KemVlanIntfConfigDir kemVlanIntfConfigDir_{*this};
   KemDynVlanIntfList kemDynVlanIntfList_{*this};
   KemPrivateVlanLibState kemPrivateVlanLibState_{*this};
   KemAllVlanIntfAutoState kemAllVlanIntfAutoState_{*this};
};

} // namespace VlanOperStatus
