#include "RoutedPort.h"

#include "Words.h"

#include "Vorn/Rules/InternalVlan.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"

namespace Vornctl {

std::string agoText(Kem::Seconds now, Kem::Seconds then) {
   return then <= now ? durationText(now - then) + " ago" : "at an unknown time";
}

std::string internalVlanRangeText(Bridging::Config const& config) {
   auto const range = config.internalVlanRange();
   bool const isAscending =
       config.internalVlanAllocationPolicy() == Bridging::InternalVlanAllocationPolicy::ascending;
   return std::to_string(range.min) + '-' + std::to_string(range.max) +
          (isAscending ? ", from the lowest" : ", from the highest");
}

std::optional<Kem::Seconds> noInternalVlanSince(SwitchState const& state, Sulvi::IntfId port) {
   auto const cause = state.causes->entity<Errdisable::CauseStatus>("no-internal-vlan");
   auto const* const time = cause ? cause->intfStatus(port) : nullptr;
   return time ? std::optional(*time) : std::nullopt;
}

NoInternalVlan whyNoInternalVlan(SwitchState const& state, Sulvi::IntfId port) {
   std::string const key = "[" + port.stringValue().str() + "]";
   if (auto const since = noInternalVlanSince(state, port))
      return {
          .reason = "no number was free for it in the range " + internalVlanRangeText(*state.config) +
                    "; it is errdisabled for that, cause no-internal-vlan, " + agoText(state.now, *since),
          .advice =
              "widen bridging/input/config/cli.internalVlanRange, or free a number of it: a VLAN or a VLAN "
              "interface of that number keeps it from routed ports (vornctl show internal-vlan); the "
              "agent looks again by itself"};
   auto const config = state.ethIntfConfig->intfConfig(port);
   auto const status = state.ethIntfStatus->intfStatus(port);
   using Obstacle = Vorn::InternalVlanObstacle;
   switch (Vorn::internalVlanObstacle(config.ptr(), status.ptr())) {
   case Obstacle::notConfigured:
      return {.reason = "it has no record in interface/config/eth/intf, and counts as shut down",
              .advice = "configure it: interface/config/eth/intf.intfConfig" + key};
   case Obstacle::shutDown:
      return {.reason = "it is shut down",
              .advice = "bring it up: set interface/config/eth/intf.intfConfig" + key +
                        ".enabledStateLocal to enabledStateEnabled"};
   case Obstacle::noStatus:
      return {.reason =
                  "it has no record in interface/status/eth/intf: the interface manager doesn't know it",
              .advice = "see why the interface manager has not brought it up"};
   case Obstacle::notRouted:
      return {.reason = "the interface manager doesn't route it: its forwarding model is not "
                        "intfForwardingModelRouted",
              .advice = "see what interface/status/eth/intf.intfStatus" + key + ".forwardingModel waits for"};
   case Obstacle::none:
      break;
   }
   return {.reason = "nothing speaks against one: the agent gives it out when it next looks at the port",
           .advice = "see whether the agent is running and has work waiting (vornctl show backlog)"};
}

} // namespace Vornctl
