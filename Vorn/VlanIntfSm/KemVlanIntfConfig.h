// One VLAN interface: follows its configuration and its status records, and keeps its device as configured.
//
//    waiting for its status records ──both are there──► initialized ──its next slice──► evaluated
//                                                                        │ fabric up, bridge address set
//                                                                        ▼
//                                                                   operational: up or down as configured
//
// The processor's port of the VLAN follows the configuration alone. Owned by VlanIntfSm.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusLocal.h"

namespace Vorn {

class VlanIntfSm;

class KemVlanIntfConfig final : public Kem::StateMachine {
  public:
   KemVlanIntfConfig(VlanIntfSm& parent, Kem::Ptr<Interface::VlanIntfConfig const> const& config);
   // Finds the status records; without them it waits for the next call. Asserts that the name is a VLAN
   // interface's; a number that is no VLAN raises a range exception.
   void handleInitialized() override;
   // The device goes, and the processor's port as far as nothing else wants it.
   void doPrepareToDie() override;

   Sulvi::IntfId intfId() const { return intfId_; }
   Kem::Ptr<Interface::VlanIntfConfig const> config() const { return kemConfig_.notifier(); }
   bool operational() const { return operational_; } // has been evaluated with fabric and bridge address
   bool preparedToDie() const { return preparedToDie_; }
   uint16_t vlanId() const { return vlanId_; }
   Kem::String8 const& deviceName() const { return deviceName_; }
   // Null while it waits.
   Kem::Ptr<Interface::VlanIntfStatus> const& vlanIntfStatus() const { return vlanIntfStatus_; }
   Kem::Ptr<Interface::VlanIntfStatusLocal> const& vlanIntfStatusLocal() const {
      return vlanIntfStatusLocal_;
   }

   // A status record came, was replaced or went.
   void handleIntfStatusCreated();
   void handleIntfStatusGone();
   // Evaluates, and schedules a retry when that failed.
   void doEvaluateInterfaceConfiguration();
   // False: it must be tried again.
   bool doEvaluateInterfaceConfigurationWithRetval();
   void handleEnabled();
   void handleMtu();
   void handleMacAddr();
   void handleMacAddrWithRetry() { withRetry(&KemVlanIntfConfig::handleMacAddr); }
   void handleEnabledWithRetry() { withRetry(&KemVlanIntfConfig::handleEnabled); }

  private:
   // --- Reactions.
   struct KemConfig final : Interface::VlanIntfConfig::NotifieeConst {
      explicit KemConfig(KemVlanIntfConfig& s) : NotifieeConst(this), sm(s) {}
      void onEnabledStateLocal() override { sm.withRetry(&KemVlanIntfConfig::handleEnabled); }
      void onEnabled() override { sm.withRetry(&KemVlanIntfConfig::handleEnabled); }
      void onMtu() override { sm.withRetry(&KemVlanIntfConfig::handleMtu); }
      void onAddr() override { sm.withRetry(&KemVlanIntfConfig::handleMacAddr); }
      KemVlanIntfConfig& sm;
   };
   struct KemVlanIntfStatus final : Interface::VlanIntfStatus::NotifieeConst {
      explicit KemVlanIntfStatus(KemVlanIntfConfig& s) : NotifieeConst(this), sm(s) {}
      void onMaxMtu() override { sm.withRetry(&KemVlanIntfConfig::handleMtu); }
      KemVlanIntfConfig& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemConfig_, kemVlanIntfStatus_); }

   // --- Helpers.
   // Runs a handler outside of an evaluation; where a kernel call of it failed, a retry is scheduled all the same.
   void withRetry(void (KemVlanIntfConfig::*handle)());
   void syncCpuPort();
   void setUpOrDown();
   void giveUpDevice();

   VlanIntfSm& parent_;
   Sulvi::IntfId const intfId_;
   bool operational_ = false;
   bool preparedToDie_ = false;
   uint16_t vlanId_ = 0;
   Kem::String8 deviceName_;
   Kem::Ptr<Interface::VlanIntfStatus> vlanIntfStatus_;
   Kem::Ptr<Interface::VlanIntfStatusLocal> vlanIntfStatusLocal_;
   KemConfig kemConfig_{*this};
   KemVlanIntfStatus kemVlanIntfStatus_{*this};
};

} // namespace Vorn
