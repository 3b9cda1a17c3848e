#include "Vorn/VornAgent/VornAgent.h"

#include "Kem/Assert.h"
#include "Kem/Dir.h"
#include "Kem/Trace.h"
#include "Ordel/client/Cell.h"
#include "Plaze/Mount.h"
#include "Vorn/KernelDevices/VlanDevice.h"
#include "Vorn/VornAgent/Made.h"
#include "Vorn/VornAgent/Mounts.h"
#include "Vorn/VornAgent/NetlinkSocket.h"
#include "Zivlog/Zivlog.h"
#include "records/Bridging/Input/Config.h"
#include "records/Interface/SubIntfStatusDir.h"

#include <cstdlib>
#include <sys/socket.h>

namespace Vorn {

namespace {

Kem::TraceFacility agentTrace("Vorn");

constexpr char bootStageClass[] = "bootStageClass";
// The longest time that the log is held at a switchover: then others see the changes, settled or not.
constexpr Kem::Seconds switchoverHoldLimit = 30.0;
constexpr Zivlog::Sizes traceFileSizes = {400, 400, 400, 400, 10, 400, 400, 400, 400, 400}; // KiB by level
// What the file gets besides what is always traced: the flow of events, without each handler.
constexpr char traceFileSetting[] = "*/0-5";

char const* const attributeNames[] = {"entityManagerReactor",
                                      "standbyMode",
                                      "dynVlanSrcTable",
                                      "bridgingConfigSm",
                                      "inputSelectorSm",
                                      "linkStatusLoggingDirSm",
                                      "vlanIntfSm",
                                      "oxaState",
                                      "subIntfSm",
                                      "startupModeConfig",
                                      "startupModeStatus",
                                      "startupStatus",
                                      "startupModeSm",
                                      "dynVlanIntfList",
                                      "dynVlanIntfSm",
                                      "kernelNetworkInfoRoot",
                                      "kernelOperStateRoot",
                                      "vlanOperStatusRoot",
                                      "linkFlapRoot",
                                      "intfAggrStatus",
                                      "netNsCollection",
                                      "uplinkFailureDetectionRoot",
                                      "congestionDropsLoggingSm",
                                      "kernelNetworkInfoManager",
                                      "netNsManager",
                                      "errdisableAggrSm",
                                      "linkFlapErrdisableCauseSm",
                                      "noInternalVlanErrdisableCauseSm",
                                      "testErrdisableCauseSm",
                                      "uplinkFailureDetectionErrdisableCauseSm",
                                      "reloadDownErrdisableCauseStatus",
                                      "reloadDownErrdisableCauseSm",
                                      "privateVlanLibState",
                                      "privateVlanLibSm",
                                      "nboAttrLogOutSm",
                                      "attrLogSockFd",
                                      "attrLogKernBufferSize",
                                      "attrLogKernBufferThreshold",
                                      "attrLogKernBufferUsage",
                                      "attrLogAboveThresholdCount",
                                      "iterUntilBufferCheck",
                                      "maxIterUntilBufferCheck",
                                      "bridgingStatus",
                                      "plazeBridgingStatus",
                                      "readerShim",
                                      "bootStagesHelper",
                                      "oxaStatus"};

// A record of this process only, under a name of its own. One that exists is kept: a supervisor may become
// active more than once.
template <class T>
void localIs(Kem::Ptr<T>& record, char const* name) {
   if (record)
      return;
   record = T::make();
   record->nameIs(name);
   traceMade(name);
}

} // namespace

void traceMade(char const* name) {
   KEM_TRACE(agentTrace, 5, "made " << name);
}

Kem::Ptr<Agent> agentFactory(Kem::Name const& name) {
   auto agent = Kem::makePtr<Agent>(name);
   return Kem::Ptr<Agent>(&*agent); // a null one raises "null ValidPtr"
}

Agent::Agent(Kem::Name name) : CAgent(std::move(name)) {}

Agent::~Agent() {
   for (int const fd : {socketFd_, netlinkFd_})
      if (fd >= 0)
         close(fd);
}

char const* Agent::attributeString(Kem::AttrId id) const {
   return id < std::size(attributeNames) ? attributeNames[id] : nullptr;
}

Kem::TypeInfo const& Agent::typeInfo() const {
   static Kem::TypeInfo const type = {"Vorn::Agent", Kem::noTypeId, nullptr, nullptr};
   return type;
}

// --- Start.

void Agent::doInit() {
   auto const group = entityManager()->getMountGroup(*this);
   for (auto& mount : agentMounts(cellPath()))
      group->doMount(std::move(mount));
   group->doClose(false, "", 0.0);
}

void Agent::doMountsComplete(Ordel::MountStatus const&, Ordel::EntityManager& entityManager) {
   oxaStatus_ = entityManager.entity<Oxa::OxaStatus>("oxa/hardware/status");
   auto const agentConfig =
       entityManager.entity<Stage::AgentConfig>(Cell::path("stage/boot/config/inputDir/Vorn", 0));
   auto const progressDir = entityManager.entity<Stage::ProgressDir>(Cell::path("stage/boot/progress", 0));
   auto const stageStatus = entityManager.entity<Stage::Status>(Cell::path("stage/boot/status", 0));

   openKernelSockets();
   char const* const fabric = std::getenv("FABRIC_DEVICE_NAME");
   fabricDeviceName_ = fabric ? fabric : "fabric";

   // From here on the role is known: true on a standby supervisor. On an active one nothing has been
   // called yet.
   entityManagerReactor_ =
       made("entityManagerReactor", Kem::makePtr<EntityManagerReactor>(redundancyStatus(), this));

   localIs(privateVlanLibState_, "privateVlanLibState");
   localIs(netNsCollection_, "kns");
   decideStartupMode(entityManager);
   localIs(dynVlanIntfList_, "DynVlanIntfListForVornAgent");
   dynVlanIntfSm_ = made(
       "dynVlanIntfSm",
       Kem::makePtr<DynVlanIntfReactor>(entityManager.entity<Kem::Dir>("interface/input/dynvlanintf"),
                                        entityManager.entity<Kem::Dir>("interface/inputError/dynvlanintf"),
                                        dynVlanIntfList_, standbyMode_));
   bool const isHitless = startupModeStatus_->startupMode() == ::Agent::StartupMode::startupModeHitless;
   if (isHitless)
      localIs(oxaState_, "OxaState");

   handleStandbyMode();
   followKernel();
   routedInterfaces_ = std::make_unique<RoutedInterfaces>(*this);
   routedInterfaces_->makeVlanIntfSm();

   bootStagesHelper_ =
       made("bootStagesHelper", Kem::makePtr<AgentBase::StagesHelper>(bootStageClass, stageStatus,
                                                                      progressDir, agentConfig, *this));
   bootStagesHelper_->waitForStage("NetworkAgent");
   bootStagesHelper_->waitForStage("ErrdisableStatusUpdate");
   routedInterfaces_->makeSubIntfSm();
   if (isHitless) {
      bootStagesHelper_->waitForStage("VornStatusUpdate");
      bootStagesHelper_->waitForStage("VornSubIntfUp");
      bootStagesHelper_->waitForStage("DownLinksUpdate");
      startupModeConfig_->startupCompleteIs(true);
      KEM_TRACE(agentTrace, 5, "startupComplete");
   } else {
      recoverReloadDownPorts();
   }
   handleReportedStages();

   auto* const outManagerSm = Kem::NboAttrLog::top()->outManagerSm();
   attrLogCheck_.nboAttrLogOutSmIs(outManagerSm->socketOutSm(entityManager.name()));
   attrLogCheck_.attrLogCodefInit();
   if (agentStatus())
      statusReport_ = std::make_unique<StatusReport>(agentStatus(), *this);

   // Decided once, at the start: a supervisor that becomes active later never has them.
   if (redundancyStatus() && redundancyStatus()->mode() == Redundancy::RedundancyMode::modeActive)
      mountSharedMemory(entityManager);

   openTraceFile();
}

void Agent::openKernelSockets() {
   int const fd = socketFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   KEM_ASSERT(fd >= 0);
   traceMade("socketFd");
   // "vlan5" rather than "vlan0005". The answer is ignored: a kernel without 802.1Q shows when a device is made.
   static_cast<void>(setVlanDeviceNameType(static_cast<unsigned>(fd)));
   int const netlinkFd = netlinkFd_ = createNetlinkSocket();
   KEM_ASSERT(netlinkFd >= 0);
   traceMade("netlinkFd");
}

int Agent::createNetlinkSocket() {
   return openNetlinkSocket();
}

void Agent::followKernel() {
   auto const activity = Kem::activityManager()->config();
   localIs(kernelNetworkInfoRoot_, "kni");
   kernelOperStateRoot_ = made("kosr", Kem::makePtr<KernelOperState::Root>("kosr"));
   auto& kosr = *kernelOperStateRoot_;
   made("kosr intfStatusDir", kosr.intfStatusDirIs("intfStatusDir"));
   made("kosr intfStatusLocalDir", kosr.intfStatusLocalDirIs("intfStatusLocalDir"));
   made("kosr netNsCollection", kosr.netNsCollectionIs("kns"));
   made("kosr netNsManager", kosr.netNsManagerIs(activity, kosr.netNsCollection()));
   kernelNetworkInfoManager_ =
       made("kernelNetworkInfoManager",
            Kem::makePtr<KernelNetworkInfo::Manager>(activity, kernelNetworkInfoRoot_, nullptr, nullptr,
                                                     Sulvi::NamespaceName()));
   makeNetNsManager();
   auto const kosm = made("kosm", kosr.kosmIs());
   made("intfStatusOperStatusSm",
        kosr.intfStatusOperStatusSmIs(activity, kosr.intfStatusDir(), kosr.intfStatusLocalDir(), kosm,
                                      netNsCollection_));
}

void Agent::makeNetNsManager() {
   if (!netNsManager_)
      netNsManager_ =
          made("netNsManager",
               Kem::makePtr<KernelNetNsInfo::Manager>(Kem::activityManager()->config(), netNsCollection_));
}

void Agent::decideStartupMode(Ordel::EntityManager& entityManager) {
   startupStatus_ = entityManager.entity<::Agent::StartupStatus>(cellPath() + "/agent/startupStatus/Vorn");
   bool const hitlessReload = oxaStatus_ && oxaStatus_->hitlessBootValid() &&
                              oxaStatus_->hitlessBootMode() == Oxa::HitlessBootMode::bootHitless;
   startupModeConfig_ = made("startupModeConfig", ::Agent::StartupModeConfig::make(false, hitlessReload));
   startupModeStatus_ = made("startupModeStatus", ::Agent::StartupModeStatus::make());
   startupModeSm_ =
       made("startupModeSm",
            Kem::makePtr<::Agent::StartupModeSm>(startupModeConfig_, startupModeStatus_,
                                                 ::Agent::nullStartupConfigFactory(), startupStatus_));
}

void Agent::recoverReloadDownPorts() {
   // Entries of an earlier hitless reload: this start isn't hitless, so nothing else would release them.
   auto const cause = reloadDownErrdisableCauseStatus();
   if (standbyMode_ || !cause || cause->intfStatus().empty())
      return;
   KEM_TRACE(agentTrace, 0,
             "doMountsComplete hitless-reload-down errdisabled interfaces present. Re-enabling.");
   cause->intfStatusDelAll();
}

void Agent::mountSharedMemory(Ordel::EntityManager& entityManager) {
   KemPlaze::Mount mount(entityManager.systemName());
   KemPlaze::MountInfo const info(KemPlaze::keyShadow);
   plazeBridgingStatus_ =
       made("plazeBridgingStatus", Kem::ptrCast<Plaze::Bridging::Status>(
                                       mount.doMount("bridging/status", "Plaze::Bridging::Status", info)));
   KEM_TRACE(agentTrace, 3, "Plaze::Bridging::Status initialized as keyshadow");
   bridgingStatus_ =
       made("bridgingStatus", Kem::ptrCast<Bridging::Status>(Kem::singletonIs(Bridging::Status::typeInfo_)));
   readerShim_ =
       made("readerShim", Kem::makePtr<Bridging::ReaderFdbStatusSm>(bridgingStatus_, plazeBridgingStatus_));

   counterDir_ = made("counterDir",
                      Kem::ptrCast<Plaze::Interface::AllIntfCounterDir>(mount.doMount(
                          "interface/counter/subintf/current", "Plaze::Interface::AllIntfCounterDir", info)));
   if (auto const dir = entityManager.entity<Interface::SubIntfStatusDir>("interface/status/subintf")) {
      dir->counterDirIs(counterDir_);
      dir->counterDirPathIs("/" + entityManager.systemName() + "/Plaze/interface/counter/subintf/current");
   }
}

void Agent::openTraceFile() {
   if (std::getenv("ZIVLOG_DISABLE"))
      return;
   if (!Zivlog::initialize(traceFileName(name(), std::getenv("ZIVLOGDIR") != nullptr), traceFileSizes))
      return;
   traceMade("trace file");
   char const* const setting = std::getenv("KEM_TRACE_FILE");
   Kem::traceSinkIs(
       [](Kem::TraceLine const& line) {
          Zivlog::text(static_cast<unsigned>(line.level), line.facility, line.file,
                       static_cast<uint32_t>(line.line), line.function, line.text);
       },
       setting ? setting : traceFileSetting);
}

std::string Agent::traceFileName(std::string_view agentName, bool hasFolder) {
   return std::string(agentName) + (hasFolder ? "" : "-%d") + ".zv";
}

std::vector<std::pair<char const*, Ulm::CodefBase*>> Agent::deferredStages() const {
   std::vector<std::pair<char const*, Ulm::CodefBase*>> stages;
   if (auto const sm = bridgingConfigSm()) {
      stages.emplace_back("VlanConfigCodef", sm->vlanConfigCodef().ptr());
      stages.emplace_back("SwitchIntfConfigCodef", sm->switchIntfConfigCodef().ptr());
   }
   if (auto const sm = vlanIntfSm())
      stages.emplace_back("VlanIntfConfigCodef", sm->vlanIntfConfigCodef().ptr());
   if (auto const sm = subIntfSm())
      stages.emplace_back("SubIntfConfigCodef", sm->subIntfConfigCodef().ptr());
   return stages;
}

// --- Redundancy role.

void Agent::standbyModeIs(bool standbyMode) {
   if (standbyMode == standbyMode_)
      return;
   standbyMode_ = standbyMode;
   handleStandbyMode();
}

void Agent::handleStandbyMode() {
   KEM_TRACE(agentTrace, 8, "handleStandbyMode " << standbyMode_);
   if (standbyMode_) {
      KEM_TRACE(agentTrace, 0, "handleStandbyMode with standbyMode=true: nothing to be done here");
      return;
   }
   KEM_TRACE(agentTrace, 0,
             "handleStandbyMode with standbyMode=false: initializing the rest of Vorn's state machines");
   if (activeRole_)
      return;
   // At the start the runner holds the log. At a switchover others see what the other supervisor wrote: of
   // what is rebuilt here, they are to see only the differences.
   bool const isSwitchover = initialized();
   if (isSwitchover && !entityManager()->attributeLog()->isHeld())
      entityManager()->holdLog(switchoverHoldLimit);
   activeRole_ = std::make_unique<ActiveRole>(*this);
   handleReportedStages();
   if (isSwitchover)
      entityManager()->releaseLogWhenSettled();
}

// --- Boot stages.

// A stage is not begun twice in one boot. So a process that starts after the stage was reported, or was
// standby then, has to make here what the stage makes.
void Agent::handleReportedStages() {
   if (activeRole_ && !standbyMode_ && bootStagesHelper_ &&
       bootStagesHelper_->isStageComplete("ErrdisableStatusUpdate"))
      activeRole_->makeReloadDownCause();
}

void Agent::doStage(std::string const& stageClass, std::string const& stage) {
   if (stageClass != bootStageClass)
      return;
   KEM_TRACE(agentTrace, 3, "doStage " << stage);
   if (stage == "NetworkAgent") {
      bootStagesHelper_->doStageComplete(stage);
   } else if (stage == "ErrdisableStatusUpdate") {
      if (!standbyMode_)
         activeRole_->makeReloadDownCause();
      bootStagesHelper_->doStageComplete(stage);
   } else if (stage == "VornStatusUpdate") {
      oxaState_->vornStatusUpdateIs(true);
   } else if (stage == "VornSubIntfUp") {
      oxaState_->vornSubIntfUpIs(true);
   } else if (stage == "DownLinksUpdate") {
      oxaState_->vornDownLinksUpdateIs(true);
   } else {
      KEM_ASSERT(0);
   }
}

} // namespace Vorn

extern "C" AgentBase::CAgent* agentModuleFactory(char const* agentName) {
   return Vorn::agentFactory(agentName).release();
}
