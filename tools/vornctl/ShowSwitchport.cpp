#include "Show.h"

#include "Failures.h"
#include "Inputs.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/AllowedVlans.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <map>

namespace Vornctl {

namespace {

struct PortRow {
   Sulvi::IntfId intfId;
   Kem::Ptr<Bridging::SwitchIntfConfig> resolved;
   PortChoice choice;
   VornUtils::VlanIdSet tagged, untagged; // VLANs that it is a member of

   Bridging::SwitchportMode mode() const { return resolved->switchportModeAndNativeVlan().switchportMode; }
   uint16_t native() const { return resolved->switchportModeAndNativeVlan().nativeVlan.value(); }
   VornUtils::VlanIdSet members() const {
      VornUtils::VlanIdSet all = tagged;
      untagged.forEach([&](uint16_t vlan) { all.vlanIs(vlan); });
      return all;
   }
};

// All, in natural order, or the one.
std::vector<PortRow> portsOf(SwitchState const& state, std::optional<Sulvi::IntfId> only) {
   std::map<Sulvi::IntfId, PortRow> ports;
   auto const inputs = inputsOf(state);
   for (auto const& [intfId, resolved] : state.config->switchIntfConfig())
      if (!only || intfId == *only)
         ports[intfId] = {intfId, resolved, choiceOf(state, inputs, intfId), {}, {}};
   for (auto const& [vlanId, vlan] : state.config->vlanConfig())
      vlan->intf().forEach([&, number = vlanId.value()](Sulvi::IntfId intfId, auto const& member) {
         if (auto const at = ports.find(intfId); at != ports.end())
            (member.tagged ? at->second.tagged : at->second.untagged).vlanIs(number);
      });
   std::vector<PortRow> sorted;
   for (auto& [intfId, port] : ports)
      sorted.push_back(std::move(port));
   return sorted;
}

std::string tpidText(Bridging::SwitchIntfConfig const& resolved) {
   char text[16];
   std::snprintf(text, sizeof text, "0x%04x", static_cast<unsigned>(resolved.vlanTpid().value()));
   return text;
}

// "1, 5-9", which can be folded.
std::string spaced(std::vector<std::string> const& items) {
   std::string text;
   for (std::string const& item : items)
      text += (text.empty() ? "" : ", ") + item;
   return text;
}

Json portJson(PortRow const& port) {
   auto const& out = *port.resolved;
   Json json = {{"mode", modeText(port.mode())},
                {"nativeVlan", port.native()},
                {"taggedVlans", port.tagged.text()},
                {"untaggedVlans", port.untagged.text()},
                {"input", port.choice.winner.empty() ? Json() : Json(port.choice.winner)},
                {"inputPriority", port.choice.priority}};
   if (port.choice.record) {
      json["allowedVlans"] = Vorn::allowedVlans(*port.choice.record).list.str();
      json["trunkGroups"] = sortedTexts(port.choice.record->trunkGroup());
   }
   json["asymmetricVlans"] = out.asymVlanEnabled();
   json["macLearning"] = out.macLearningEnabled();
   json["flooding"] = out.floodingEnabled();
   json["acceptsTagged"] = out.allowTaggedPkts();
   json["ingressFiltering"] = out.enableIngressFiltering();
   json["tpid"] = tpidText(out);
   return json;
}

std::string portTable(std::vector<PortRow> const& ports, Format const& format) {
   Table table({{"Port"}, {"Mode"}, {"Native", Table::Align::right}, {"Input"}, {"Member of VLANs"}});
   for (PortRow const& port : ports)
      table.add({port.intfId.shortName().str(), modeText(port.mode()),
                 port.native() == 0 ? "-" : std::to_string(port.native()),
                 port.choice.winner.empty() ? "-" : port.choice.winner},
                vlanList(port.members()));
   return table.text(format.width);
}

std::string portText(PortRow const& port, Format const& format) {
   auto const& out = *port.resolved;
   constexpr size_t indent = 24;
   std::string text;
   auto const line = [&](std::string const& name, std::string const& value) {
      text += name + ':' +
              paragraph(Kem::printable(value.empty() ? "-" : value), indent, format.width)
                  .substr(name.size() + 1);
   };
   auto const flag = [&](char const* name, bool is) { line(name, is ? "yes" : "no"); };
   line("Port", port.intfId.stringValue().str());
   auto const& choice = port.choice;
   line("Input", choice.winner.empty()
                     ? "none any more"
                     : choice.winner + " by its number " + std::to_string(choice.priority) +
                           (choice.losers.empty() ? "" : "; lost: " + losersText(choice.losers)));
   line("Mode", modeText(port.mode()));
   line("Native VLAN", port.native() == 0 ? "none" : std::to_string(port.native()));
   line("Tagged in VLANs", spaced(vlanList(port.tagged)));
   line("Untagged in VLANs", spaced(vlanList(port.untagged)));
   if (choice.record) {
      line("Configured VLAN list", Vorn::allowedVlans(*choice.record).list.str());
      line("Trunk groups", joined(sortedTexts(choice.record->trunkGroup())));
      if (out.asymVlanEnabled())
         line("Asymmetric VLANs", choice.record->asymVlans().str());
   }
   flag("Learns addresses", out.macLearningEnabled());
   flag("Floods", out.floodingEnabled());
   flag("Accepts tagged", out.allowTaggedPkts());
   flag("Filters arriving VLANs", out.enableIngressFiltering());
   line("Tag protocol id", tpidText(out));
   return text;
}

} // namespace

std::string showSwitchport(SwitchState const& state, std::optional<Sulvi::IntfId> port,
                           Format const& format) {
   auto const ports = portsOf(state, port);
   if (port && ports.empty())
      throw Absent(port->stringValue().str() + ": there is no such port");
   if (format.wantsJson) {
      Json all = Json::object();
      for (PortRow const& each : ports)
         all[each.intfId.stringValue().str()] = portJson(each);
      return jsonText({{"ports", std::move(all)}});
   }
   return port ? portText(ports[0], format) : portTable(ports, format);
}

} // namespace Vornctl
