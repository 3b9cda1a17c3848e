#include "Show.h"

#include "Json.h"
#include "RoutedPort.h"
#include "Table.h"
#include "Words.h"

#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <map>

namespace Vornctl {

namespace {

struct InternalVlans {
   std::map<Bridging::VlanId, Sulvi::IntfId> taken; // by whom; the empty id while it is nobody's
   std::vector<Sulvi::IntfId> without;              // routed ports that have none
};

InternalVlans internalVlansOf(Bridging::Config const& config) {
   InternalVlans internal;
   for (auto const& [vlanId, vlan] : config.vlanConfig())
      if (vlan->internal())
         internal.taken[vlanId];
   for (auto const& [port, resolved] : sortedMembers(config.switchIntfConfig())) {
      auto const modeAndVlan = resolved->switchportModeAndNativeVlan();
      if (modeAndVlan.switchportMode != Bridging::SwitchportMode::routed_)
         continue;
      if (modeAndVlan.nativeVlan == 0)
         internal.without.push_back(port);
      else
         internal.taken[Bridging::VlanId(modeAndVlan.nativeVlan)] = port;
   }
   return internal;
}

std::string internalText(SwitchState const& state, InternalVlans const& internal, Format const& format) {
   std::string text = "Range: " + internalVlanRangeText(*state.config) + "; " +
                      counted(internal.taken.size(), "number") + " in use\n";
   Table table({{"VLAN"}, {"Routed port"}});
   for (auto const& [vlanId, port] : internal.taken)
      table.add({std::to_string(vlanId.value())}, {port.empty() ? "-" : port.shortName().str()});
   if (!table.empty())
      text += '\n' + table.text(format.width);
   if (internal.without.empty())
      return text;
   text += "\nRouted ports without an internal VLAN:\n";
   for (Sulvi::IntfId const port : internal.without) {
      std::string const head = "  " + port.shortName().str() + "  ";
      text += head +
              paragraph(whyNoInternalVlan(state, port).reason, head.size(), format.width).substr(head.size());
   }
   return text;
}

Json internalJson(SwitchState const& state, InternalVlans const& internal) {
   auto const range = state.config->internalVlanRange();
   bool const isAscending =
       state.config->internalVlanAllocationPolicy() == Bridging::InternalVlanAllocationPolicy::ascending;
   Json vlans = Json::object(), without = Json::object();
   for (auto const& [vlanId, port] : internal.taken)
      vlans[std::to_string(vlanId.value())] = port.empty() ? Json() : Json(port.stringValue().str());
   for (Sulvi::IntfId const port : internal.without)
      without[port.stringValue().str()] = {{"reason", whyNoInternalVlan(state, port).reason},
                                           {"isErrdisabled", noInternalVlanSince(state, port).has_value()}};
   return {{"range", {{"min", range.min}, {"max", range.max}}},
           {"policy", isAscending ? "ascending" : "descending"},
           {"internalVlans", std::move(vlans)},
           {"portsWithout", std::move(without)}};
}

} // namespace

std::string showInternalVlan(SwitchState const& state, Format const& format) {
   InternalVlans const internal = internalVlansOf(*state.config);
   return format.wantsJson ? jsonText(internalJson(state, internal)) : internalText(state, internal, format);
}

} // namespace Vornctl
