// One subinterface: its claim to a VLAN id of its parent, its operational status, and its kernel device.
//
//    made ──both status records are there──► initialized ──► evaluated, again and again ──► prepared to die
//                                                              │      ▲
//                                                              ▼      │
//                                                          retryIntfCollection
//
// An evaluation settles the status (Rules/SubIntfStatus.h), brings the device in step (VlanIntfCommon), and says to the
// mirror of kernel states what it may show. Nothing of an earlier evaluation counts. Follows the copy that the
// deferred stage made, and the hardware's record. Owned by SubIntfSm.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/Rules/SubIntfStatus.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/IntfStatus.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusLocal.h"

namespace Vorn {

class SubIntfSm;

class KemSubIntfConfig final : public Kem::StateMachine {
  public:
   KemSubIntfConfig(SubIntfSm& sm, Kem::Ptr<Interface::SubIntfConfig const> const& config);
   // Finds its records and its parent, claims the VLAN id and evaluates; waits while a status record is missing.
   // Asserts that the number of the subinterface is below 4095.
   void handleInitialized() override;

   // Returns false when it must be tried again.
   bool doEvaluateInterfaceConfigurationWithRetval();
   // The same, and puts the interface into the retry collection where that is needed.
   void doEvaluateInterfaceConfiguration();
   // Evaluates again for a retry: whether that failed again.
   bool retryNeeded();

   void handleMtu();
   void handleMacAddr();
   void handleSubIntfHwStatus(); // the hardware's record came, went or was replaced
   // Gives up the VLAN id, and the device unless all three records are there: then one of them was replaced.
   void doPrepareToDie() override;

   Sulvi::IntfId intfId() const { return config_->intfId(); }
   Kem::Ptr<Interface::SubIntfConfig const> const& config() const { return config_; }
   bool preparedToDie() const { return preparedToDie_; }
   bool invalidCfg() const { return invalidCfg_; }   // the VLAN id is claimed twice
   uint16_t curVlanId() const { return curVlanId_; } // claimed; 0 for none
   Sulvi::IntfId parentIntfId() const { return parentIntfId_; }
   Kem::String8 const& deviceName() const { return deviceName_; }
   Kem::Ptr<Interface::SubIntfStatus> subIntfStatus() const { return subIntfStatus_; }
   Kem::Ptr<Interface::SubIntfStatusLocal> const& subIntfStatusLocal() const { return subIntfStatusLocal_; }
   Kem::Ptr<Interface::IntfStatus const> const& parentIntfStatus() const { return parentIntfStatus_; }
   bool isOperUp() const;

  private:
   // --- Reactions.
   struct KemConfig final : Interface::SubIntfConfig::NotifieeConst {
      explicit KemConfig(KemSubIntfConfig& s) : NotifieeConst(this), sm(s) {}
      void onEnabledStateLocal() override { sm.handleConfig(); }
      void onEnabled() override { sm.handleConfig(); }
      void onEncapType() override { sm.handleConfig(); }
      void onVlanId() override { sm.handleConfig(); }
      void onMtu() override { sm.handleMtuChange(); }
      void onAddr() override { sm.handleMacAddr(); }
      KemSubIntfConfig& sm;
   };
   struct KemStatus final : Interface::SubIntfStatus::NotifieeConst {
      explicit KemStatus(KemSubIntfConfig& s) : NotifieeConst(this), sm(s) {}
      void onOperStatus() override { sm.handleOperStatusOnStandby(); }
      void onMaxMtu() override { sm.handleMtuChange(); }
      KemSubIntfConfig& sm;
   };
   struct KemHwStatus final : Interface::Hardware::SubIntfStatus::NotifieeConst {
      explicit KemHwStatus(KemSubIntfConfig& s) : NotifieeConst(this), sm(s) {}
      void onHardwareSuccess() override { sm.handleHardwareStatus(); }
      KemSubIntfConfig& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemConfig_, kemSubIntfStatus_, kemSubIntfHwStatus_);
   }
   void handleConfig();
   void handleMtuChange();
   void handleOperStatusOnStandby();
   void handleHardwareStatus();

   // --- Helpers.
   bool hasCurrentRecords() const;
   void findSubIntfHwStatus();
   void getParentIntfStatus();
   void setVlanId(uint16_t vlanId);
   uint16_t usableVlanId() const; // as configured; 0 for one that no tag can carry
   void doSetOperStatus();
   void setWaitQ(SubIntfRow row);
   bool doSetKernelOperState(); // returns whether the mirror takes it up now
   void restrainWaitingDevice();
   bool needsRetry(bool isFinished) const;
   void retryAfterFailure(); // of what was done without a whole evaluation

   SubIntfSm& sm_;
   Kem::Ptr<Interface::SubIntfConfig const> const config_;
   bool preparedToDie_ = false;
   bool invalidCfg_ = false;
   uint16_t curVlanId_ = 0;
   Sulvi::IntfId parentIntfId_;
   Kem::String8 deviceName_;
   Kem::Ptr<Interface::SubIntfStatus> subIntfStatus_;
   Kem::Ptr<Interface::SubIntfStatusLocal> subIntfStatusLocal_;
   Kem::Ptr<Interface::IntfStatus const> parentIntfStatus_; // null when the parent has none
   KemConfig kemConfig_{*this};
   KemStatus kemSubIntfStatus_{*this};
   KemHwStatus kemSubIntfHwStatus_{*this};
};

} // namespace Vorn
