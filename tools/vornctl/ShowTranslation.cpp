#include "Show.h"

#include "Failures.h"
#include "Inputs.h"
#include "Json.h"
#include "PrivateVlan.h"
#include "Table.h"

#include "Vorn/Rules/PrivateVlans.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/SwitchIntfConfig.h"

namespace Vornctl {

namespace {

using Bridging::VlanId;
using Bridging::VlanXlateKey;
using Bridging::VlanXlateMapping;

// Where a translation comes from.
enum class Origin { configured, privateVlan, nobody };

char const* originText(Origin origin) {
   switch (origin) {
   case Origin::configured:
      return "configured";
   case Origin::privateVlan:
      return "private VLAN";
   default:
      return "nobody any more";
   }
}

struct Translation {
   VlanXlateKey key;
   VlanXlateMapping mapping;
   Origin origin;
};

struct TranslatingPort {
   Sulvi::IntfId intfId;
   uint16_t ingressNative = 0, egressNative = 0;
   std::vector<Translation> ingress, egress; // in the order of their keys

   bool isEmpty() const {
      return ingressNative == 0 && egressNative == 0 && ingress.empty() && egress.empty();
   }
};

// Those that a VLAN makes a pair with.
VornUtils::VlanIdSet primariesOf(Bridging::Config const& config) {
   VornUtils::VlanIdSet primaries;
   config.vlanConfig().forEach([&](VlanId, auto const& vlan) {
      if (auto const primary = primaryOf(config, *vlan); primary != 0)
         primaries.vlanIs(primary);
   });
   return primaries;
}

// A port's own record has all translations but those that the agent adds for private VLANs.
TranslatingPort translatingPort(SwitchState const& state, std::vector<Input> const& inputs,
                                VornUtils::VlanIdSet const& primaries, Sulvi::IntfId intfId,
                                Bridging::SwitchIntfConfig const& out) {
   auto const record = choiceOf(state, inputs, intfId).record;
   TranslatingPort port{.intfId = intfId,
                        .ingressNative = out.ingressNativeVlanXlate().value(),
                        .egressNative = out.egressNativeVlanXlate().value(),
                        .ingress = {},
                        .egress = {}};
   for (auto const& [key, mapping] : sortedMembers(out.ingressVlanXlate()))
      port.ingress.push_back(
          {key, mapping, record && record->ingressVlanXlate(key) ? Origin::configured : Origin::nobody});
   bool const mapsPrimaries = record && Vorn::mapsPrimaryVlans(*record);
   for (auto const& [key, mapping] : sortedMembers(out.egressVlanXlate()))
      port.egress.push_back({key, mapping,
                             record && record->egressVlanXlate(key) ? Origin::configured
                             : mapsPrimaries && key.innerVlanId == 0 && primaries.vlan(key.outerVlanId)
                                 ? Origin::privateVlan
                                 : Origin::nobody});
   return port;
}

std::vector<TranslatingPort> translatingPorts(SwitchState const& state, std::optional<Sulvi::IntfId> only) {
   std::vector<TranslatingPort> ports;
   auto const inputs = inputsOf(state);
   auto const primaries = primariesOf(*state.config);
   for (auto const& [intfId, out] : sortedMembers(state.config->switchIntfConfig()))
      if (!only || intfId == *only)
         ports.push_back(translatingPort(state, inputs, primaries, intfId, *out));
   return ports;
}

// "100", or "100/7" with an inner tag.
std::string tagsText(unsigned outer, unsigned inner) {
   return std::to_string(outer) + (inner == 0 ? "" : '/' + std::to_string(inner));
}

std::string translationTable(std::vector<TranslatingPort> const& ports, Format const& format) {
   Table table({{"Port"}, {"Frames"}, {"VLAN"}, {"Becomes"}, {"Origin"}});
   for (TranslatingPort const& port : ports) {
      std::string const name = port.intfId.shortName().str();
      auto const addAll = [&](char const* frames, std::vector<Translation> const& translations) {
         for (auto const& [key, mapping, origin] : translations)
            table.add({name, frames, tagsText(key.outerVlanId, key.innerVlanId),
                       tagsText(mapping.mappedVlanId.value(), mapping.mappedInnerVlanId.value())},
                      {originText(origin)});
      };
      if (port.ingressNative != 0)
         table.add({name, "arriving", "untagged", std::to_string(port.ingressNative)},
                   {originText(Origin::configured)});
      addAll("arriving", port.ingress);
      if (port.egressNative != 0)
         table.add({name, "leaving", std::to_string(port.egressNative), "untagged"},
                   {originText(Origin::configured)});
      addAll("leaving", port.egress);
   }
   return table.empty() ? "no translations\n" : table.text(format.width);
}

Json translationsJson(std::vector<Translation> const& translations) {
   Json all = Json::object();
   for (auto const& [key, mapping, origin] : translations)
      all[key.text()] = {{"mappedVlan", mapping.mappedVlanId.value()},
                         {"mappedInnerVlan", mapping.mappedInnerVlanId.value()},
                         {"origin", origin == Origin::configured    ? "configured"
                                    : origin == Origin::privateVlan ? "privateVlan"
                                                                    : "none"}};
   return all;
}

} // namespace

std::string showTranslation(SwitchState const& state, std::optional<Sulvi::IntfId> port,
                            Format const& format) {
   auto ports = translatingPorts(state, port);
   if (port && ports.empty())
      throw Absent(port->stringValue().str() + ": there is no such port");
   if (!port)
      std::erase_if(ports, [](TranslatingPort const& each) { return each.isEmpty(); });
   if (!format.wantsJson)
      return translationTable(ports, format);
   Json all = Json::object();
   for (TranslatingPort const& each : ports)
      all[each.intfId.stringValue().str()] = {{"ingressNativeVlan", each.ingressNative},
                                              {"egressNativeVlan", each.egressNative},
                                              {"ingress", translationsJson(each.ingress)},
                                              {"egress", translationsJson(each.egress)}};
   return jsonText({{"ports", std::move(all)}});
}

} // namespace Vornctl
