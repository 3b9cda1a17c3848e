#include "Show.h"

#include "DynamicSources.h"
#include "Failures.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "records/Bridging/VlanConfig.h"

namespace Vornctl {

namespace {

using DynClaims = std::vector<Vorn::DynVlanSource const*>; // on one VLAN, the source of record first

constexpr size_t dynSourceWidth = 32;

struct DynamicVlan {
   Bridging::VlanId vlanId;
   DynClaims claims;
   std::string staticInput; // that holds the VLAN too, and so has it; empty when none does
   std::string status;
};

DynamicVlan dynamicVlan(SwitchState const& state, Sources const& sources, Bridging::VlanId vlanId) {
   DynamicVlan vlan{vlanId, claimsOf(sources, vlanId), staticInputOf(state, vlanId), {}};
   auto const resolved = state.config->vlanConfig(vlanId);
   if (!vlan.staticInput.empty())
      vlan.status = "waits behind " + shortened(vlan.staticInput, dynSourceWidth);
   else if (resolved && !resolved->internal() && resolved->configSource() == vlan.claims.front()->rank.name)
      vlan.status = "exists";
   else
      vlan.status = "on its way";
   return vlan;
}

// Why another source than this one is the source of record.
std::string lossText(Vorn::DynVlanRank const& loser, Vorn::DynVlanRank const& winner) {
   return loser.priority < winner.priority ? "lost by its number" : "lost by its name";
}

Json dynamicVlanJson(DynamicVlan const& vlan) {
   Json claims = Json::array();
   for (auto const* const claim : vlan.claims)
      claims.push_back({{"source", claim->rank.name.str()}, {"priority", claim->rank.priority}});
   auto const& first = *vlan.claims.front();
   return {{"source", first.rank.name.str()},
           {"priority", first.rank.priority},
           {"trunkGroups", sortedTexts(first.record->trunkGroup())},
           {"status", vlan.staticInput.empty() ? vlan.status : "waits"},
           {"staticInput", vlan.staticInput.empty() ? Json() : Json(vlan.staticInput)},
           {"claims", std::move(claims)}};
}

Json dynSourcesJson(Sources const& sources) {
   Json all = Json::object();
   for (auto const& source : sources)
      all[source.rank.name.str()] = {{"priority", source.rank.priority},
                                     {"vlans", source.vlans.text()},
                                     {"leftOut", source.leftOut},
                                     {"trunkGroups", sortedTexts(source.record->trunkGroup())}};
   return all;
}

std::string dynamicVlanTable(std::vector<DynamicVlan> const& vlans, Sources const& sources,
                             Format const& format) {
   Table table({{"VLAN"}, {"Source"}, {"Priority", Table::Align::right}, {"Status"}, {"Other claims"}});
   for (auto const& vlan : vlans) {
      auto const& first = vlan.claims.front()->rank;
      std::vector<std::string> others;
      for (size_t i = 1; i < vlan.claims.size(); ++i)
         others.push_back(vlan.claims[i]->rank.name.str() + ' ' +
                          std::to_string(vlan.claims[i]->rank.priority));
      table.add({std::to_string(vlan.vlanId.value()), shortened(first.name.view(), dynSourceWidth),
                 std::to_string(first.priority), vlan.status},
                std::move(others));
   }
   std::string text = table.text(format.width);
   for (auto const& source : sources)
      if (!source.leftOut.empty())
         text += '\n' + paragraph(Kem::printable(source.rank.name.view()) +
                                      ": these items of its list are no VLAN numbers and say nothing: " +
                                      Kem::printable(source.leftOut),
                                  0, format.width);
   return text;
}

std::string dynamicVlanDetails(SwitchState const& state, DynamicVlan const& vlan, Format const& format) {
   auto const& first = *vlan.claims.front();
   std::string text =
       "VLAN " + std::to_string(vlan.vlanId.value()) + ": " + Kem::printable(vlan.status) + '\n';
   if (auto const resolved = state.config->vlanConfig(vlan.vlanId))
      text += "Resolved: \"" + Kem::printable(resolved->configuredName().view()) + "\" from " +
              Kem::printable(resolved->configSource().view()) + '\n';
   if (auto const groups = sortedTexts(first.record->trunkGroup()); !groups.empty())
      text += "Trunk groups of the source: " + Kem::printable(joined(groups)) + '\n';
   Table table({{"Source"}, {"Priority", Table::Align::right}, {"Claim"}});
   for (auto const* const claim : vlan.claims)
      table.add({claim->rank.name.str(), std::to_string(claim->rank.priority)},
                {claim == &first ? "source of record" : lossText(claim->rank, first.rank)});
   return text + '\n' + table.text(format.width);
}

} // namespace

std::string showDynamicVlan(SwitchState const& state, std::optional<Bridging::VlanId> vlanId,
                            Format const& format) {
   auto const sources = dynVlanSources(state);
   VornUtils::VlanIdSet claimed;
   for (auto const& source : sources)
      claimed |= source.vlans;
   std::vector<DynamicVlan> vlans;
   claimed.forEach([&](Bridging::VlanId id) {
      if (!vlanId || *vlanId == id)
         vlans.push_back(dynamicVlan(state, sources, id));
   });
   if (vlanId && vlans.empty())
      throw Absent("VLAN " + std::to_string(vlanId->value()) + ": no dynamic source claims it");
   if (format.wantsJson) {
      Json all = Json::object();
      for (auto const& vlan : vlans)
         all[std::to_string(vlan.vlanId.value())] = dynamicVlanJson(vlan);
      return jsonText({{"dynamicVlans", std::move(all)}, {"sources", dynSourcesJson(sources)}});
   }
   return vlanId ? dynamicVlanDetails(state, vlans.front(), format)
                 : dynamicVlanTable(vlans, sources, format);
}

} // namespace Vornctl
