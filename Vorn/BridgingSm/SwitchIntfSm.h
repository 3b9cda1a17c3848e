// One port: decides its mode and native VLAN at the moment, writes its resolved record, and keeps its
// membership in every resolved VLAN up to date.
//
// A port that is disabled as a switchport is a routed port whatever mode its input names, and then its native
// VLAN is an internal VLAN (InternalVlans.h). A native VLAN of 0 means that the port has no usable VLAN;
// nothing retries it: a VLAN that appears re-evaluates it (VlanConfigSm::handleAdminState).
//
// It follows the copy that the deferred stage made, not a publisher's record. Owned by Switchports; the
// deferred stage calls handleInitialized() once the copy is complete, again for each new best input, and
// before the first call every handler returns at once. Membership is always worked out again from the rules
// and written whole.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/WrittenMembers.h"
#include "Vorn/Rules/Membership.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"

#include <memory>
#include <optional>

namespace Vorn {

class BridgingConfigSm;

class SwitchIntfSm final : public Kem::StateMachine {
  public:
   // `ethIntfConfig` and `ethIntfStatus` may be null.
   SwitchIntfSm(BridgingConfigSm& parent, Sulvi::IntfId intfId,
                Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                Kem::Ptr<Bridging::Config> const& bridgingConfig,
                Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus);
   ~SwitchIntfSm() override;

   // --- Attributes.
   Sulvi::IntfId intfId() const { return intfId_; }
   Bridging::Input::SwitchIntfConfig const& switchIntfConfig() const { return *config_; }
   void switchIntfConfigIs(Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& config);
   Kem::Ptr<Interface::EthIntfConfig const> ethIntfConfig() const;
   void ethIntfConfigIs(Kem::Ptr<Interface::EthIntfConfig const> const& config);
   Kem::Ptr<Interface::EthIntfStatus const> ethIntfStatus() const;
   void ethIntfStatusIs(Kem::Ptr<Interface::EthIntfStatus const> const& status);
   Kem::Ptr<Bridging::Config> const& bridgingConfig() const { return bridgingConfig_; }
   // The resolved record; null until initialized.
   Kem::Ptr<Bridging::SwitchIntfConfig> const& switchIntfConfigOut() const { return out_; }
   VornUtils::VlanIdSet const& trunkAllowedVlanSet() const { return trunkAllowedVlanSet_; }
   VornUtils::VlanIdSet const& asymVlanSet() const { return asymVlanSet_; }
   Kem::ValueMap<Kem::String8, bool> const& dynTrunkGroup() const { return dynTrunkGroup_; }
   BridgingConfigSm& parent() const { return parent_; }
   // What the rules of membership look at. The port must be initialized.
   MembershipFacts membershipFacts() const {
      return {*config_, *out_, trunkAllowedVlanSet_, asymVlanSet_, dynTrunkGroup_, *bridgingConfig_};
   }

   // --- What others call.
   void handleInitialized() override;
   // Before it is deleted: takes the port out of all VLANs and gives up its internal VLAN. The resolved
   // record is left to the parent.
   void doPrepareToDie() override;
   // What the port is now. Has consequences: a routed port takes an internal VLAN here, or gives it up.
   Bridging::SwitchportModeAndNativeVlan switchportModeAndNativeVlan();
   void doSyncSwitchportModeAndNativeVlan();
   // A VLAN has come up or changed: the mode and the native VLAN are worked out again, and what depends on
   // them follows.
   void doTakeUpNativeVlan();
   // The same, if that VLAN is the one that the port is configured for and hasn't.
   void doMaybeTakeUpNativeVlan(Bridging::VlanId vlanId);
   // That VLAN goes: an access, trunk or tunnel port that has it as its native VLAN has none from now on.
   void doLoseNativeVlan(Bridging::VlanId vlanId);
   // Brings the port's membership in the VLAN up to date. The hottest step: each change of a port runs it for
   // many VLANs, and each change of a VLAN for every port.
   void doSyncSingleVlan(Bridging::VlanConfig& vlan);
   // The same for every resolved VLAN, but looks only at those where this port has something to change, or
   // that somebody else has edited.
   void doSyncAllVlans();
   // The resolved record may have been deleted and made again by somebody else, or by the database, where it
   // brings the order of two writers together: that one is written from now on.
   void handleOutMadeAgain();
   // The VLAN of that number was deleted, or edited by somebody else: forgets what this port wrote there.
   void forgetMember(Bridging::VlanId vlanId) { written_.forget(vlanId); }
   // doSyncSingleVlan() for the VLAN of that number, if it is resolved; nothing for 0.
   void maybeSyncOneVlan(Bridging::VlanIdOrNone vlanId);
   // Rebuild the sets that membership rests on. None of them syncs VLANs: the caller does.
   void doComputeTrunkAllowedVlans();
   void doComputeAsymVlans();
   // Adds the trunk groups that dynamic sources give to the port at the moment, besides those of its input.
   void doComputeDynamicTrunkGroups();
   // One of them. The port keeps it as long as any source lists the port in it.
   void doCreateDynTrunkGroup(Kem::String8 const& name);
   void doDelDynTrunkGroup(Kem::String8 const& name);
   void handleTrunkAllowedVlans();
   // The same for what may be no change at all: looks at the VLANs only if the allowed ones changed since it last
   // looked at all of them. Nothing before handleInitialized().
   void doUpdateTrunkAllowedVlans();
   void handleEnabledStateLocal();
   // Has frames of a primary VLAN leave under `min`, its smallest secondary; 4095 is none. A configured
   // translation stays.
   void doAddPrivateVlanMapping(Bridging::VlanId vlanId, Bridging::VlanIdOrAny min);

  private:
   // --- Reactions.
   struct Reactors; // SwitchIntfReactors.h: what is followed, and the handler of each notification
   void forEachPart(Kem::PartVisitor const& visit) override;
   // The port follows a new record: evaluates all of it.
   void handleSwitchIntfConfig();
   void handleEthIntfConfig();
   void handleEnabled();
   void handleSwitchportMode();
   void handleAccessVlan();
   void handleTrunkNativeVlan();
   void handleAsymVlans();
   void handleMacLearningEnabled();
   void handleFloodingEnabled();
   void handleTrunkGroup(Kem::String8 const& name);
   void handleVlanTpid();
   void handleEthIntfForwardingModel();
   // Of translations, and of private VLANs (VlanTranslation.cpp).
   void handleIngressNativeVlanXlate();
   void handleEgressNativeVlanXlate();
   void handleIngressVlanXlate(Bridging::VlanXlateKey const& key);
   void handleIngressVlanXlate();
   void handleEgressVlanXlate(Bridging::VlanXlateKey const& key);
   void handleEgressVlanXlate();
   void handlePrivateVlanMapping(Bridging::VlanId vlanId);
   void handleDefaultPrivateVlanMapping();
   void handleTrunkPrivateVlanMapping();

   // --- Helpers.
   void dropNotifications();
   Bridging::VlanIdOrNone switchportVlan(Bridging::SwitchportMode mode) const;
   Bridging::VlanIdOrNone routedPortVlan();
   bool mayLearnAndFlood() const; // a switchport that is neither a tap nor a tool
   void giveUpInternalVlan(Bridging::VlanIdOrNone vlanId);
   void traceMvrpVlans(VornUtils::VlanIdSet const& takenAway) const;
   std::optional<VornUtils::VlanIdSet> dynAllowedVlans() const; // nothing where no source lists the port
   void syncEachVlan();
   void syncOrdinaryVlans();
   void syncVlanXlates();
   Bridging::VlanIdOrNone primaryOfMapping() const; // native VLAN of an access port; 0 for any other port

   BridgingConfigSm& parent_;
   Sulvi::IntfId const intfId_;
   Kem::Ptr<Bridging::Config> const bridgingConfig_;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig const> config_;
   Kem::Ptr<Bridging::SwitchIntfConfig> out_;
   VornUtils::VlanIdSet trunkAllowedVlanSet_; // of a port in trunk, tap or tool mode
   VornUtils::VlanIdSet asymVlanSet_;         // of an asymmetric access port
   Kem::ValueMap<Kem::String8, bool> dynTrunkGroup_;
   Kem::String8 allowedList_;     // that was read last
   bool isAllowedSynced_ = false; // the allowed VLANs are those that all VLANs were last looked at with
   WrittenMembers written_;
   std::unique_ptr<Reactors> const reactors_;
};

// Whether the port is a member of the VLAN, its native VLAN being `native`. Changes nothing.
bool vlanMember(Bridging::VlanConfig const& vlan, SwitchIntfSm const& sm, Bridging::VlanIdOrNone native);

} // namespace Vorn
