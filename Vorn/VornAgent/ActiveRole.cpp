#include "Vorn/VornAgent/ActiveRole.h"

#include "Kem/Activity.h"
#include "Kem/Assert.h"
#include "Kem/Dir.h"
#include "Vorn/VornAgent/Made.h"
#include "Vorn/VornAgent/VornAgent.h"
#include "records/Errdisable/Config.h"
#include "records/LinkFlap/Config.h"
#include "records/UplinkFailureDetection/Config.h"

namespace Vorn {

using Errdisable::CauseStatus;

ActiveRole::ActiveRole(Agent& agent)
    : agent_(agent), em_(*agent.entityManager()),
      linkFlapCauseStatus_(em_.entity<CauseStatus>("interface/errdisable/cause/link-flap")),
      noInternalVlanIdCauseStatus_(em_.entity<CauseStatus>("interface/errdisable/cause/no-internal-vlan")),
      reloadDownErrdisableCauseStatus_(
          em_.entity<CauseStatus>("interface/errdisable/cause/hitless-reload-down")) {
   vlanOperStatusRoot_ = made("vosr", Kem::makePtr<VlanOperStatus::Root>("vosr"));
   linkFlapRoot_ = made("linkFlapRoot", Kem::makePtr<LinkFlap::Root>("linkFlapRoot"));
   makeErrdisable();
   makeBridging();
   // From here on this process decides which records are referred to. References of the previous run whose
   // records are gone can be deleted: the selection has chosen again for each port that is still asked for.
   em_.danglingReferencesDel();
   linkStatusLoggingDirSm_ =
       made("linkStatusLoggingDirSm", Kem::makePtr<Interface::LinkStatusLoggingDirSm>(
                                          Kem::activityManager()->config(),
                                          em_.entity<Interface::GlobalIntfConfig>("interface/config/global"),
                                          em_.entity<Interface::AllIntfConfigDir>("interface/config/all"),
                                          em_.entity<Interface::AllIntfStatusDir>("interface/status/all")));
   makeVlanOperStatus();
   agent_.makeNetNsManager();
   makePortWatchers();
   if (auto* const routedInterfaces = agent_.routedInterfaces())
      routedInterfaces->handleActive(); // not at the start: they are made with the role
   agent_.dynVlanIntfSm()->standbyModeIs(false);
}

ActiveRole::~ActiveRole() {
   em_.foreignChangeHookIs(nullptr);
}

Kem::Ptr<ErrdisableLib::CauseAgentSM> ActiveRole::cause(char const* name,
                                                        Kem::Ptr<CauseStatus> const& status) const {
   return made(name, ErrdisableLib::CauseSMInit(&agent_, em_, name, name, status, nullptr, nullptr));
}

void ActiveRole::makeErrdisable() {
   auto const causeDir = em_.entity<Kem::Dir>("interface/errdisable/cause");
   intfAggrStatus_ = ErrdisableAggr::IntfAggrStatus::make();
   intfAggrStatus_->nameIs("intfAggrStatus");
   traceMade("intfAggrStatus");
   errdisableAggrSm_ =
       made("errdisableAggrSm",
            Kem::makePtr<ErrdisableAggr::RootSM>(
                Kem::activityManager()->config(), causeDir,
                em_.entity<Kem::Dir>("interface/errdisable/causegroup"),
                em_.entity<Errdisable::Status>("interface/errdisable/status"), intfAggrStatus_));
   if (causeDir && causeDir->entityPtr("test"))
      testErrdisableCauseSm_ = cause("test", nullptr);
}

void ActiveRole::makeBridging() {
   // The input of default records is ranked like any publisher's. This is the only priority that the agent
   // writes.
   auto const bridgingInputEth = em_.entity<Bridging::Input::Config>("bridging/input/config/eth");
   bridgingInputEth->switchIntfConfigPriorityIs(10);
   traceMade("rank of the default records");

   auto const inputDir = em_.entity<Kem::Dir>("bridging/input/config");
   auto const cliInput = inputDir ? inputDir->entity<Bridging::Input::CliConfig>("cli") : nullptr;
   KEM_ASSERT(cliInput);

   dynVlanSrcTable_ = made("dynVlanSrcTable", Bridging::Input::DynVlanSrcTable::make());
   noInternalVlanErrdisableCauseSm_ = cause("no-internal-vlan", noInternalVlanIdCauseStatus_);

   auto const config = em_.entity<Bridging::Config>("bridging/config");
   privateVlanLibSm_ =
       made("privateVlanLibSm", Kem::makePtr<PrivateVlanLib::LibSm>(config, agent_.privateVlanLibState()));

   auto const allSwitchIntfConfigDir = em_.entity<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig");
   auto const fdbConfigDir = em_.entity<Bridging::FdbConfigDir>("bridging/fdbConfigDir");
   auto const ethIntfConfigDir = em_.entity<Interface::EthIntfConfigDir>("interface/config/eth/intf");
   bridgingConfigSm_ =
       made("bridgingConfigSm",
            bridgingConfigSmFactory({
                .configIn = bridgingInputEth,
                .allSwitchIntfConfigs = allSwitchIntfConfigDir,
                .fdbConfigDir = fdbConfigDir,
                .config = config,
                .vlanIntfConfig = em_.entity<Interface::VlanIntfConfigDir>("interface/config/eth/vlan"),
                .dynVlanIntfList = agent_.dynVlanIntfList(),
                .ethIntfConfigDir = ethIntfConfigDir,
                .dynAllowedVlanDir = em_.entity<Kem::Dir>("bridging/input/dynvlan/allowedvlan"),
                .dynVlanDir = em_.entity<Kem::Dir>("bridging/input/dynvlan/vlan"),
                .dynVlanSrcTable = dynVlanSrcTable_,
                .noInternalVlanIdCauseStatus = noInternalVlanIdCauseStatus_,
                .recoveryTimer = Kem::ActivityFacility::clock(),
                .cliConfig = cliInput,
                .privateVlanLibState = agent_.privateVlanLibState(),
                .attrLogCheck = &agent_.attrLogCheck(),
                .ethIntfStatusDir = em_.entity<Interface::EthIntfStatusDir>("interface/status/eth/intf"),
            }));
   em_.foreignChangeHookIs(
       [this](Kem::Entity const& changed) { bridgingConfigSm_->handleForeignChange(changed); });
   inputSelectorSm_ =
       made("inputSelectorSm",
            inputSelectorSmFactory({
                .inputDir = inputDir,
                .bridgingConfigSm = bridgingConfigSm_,
                .ethIntfConfigDir = ethIntfConfigDir,
                .bridgingInputEth = bridgingInputEth,
                .allSwitchIntfConfigDir = allSwitchIntfConfigDir,
                .fdbConfigDir = fdbConfigDir,
                .bridgingConfig = config,
                .cliConfig = cliInput,
                .bridgingHwCapabilities = em_.entity<Bridging::HwCapabilities>("bridging/hwcapabilities"),
            }));
}

void ActiveRole::makeVlanOperStatus() {
   made("vlanOperStatusSm",
        vlanOperStatusRoot_->vlanOperStatusSmIs({
            .vlanIntfStatusDir = em_.entity<Interface::VlanIntfStatusDir>("interface/status/eth/vlan"),
            .vlanStatusDir = em_.entity<Bridging::VlanStatusDir>("bridging/vlan/status"),
            .vlanIntfConfigDir = em_.entity<Interface::VlanIntfConfigDir>("interface/config/eth/vlan"),
            .dynVlanIntfDir = em_.entity<Kem::Dir>("interface/input/dynvlanintf"),
            .dynVlanIntfList = agent_.dynVlanIntfList(),
            .privateVlanLibState = agent_.privateVlanLibState(),
            .allVlanIntfAutoState =
                em_.entity<Interface::AllVlanIntfAutoState>("interface/config/eth/allVlanIntfAutoState"),
        }));
}

// What watches ports and disables them, or reports on them to the operator.
void ActiveRole::makePortWatchers() {
   auto const activity = Kem::activityManager()->config();
   auto const ethPhyIntfConfigDir =
       em_.entity<Interface::AllEthPhyIntfConfigDir>("interface/config/eth/phy/all");
   auto const ethPhyIntfStatusDir =
       em_.entity<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all");

   linkFlapErrdisableCauseSm_ = cause("link-flap", linkFlapCauseStatus_);
   made("linkFlapSm",
        linkFlapRoot_->linkFlapSmIs(activity, ethPhyIntfConfigDir, ethPhyIntfStatusDir,
                                    em_.entity<Errdisable::Config>("interface/errdisable/config"),
                                    em_.entity<LinkFlap::Config>("interface/errdisable/linkFlapConfig"),
                                    linkFlapCauseStatus_, "link-flap"));

   auto const uplinkCauseStatus =
       em_.entity<CauseStatus>("interface/errdisable/cause/uplink-failure-detection");
   uplinkFailureDetectionErrdisableCauseSm_ = cause("uplink-failure-detection", uplinkCauseStatus);
   uplinkFailureDetectionRoot_ =
       made("uplinkFailureDetectionRoot",
            Kem::makePtr<UplinkFailureDetection::Root>("uplinkFailureDetectionRoot"));
   made("uplinkFailureDetectionSm",
        uplinkFailureDetectionRoot_->uplinkFailureDetectionSmIs(
            em_.entity<UplinkFailureDetection::Config>("interface/errdisable/uplinkFailureDetection/config"),
            em_.entity<UplinkFailureDetection::Status>("interface/errdisable/uplinkFailureDetection/status"),
            uplinkCauseStatus, em_.entity<Interface::EthIntfStatusDir>("interface/status/eth/intf")));

   congestionDropsLoggingSm_ = made(
       "congestionDropsLoggingSm",
       Kem::makePtr<Interface::CongestionDropsLoggingSm>(
           ethPhyIntfConfigDir, ethPhyIntfStatusDir,
           em_.entity<Interface::EthPhyIntfGlobalDefaultConfigDir>("interface/config/eth/phy/globalDefault"),
           em_.entity<Interface::HwStatus>("interface/hwstatus"), Kem::ActivityFacility::clock()));
}

void ActiveRole::makeReloadDownCause() {
   if (reloadDownErrdisableCauseSm_)
      return;
   reloadDownErrdisableCauseSm_ = cause("hitless-reload-down", reloadDownErrdisableCauseStatus_);
}

} // namespace Vorn
