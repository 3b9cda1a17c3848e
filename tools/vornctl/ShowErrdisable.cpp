#include "Show.h"

#include "Json.h"
#include "RoutedPort.h"
#include "Table.h"
#include "Words.h"

#include "records/Errdisable/CauseStatus.h"
#include "records/Errdisable/IntfErrdisableStatus.h"

#include <map>

namespace Vornctl {

namespace {

using Causes = std::map<std::string, Kem::Seconds>; // time at which each disabled the port

std::map<Sulvi::IntfId, Causes> disabledPorts(Kem::Dir const& causes) {
   std::map<Sulvi::IntfId, Causes> ports;
   for (auto const& [name, entity] : causes.entities())
      if (auto const cause = Kem::ptrCast<Errdisable::CauseStatus>(entity))
         cause->intfStatus().forEach([&, causeName = name.str()](Sulvi::IntfId port, Kem::Seconds time) {
            ports[port][causeName] = time;
         });
   return ports;
}

// When the port comes back by itself, as far as the sum over all causes says so.
std::string returnText(SwitchState const& state, Sulvi::IntfId port, Causes const& causes) {
   if (causes.size() == 1 && causes.begin()->first == "no-internal-vlan")
      return "when a number is free";
   auto const sum = state.errdisable->intfStatus(port);
   if (!sum)
      return "-";
   if (sum->recoveryTime() == 0)
      return "not by itself";
   return "in " + durationText(sum->recoveryTime() - state.now);
}

Json disabledJson(SwitchState const& state, std::map<Sulvi::IntfId, Causes> const& ports) {
   Json all = Json::object();
   for (auto const& [port, causes] : ports) {
      Json times = Json::object();
      for (auto const& [cause, time] : causes)
         times[cause] = {{"since", time},
                         {"secondsAgo", time <= state.now ? Json(state.now - time) : Json()}};
      auto const sum = state.errdisable->intfStatus(port);
      all[port.stringValue().str()] = {
          {"causes", std::move(times)},
          {"recoveryTime", sum && sum->recoveryTime() != 0 ? Json(sum->recoveryTime()) : Json()}};
   }
   return {{"ports", std::move(all)}};
}

} // namespace

std::string showErrdisable(SwitchState const& state, Format const& format) {
   auto const ports = disabledPorts(*state.causes);
   if (format.wantsJson)
      return jsonText(disabledJson(state, ports));
   if (ports.empty())
      return "No port is errdisabled.\n";
   Table table({{"Port"}, {"Cause"}, {"Since"}, {"Comes back"}});
   for (auto const& [port, causes] : ports)
      for (auto const& [cause, time] : causes)
         table.add({port.shortName().str(), cause, agoText(state.now, time)},
                   {returnText(state, port, causes)});
   return table.text(format.width);
}

} // namespace Vornctl
