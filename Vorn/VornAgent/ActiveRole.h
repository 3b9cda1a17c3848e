// What only an active supervisor has: the state machines of bridging and the hosted ones around them, made
// once, in a fixed order, when the agent becomes active for the first time. The agent owns it until the
// process ends: a supervisor that becomes standby again keeps them running.
#pragma once

#include "CongestionDropsLogging/CongestionDropsLoggingSm.h"
#include "ErrdisableAggr/RootSM.h"
#include "ErrdisableLib/CauseAgentSM.h"
#include "LinkFlap/LinkFlapSm.h"
#include "LinkStatusLogging/LinkStatusLoggingDirSm.h"
#include "PrivateVlanLib/LibSm.h"
#include "UplinkFailureDetection/UplinkFailureDetectionSm.h"
#include "VlanOperStatus/Root.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/Selection/InputSelectorSm.h"

namespace Vorn {

class Agent;

class ActiveRole {
  public:
   // Asserts "cliInput": the system can't run without the input of the command line.
   explicit ActiveRole(Agent& agent);
   ~ActiveRole();
   // Makes the cause "hitless-reload-down" at its boot stage; one that exists already is kept.
   void makeReloadDownCause();

   Kem::Ptr<VlanOperStatus::Root> const& vlanOperStatusRoot() const { return vlanOperStatusRoot_; }
   Kem::Ptr<Errdisable::CauseStatus> const& reloadDownErrdisableCauseStatus() const {
      return reloadDownErrdisableCauseStatus_;
   }
   Kem::Ptr<ErrdisableAggr::IntfAggrStatus> const& intfAggrStatus() const { return intfAggrStatus_; }
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> const& dynVlanSrcTable() const { return dynVlanSrcTable_; }
   Kem::Ptr<PrivateVlanLib::LibSm> const& privateVlanLibSm() const { return privateVlanLibSm_; }
   Kem::Ptr<BridgingConfigSm> const& bridgingConfigSm() const { return bridgingConfigSm_; }
   Kem::Ptr<InputSelectorSm> const& inputSelectorSm() const { return inputSelectorSm_; }
   // Null unless the directory of causes held an entry "test" at the start.
   Kem::Ptr<ErrdisableLib::CauseAgentSM> const& testErrdisableCauseSm() const {
      return testErrdisableCauseSm_;
   }
   Kem::Ptr<ErrdisableLib::CauseAgentSM> const& reloadDownErrdisableCauseSm() const {
      return reloadDownErrdisableCauseSm_; // null before its stage
   }

  private:
   void makeErrdisable();
   void makeBridging();
   void makeVlanOperStatus();
   void makePortWatchers();
   Kem::Ptr<ErrdisableLib::CauseAgentSM> cause(char const* name,
                                               Kem::Ptr<Errdisable::CauseStatus> const& status) const;

   Agent& agent_;
   Ordel::EntityManager& em_;
   Kem::Ptr<Errdisable::CauseStatus> const linkFlapCauseStatus_;
   Kem::Ptr<Errdisable::CauseStatus> const noInternalVlanIdCauseStatus_;
   Kem::Ptr<Errdisable::CauseStatus> const reloadDownErrdisableCauseStatus_;

   Kem::Ptr<VlanOperStatus::Root> vlanOperStatusRoot_;
   Kem::Ptr<LinkFlap::Root> linkFlapRoot_;
   Kem::Ptr<ErrdisableAggr::IntfAggrStatus> intfAggrStatus_;
   Kem::Ptr<ErrdisableAggr::RootSM> errdisableAggrSm_;
   Kem::Ptr<ErrdisableLib::CauseAgentSM> testErrdisableCauseSm_;
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> dynVlanSrcTable_;
   Kem::Ptr<ErrdisableLib::CauseAgentSM> noInternalVlanErrdisableCauseSm_;
   Kem::Ptr<PrivateVlanLib::LibSm> privateVlanLibSm_;
   Kem::Ptr<BridgingConfigSm> bridgingConfigSm_;
   Kem::Ptr<InputSelectorSm> inputSelectorSm_;
   Kem::Ptr<Interface::LinkStatusLoggingDirSm> linkStatusLoggingDirSm_;
   Kem::Ptr<ErrdisableLib::CauseAgentSM> linkFlapErrdisableCauseSm_;
   Kem::Ptr<ErrdisableLib::CauseAgentSM> uplinkFailureDetectionErrdisableCauseSm_;
   Kem::Ptr<UplinkFailureDetection::Root> uplinkFailureDetectionRoot_;
   Kem::Ptr<Interface::CongestionDropsLoggingSm> congestionDropsLoggingSm_;
   Kem::Ptr<ErrdisableLib::CauseAgentSM> reloadDownErrdisableCauseSm_;
};

} // namespace Vorn
