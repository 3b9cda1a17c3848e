#include "Vorn/Selection/InputSelectorSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/Rules/BestInput.h"
#include "Vorn/Selection/InputSelectorConfig.h"

#include <map>

namespace Vorn {

using Bridging::Input::CliConfig;
using Input = Bridging::Input::Config;

namespace {

Kem::TraceFacility selectorTrace("VornSelector");

} // namespace

Kem::Ptr<InputSelectorSm> inputSelectorSmFactory(InputSelectorInputs inputs) {
   return Kem::makePtr<InputSelectorSm>(std::move(inputs));
}

InputSelectorSm::InputSelectorSm(InputSelectorInputs inputs) : in_(std::move(inputs)) {
   kemEthIntfConfigDir_.notifierIs(in_.ethIntfConfigDir);
   kemCliConfig_.notifierIs(in_.cliConfig);
   kemBridgingHwCapabilities_.notifierIs(in_.bridgingHwCapabilities);
   kemInputDir_.notifierIs(in_.inputDir); // and runs handleInput()
   if (!in_.inputDir)
      return;
   handleEthIntfConfig();
   handleHostAgingTime();
   handlePausePassThrough();
   handleForwardingMode();
   handleInternalVlanAllocationPolicy();
   handleInternalVlanRange();
   handleForwardingMode();
   doForgetUnheldPorts();
   doForgetUnheldFdbConfigs();
}

InputSelectorSm::~InputSelectorSm() = default;

void InputSelectorSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(kemInputDir_, kemEthIntfConfigDir_, kemCliConfig_, kemBridgingHwCapabilities_, config_);
}

// --- Inputs come and go.

void InputSelectorSm::handleInput() {
   forEachInput(*in_.inputDir, [&](Kem::Ptr<Input> const& input) {
      configIs(input);
      if (auto const cli = Kem::ptrCast<CliConfig>(input))
         cliConfigIs(cli);
   });
   for (auto const& [name, reactor] : config_)
      if (!in_.inputDir->entity<Input>(name))
         configDel(name);
   doFindBestVlanConfig();
   doFindBestSwitchIntfConfigs();
}

void InputSelectorSm::handleInput(Kem::Name const& name) {
   auto const bic = in_.inputDir->entity<Input>(name);
   if (!bic) {
      if (auto const reactor = config(name))
         doDeliverRest(*reactor);
      configDel(name);
      auto const& best = in_.bridgingConfigSm->configIn();
      if (best && best->name() == name)
         doFindBestVlanConfig();
      doFindBestSwitchIntfConfigs();
      return;
   }
   configIs(bic);
   if (auto const cli = Kem::ptrCast<CliConfig>(bic))
      cliConfigIs(cli);
   // A new input arrives with its priorities unset; it can be chosen only once they are raised.
   KEM_ASSERT(bic->vlanConfigPriority() == 0);
   KEM_ASSERT(bic->switchIntfConfigPriority() == 0);
}

Kem::Ptr<InputSelectorSm::KemConfig> InputSelectorSm::config(Kem::Name const& name) const {
   auto const* const found = config_.find(name);
   return found ? *found : nullptr;
}

void InputSelectorSm::configIs(Kem::Ptr<Input const> const& config) {
   if (!config)
      Kem::throwNullParameter("config", "Vorn::InputSelectorSm");
   Kem::Name const name = config->name();
   if (auto const known = this->config(name)) {
      auto const old = known->notifier();
      if (old == config)
         return;
      // The input was deleted and made again: ports that the old one won still refer to its deleted records.
      doDeliverRest(*known);
      known->notifierIs(config);
      for (auto const& [intfId, record] : old->switchIntfConfig())
         handleSwitchIntfConfig(intfId);
      return;
   }
   auto const made = Kem::makePtr<KemConfig>(*this);
   config_.findOrInsert(name, [&] { return made; });
   made->notifierIs(config);
}

void InputSelectorSm::configDel(Kem::Name const& name) {
   // Somebody else may hold it; it decides nothing any more.
   if (auto const reactor = config(name)) {
      reactor->kemDoZombieReactors(true);
      reactor->doPrepareToDie();
   }
   config_.erase(name);
}

// The command line's input is followed as long as it stands. Another one of its type is an input like any other:
// its settings would count or not by who came last, and would stay when it goes.
void InputSelectorSm::cliConfigIs(Kem::Ptr<CliConfig const> const& cliConfig) {
   auto const& current = in_.cliConfig;
   if (current && current != cliConfig && in_.inputDir->entity<CliConfig>(current->name()) == current) {
      KEM_TRACE(selectorTrace, 0,
                cliConfig->name() << " is of the command line's type; settings of the bridge are taken from "
                                  << current->name() << " only");
      return;
   }
   in_.cliConfig = cliConfig;
   kemCliConfig_.notifierIs(cliConfig);
   in_.bridgingConfigSm->cliConfigIs(cliConfig);
}

void InputSelectorSm::doDeliverRest(KemConfig& reactor) {
   while (reactor.hasPending())
      reactor.handleNotification(*reactor.activityPtr());
}

void InputSelectorSm::KemConfig::handleInitialized() {
   handleSwitchIntfPriority();
   handleVlanConfigPriority();
   handleSwitchIntfConfig();
   handleFdbConfig();
}

void InputSelectorSm::KemConfig::handleVlanConfigPriority() {
   sm.doFindBestVlanConfig();
}

void InputSelectorSm::KemConfig::handleSwitchIntfPriority() {
   sm.handleSwitchIntfPriority(*notifier());
}

void InputSelectorSm::KemConfig::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   sm.handleSwitchIntfConfig(intfId);
}

void InputSelectorSm::KemConfig::handleSwitchIntfConfig() {
   KEM_TRACE(selectorTrace, 8, "handleSwitchIntfConfig of " << notifier()->name());
}

// --- The VLANs: one whole input.

void InputSelectorSm::doFindBestVlanConfig() {
   auto const best = bestVlanInput(*in_.inputDir);
   KEM_TRACE(selectorTrace, 3,
             ": best vlan config is " << (best ? best->name() : Kem::Name("None")) << " with priority "
                                      << (best ? best->vlanConfigPriority() : 0));
   in_.bridgingConfigSm->configInIs(best);
   in_.bridgingConfigSm->handleVlanConfig();
}

// --- The ports: each by itself.

void InputSelectorSm::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   auto const best =
       bestPortRecord(*in_.inputDir, intfId, [&](Input const& bic) {
          KEM_TRACE(selectorTrace, 8, "InputSelectorSm considering " << bic.name() << " for " << intfId);
       }).record;
   KEM_TRACE(selectorTrace, 5,
             "InputSelectorSm " << intfId << " best = " << (best ? best->fullName() : std::string("<none>")));
   if (best) {
      KEM_TRACE(selectorTrace, 5, "Creating allSwitchIntfConfigDir switchIntfConfig " << intfId);
      in_.allSwitchIntfConfigDir->switchIntfConfigIs(best);
   } else {
      KEM_TRACE(selectorTrace, 5, "Deleting allSwitchIntfConfigDir switchIntfConfig " << intfId);
      in_.allSwitchIntfConfigDir->switchIntfConfigDel(intfId);
   }
}

void InputSelectorSm::doFindBestSwitchIntfConfigs() {
   std::map<Sulvi::IntfId, bool> isDone;
   forEachInput(*in_.inputDir, [&](Kem::Ptr<Input> const& bic) {
      for (auto const& [intfId, record] : bic->switchIntfConfig())
         if (isDone.emplace(intfId, true).second)
            handleSwitchIntfConfig(intfId);
   });
}

void InputSelectorSm::doForgetUnheldPorts() {
   for (auto const& [intfId, record] : in_.allSwitchIntfConfigDir->switchIntfConfig())
      if (!bestPortRecord(*in_.inputDir, intfId).record)
         handleSwitchIntfConfig(intfId);
   for (auto const& [intfId, port] : in_.bridgingConfig->switchIntfConfig())
      if (!bestPortRecord(*in_.inputDir, intfId).record)
         in_.bridgingConfigSm->switchports().doForgetPort(intfId);
}

void InputSelectorSm::handleSwitchIntfPriority(Input const& bic) {
   if (!bic.switchIntfConfig().empty())
      doFindBestSwitchIntfConfigs();
}

// --- Default records of ports that nobody configured.

bool InputSelectorSm::isEligible(Sulvi::IntfId intfId) const {
   return in_.ethIntfConfigDir && in_.ethIntfConfigDir->intfConfig().find(intfId) &&
          !Sulvi::VlanIntfId::isVlanIntfId(intfId) && !Sulvi::LoopbackIntfId::isLoopbackIntfId(intfId) &&
          !Sulvi::MgmtIntfId::isMgmtIntfId(intfId) && !Sulvi::InternalIntfId::isInternalIntfId(intfId) &&
          !Sulvi::VxlanTunnelIntfId::isVxlanTunnelIntfId(intfId);
}

void InputSelectorSm::defaultSwitchIntfConfigIs(Sulvi::IntfId intfId) {
   auto record = in_.bridgingInputEth->switchIntfConfig(intfId);
   if (!record)
      record = in_.bridgingInputEth->switchIntfConfigIs(intfId, Bridging::Input::SwitchportMode::access_);
   record->enabledIs(in_.bridgingConfig->defaultSwitchportMode() != Bridging::SwitchportMode::routed_);
}

void InputSelectorSm::handleEthIntfConfig(Sulvi::IntfId intfId) {
   if (isEligible(intfId))
      defaultSwitchIntfConfigIs(intfId);
   else
      in_.bridgingInputEth->switchIntfConfigDel(intfId);
}

void InputSelectorSm::handleEthIntfConfig() {
   if (in_.ethIntfConfigDir)
      for (auto const& [intfId, intf] : in_.ethIntfConfigDir->intfConfig())
         if (isEligible(intfId))
            defaultSwitchIntfConfigIs(intfId);
   for (auto const& [intfId, record] : in_.bridgingInputEth->switchIntfConfig())
      if (!isEligible(intfId))
         in_.bridgingInputEth->switchIntfConfigDel(intfId);
}

// --- Settings for the whole bridge, from the command line.

void InputSelectorSm::KemCliConfig::handleInitialized() {
   sm.handleHostAgingTime();
   sm.handlePausePassThrough();
   sm.handleForwardingMode();
   sm.handleInternalVlanAllocationPolicy();
   sm.handleInternalVlanRange();
}

void InputSelectorSm::handleHostAgingTime() {
   in_.bridgingConfig->hostAgingTimeIs(in_.cliConfig->hostAgingTime());
}

void InputSelectorSm::handlePausePassThrough() {
   in_.bridgingConfig->pausePassThroughIs(in_.cliConfig->pausePassThrough());
}

void InputSelectorSm::handleInternalVlanRange() {
   in_.bridgingConfig->internalVlanRangeIs(in_.cliConfig->internalVlanRange());
}

void InputSelectorSm::handleInternalVlanAllocationPolicy() {
   in_.bridgingConfig->internalVlanAllocationPolicyIs(in_.cliConfig->internalVlanAllocationPolicy());
}

void InputSelectorSm::handleForwardingMode() {
   using Mode = Bridging::SwitchForwardingMode;
   Mode const chosen = in_.cliConfig->forwardingMode();
   // Without the hardware's record no mode is known to be supported.
   Kem::Ptr<Bridging::HwCapabilities const> capabilities = in_.bridgingHwCapabilities;
   if (!capabilities)
      capabilities = Bridging::HwCapabilities::make();
   auto const& supported = capabilities->supportedForwardingMode();
   auto const* const preferred = supported.find(0);
   bool isSupported = false;
   supported.forEach([&](uint32_t, Mode mode) { isSupported = isSupported || mode == chosen; });
   if (chosen != Mode::notChosen && isSupported) {
      in_.bridgingConfig->forwardingModeIs(chosen);
      return;
   }
   if (chosen != Mode::notChosen)
      KEM_TRACE(selectorTrace, 0,
                "Selected forwarding mode: " << static_cast<uint32_t>(chosen)
                                             << " is not in list of supported modes.");
   in_.bridgingConfig->forwardingModeIs(preferred ? *preferred : Mode::notChosen);
}

} // namespace Vorn
