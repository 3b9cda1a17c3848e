#include "Vorn/Rules/SubIntfStatus.h"

#include "Vorn/Rules/SubIntfIds.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusLocal.h"

#include <sstream>

namespace Vorn {

namespace {

template <class... Parts>
std::string subIntfTextOf(Parts const&... parts) {
   std::ostringstream text;
   (text << ... << parts);
   return text.str();
}

} // namespace

SubIntfFacts subIntfFacts(Interface::SubIntfConfig const& config, bool hasBridgeMacAddr, bool isVlanIdTaken,
                          Interface::IntfStatus const* parentStatus,
                          Interface::Hardware::SubIntfStatus const* hwStatus) {
   SubIntfFacts facts{
       .isEnabled = config.enabled(),
       .hasBridgeMacAddr = hasBridgeMacAddr,
       .vlanId = config.vlanId(),
       .isVlanIdTaken = isVlanIdTaken,
       .encapType = config.encapType(),
       .hasParentStatus = parentStatus != nullptr,
       .isProgrammed = hwStatus && hwStatus->hardwareSuccess(),
   };
   if (parentStatus) {
      facts.parentOperStatus = parentStatus->operStatus();
      facts.parentForwardingModel = parentStatus->forwardingModel();
   }
   return facts;
}

SubIntfRow subIntfRow(SubIntfFacts const& facts) {
   if (!facts.isEnabled)
      return SubIntfRow::notEnabled;
   if (!facts.hasBridgeMacAddr)
      return SubIntfRow::noBridgeMacAddr;
   if (!isUsableVlanId(facts.vlanId))
      return SubIntfRow::noVlanId;
   if (facts.isVlanIdTaken)
      return SubIntfRow::vlanIdTaken;
   if (facts.encapType != Interface::SubIntfEncapType::subIntfEncapDot1q)
      return SubIntfRow::noEncap;
   if (!facts.hasParentStatus)
      return SubIntfRow::noParentStatus;
   if (facts.parentOperStatus != Interface::IntfOperStatus::intfOperUp)
      return SubIntfRow::parentDown;
   if (facts.parentForwardingModel != Interface::IntfForwardingModel::intfForwardingModelRouted)
      return SubIntfRow::parentNotRouted;
   return facts.isProgrammed ? SubIntfRow::up : SubIntfRow::notProgrammed;
}

bool isVlanIdTaken(Sulvi::IntfId intfId, Interface::SubIntfConfigDir const& configDir,
                   Interface::SubIntfStatusDir const& statusDir,
                   Interface::SubIntfStatusLocalDir const& statusLocalDir) {
   auto const config = configDir.intfConfig(intfId);
   if (!config || !isUsableVlanId(config->vlanId()))
      return false;
   auto const parent = parentOfSubIntf(intfId);
   for (auto const& [otherId, other] : configDir.intfConfig())
      if (otherId != intfId && other->vlanId() == config->vlanId() && parentOfSubIntf(otherId) == parent &&
          subIntfIdProblem(otherId).empty() && statusDir.intfStatus(otherId) &&
          statusLocalDir.intfStatusLocal(otherId))
         return true;
   return false;
}

Interface::IntfOperStatus operStatusOf(SubIntfRow row) {
   switch (row) {
   case SubIntfRow::notEnabled:
   case SubIntfRow::noBridgeMacAddr:
      return Interface::IntfOperStatus::intfOperDown;
   case SubIntfRow::notProgrammed:
      return Interface::IntfOperStatus::intfOperDormant;
   case SubIntfRow::up:
      return Interface::IntfOperStatus::intfOperUp;
   default:
      return Interface::IntfOperStatus::intfOperLowerLayerDown;
   }
}

bool wantsProgramInHw(SubIntfRow row) {
   return row == SubIntfRow::notProgrammed || row == SubIntfRow::up;
}

std::string subIntfTraceText(SubIntfRow row, SubIntfFacts const& facts) {
   switch (row) {
   case SubIntfRow::notEnabled:
      return " is not enabled";
   case SubIntfRow::noBridgeMacAddr:
      return "bridge mac addr is zero";
   case SubIntfRow::noVlanId:
      return subIntfTextOf("vlanId is not configured.  vlanId=", facts.vlanId);
   case SubIntfRow::vlanIdTaken:
      return subIntfTextOf("Invalid config.  Duplicate vlanId=", facts.vlanId);
   case SubIntfRow::noEncap:
      return subIntfTextOf("encapType is not set.  encapType=", facts.encapType);
   case SubIntfRow::noParentStatus:
      return "parent intf status is missing";
   case SubIntfRow::parentDown:
      return "parent intf operationally down";
   case SubIntfRow::parentNotRouted:
      return "parent intf not in routed forwarding model";
   case SubIntfRow::notProgrammed:
      return "hardware programming for the subinterface was not successful";
   case SubIntfRow::up:
      break;
   }
   return {};
}

std::string subIntfReason(SubIntfRow row, SubIntfFacts const& facts) {
   switch (row) {
   case SubIntfRow::notEnabled:
      return "it is shut down";
   case SubIntfRow::noBridgeMacAddr:
      return "the bridge has no MAC address";
   case SubIntfRow::noVlanId:
      return facts.vlanId == 0 ? "no VLAN id is configured"
                               : subIntfTextOf("VLAN id ", facts.vlanId, " is above 4094");
   case SubIntfRow::vlanIdTaken:
      return subIntfTextOf("another subinterface of its parent has VLAN id ", facts.vlanId, " too");
   case SubIntfRow::noEncap:
      return "no encapsulation is configured";
   case SubIntfRow::noParentStatus:
      return "its parent doesn't exist";
   case SubIntfRow::parentDown:
      return "its parent is down";
   case SubIntfRow::parentNotRouted:
      return "its parent isn't a routed port";
   case SubIntfRow::notProgrammed:
      return "the hardware hasn't programmed it";
   case SubIntfRow::up:
      break;
   }
   return "nothing holds it down";
}

} // namespace Vorn
