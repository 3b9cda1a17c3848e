// The bridging agent: declares its mounts, builds every state machine in a fixed order, follows the
// redundancy role of the supervisor, answers boot stages, and opens the trace file.
//
//    built ──doInit──► mounting ──all mounts done──► running, standby
//                         │                              │ mode becomes active
//                         └──all mounts done──► running, active
//
// What it builds lives as long as the process; nothing is torn down. Standby means that the configuration
// state machines have not been made yet, not that they pause. After the start everything is driven by
// notifications, timers and sockets; the agent keeps the owning references, and measures how full the
// attribute log is for the deferred stages (AttrLogCheck).
#pragma once

#include "AgentBase/CAgent.h"
#include "AgentBase/StagesHelper.h"
#include "DynVlanIntf/DynVlanIntfReactor.h"
#include "KernelNetNsInfo/Manager.h"
#include "KernelNetworkInfo/Manager.h"
#include "KernelOperState/Root.h"
#include "Plaze/BridgingStatus.h"
#include "Plaze/InterfaceCounters.h"
#include "ReaderFdbStatus/ReaderFdbStatusSm.h"
#include "StartupMode/StartupModeSm.h"
#include "Vorn/Pacing/AttrLogCheck.h"
#include "Vorn/VornAgent/ActiveRole.h"
#include "Vorn/VornAgent/EntityManagerReactor.h"
#include "Vorn/VornAgent/RoutedInterfaces.h"
#include "Vorn/VornAgent/StatusReport.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/DynVlanSrcTable.h"
#include "records/Bridging/Status.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/ErrdisableAggr/IntfAggrStatus.h"
#include "records/KernelNetNsInfo/Root.h"
#include "records/KernelNetworkInfo/Root.h"
#include "records/Oxa/OxaStatus.h"
#include "records/PrivateVlanLib/LibState.h"
#include "records/Vorn/DynVlanIntfList.h"
#include "records/Vorn/VornOxaState.h"

namespace Vorn {

class Agent final : public AgentBase::CAgent {
  public:
   explicit Agent(Kem::Name name);
   ~Agent() override;

   // --- What the runner and the stage machinery call.
   char const* fwkType() const override { return "Vorn::Agent"; }
   char const* attributeString(Kem::AttrId id) const override;
   Kem::TypeInfo const& typeInfo() const override;
   void doInit() override;
   void doMountsComplete(Ordel::MountStatus const& mountStatus, Ordel::EntityManager& entityManager) override;
   void doStage(std::string const& stageClass, std::string const& stage) override;

   // --- What state machines call.
   // Whether they may write more now: false while the attribute log is more than half full.
   bool isAttrLogReady() { return attrLogCheck_.isAttrLogReady(); }
   AttrLogCheck& attrLogCheck() { return attrLogCheck_; }
   // Called by the active role and by the start; the second call does nothing.
   void makeNetNsManager();

   // --- Attributes, in declared order.
   bool standbyMode() const { return standbyMode_; }
   // Calls handleStandbyMode when the value changes.
   void standbyModeIs(bool standbyMode);
   // What the active role has made, and its parts; null as long as the supervisor has not been active.
   ActiveRole const* activeRole() const { return activeRole_.get(); }
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> dynVlanSrcTable() const {
      return activeRole_ ? activeRole_->dynVlanSrcTable() : nullptr;
   }
   Kem::Ptr<BridgingConfigSm> bridgingConfigSm() const {
      return activeRole_ ? activeRole_->bridgingConfigSm() : nullptr;
   }
   Kem::Ptr<InputSelectorSm> inputSelectorSm() const {
      return activeRole_ ? activeRole_->inputSelectorSm() : nullptr;
   }
   Kem::Ptr<ErrdisableAggr::IntfAggrStatus> intfAggrStatus() const {
      return activeRole_ ? activeRole_->intfAggrStatus() : nullptr;
   }
   Kem::Ptr<Errdisable::CauseStatus> reloadDownErrdisableCauseStatus() const {
      return activeRole_ ? activeRole_->reloadDownErrdisableCauseStatus() : nullptr;
   }
   Kem::Ptr<VlanOperStatus::Root> vlanOperStatusRoot() const {
      return activeRole_ ? activeRole_->vlanOperStatusRoot() : nullptr;
   }
   Kem::Ptr<PrivateVlanLib::LibSm> privateVlanLibSm() const {
      return activeRole_ ? activeRole_->privateVlanLibSm() : nullptr;
   }
   Kem::Ptr<VornOxaState> const& oxaState() const { return oxaState_; } // null but for a hitless start
   Kem::Ptr<::Agent::StartupModeConfig> const& startupModeConfig() const { return startupModeConfig_; }
   Kem::Ptr<::Agent::StartupModeStatus> const& startupModeStatus() const { return startupModeStatus_; }
   // Null before its step of the start.
   RoutedInterfaces* routedInterfaces() const { return routedInterfaces_.get(); }
   Kem::Ptr<VlanIntfSm> vlanIntfSm() const {
      return routedInterfaces_ ? routedInterfaces_->vlanIntfSm() : nullptr;
   }
   Kem::Ptr<SubIntfSm> subIntfSm() const {
      return routedInterfaces_ ? routedInterfaces_->subIntfSm() : nullptr;
   }
   // The deferred stages that exist, by name.
   std::vector<std::pair<char const*, Ulm::CodefBase*>> deferredStages() const;
   // VLAN interfaces that dynamic sources ask for.
   Kem::Ptr<DynVlanIntfList> const& dynVlanIntfList() const { return dynVlanIntfList_; }
   // Merges them; null before the start.
   Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const { return dynVlanIntfSm_; }
   Kem::Ptr<KernelNetworkInfo::Root> const& kernelNetworkInfoRoot() const { return kernelNetworkInfoRoot_; }
   Kem::Ptr<KernelOperState::Root> const& kernelOperStateRoot() const { return kernelOperStateRoot_; }
   Kem::Ptr<KernelNetNsInfo::Root> const& netNsCollection() const { return netNsCollection_; }
   Kem::Ptr<PrivateVlanLib::LibState> const& privateVlanLibState() const { return privateVlanLibState_; }
   Kem::Ptr<Plaze::Bridging::Status> const& plazeBridgingStatus() const { return plazeBridgingStatus_; }
   Kem::Ptr<Bridging::Status> const& bridgingStatus() const { return bridgingStatus_; }
   // The shared-memory table of subinterface counters; null before the start.
   Kem::Ptr<Plaze::Interface::AllIntfCounterDir> const& counterDir() const { return counterDir_; }
   Kem::Ptr<AgentBase::StagesHelper> const& bootStagesHelper() const { return bootStagesHelper_; }
   std::string const& fabricDeviceName() const { return fabricDeviceName_; }
   int socketFd() const { return socketFd_; }   // for ioctls on network devices
   int netlinkFd() const { return netlinkFd_; } // for requests to the default namespace

   // A netlink route socket that is subscribed to nothing; negative on failure, which has been traced.
   static int createNetlinkSocket();
   // The name of the trace file of an agent of that name, given what ZIVLOGDIR is; see Zivlog::initialize.
   static std::string traceFileName(std::string_view agentName, bool hasFolder);

  private:
   void handleStandbyMode();
   void handleReportedStages();
   void openKernelSockets();
   void followKernel();
   void decideStartupMode(Ordel::EntityManager& entityManager);
   void recoverReloadDownPorts();
   void mountSharedMemory(Ordel::EntityManager& entityManager);
   void openTraceFile();

   Kem::Ptr<EntityManagerReactor> entityManagerReactor_;
   bool standbyMode_ = false;
   std::unique_ptr<ActiveRole> activeRole_;
   Kem::Ptr<VornOxaState> oxaState_;
   Kem::Ptr<::Agent::StartupModeConfig> startupModeConfig_;
   Kem::Ptr<::Agent::StartupModeStatus> startupModeStatus_;
   Kem::Ptr<::Agent::StartupStatus> startupStatus_;
   Kem::Ptr<::Agent::StartupModeSm> startupModeSm_;
   Kem::Ptr<DynVlanIntfList> dynVlanIntfList_;
   Kem::Ptr<DynVlanIntfReactor> dynVlanIntfSm_;
   Kem::Ptr<KernelNetworkInfo::Root> kernelNetworkInfoRoot_;
   Kem::Ptr<KernelOperState::Root> kernelOperStateRoot_;
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollection_;
   Kem::Ptr<KernelNetworkInfo::Manager> kernelNetworkInfoManager_;
   Kem::Ptr<KernelNetNsInfo::Manager> netNsManager_;
   Kem::Ptr<PrivateVlanLib::LibState> privateVlanLibState_;
   AttrLogCheck attrLogCheck_;
   Kem::Ptr<Bridging::Status> bridgingStatus_;
   Kem::Ptr<Plaze::Bridging::Status> plazeBridgingStatus_;
   Kem::Ptr<Bridging::ReaderFdbStatusSm> readerShim_;
   Kem::Ptr<Plaze::Interface::AllIntfCounterDir> counterDir_;
   std::unique_ptr<RoutedInterfaces> routedInterfaces_;
   Kem::Ptr<AgentBase::StagesHelper> bootStagesHelper_;
   Kem::Ptr<Oxa::OxaStatus const> oxaStatus_;
   std::unique_ptr<StatusReport> statusReport_; // null when the base has mounted no status

   std::string fabricDeviceName_;
   int socketFd_ = -1;
   int netlinkFd_ = -1;
};

// Makes the agent with its initial values. The caller owns its first reference.
Kem::Ptr<Agent> agentFactory(Kem::Name const& name);

} // namespace Vorn
