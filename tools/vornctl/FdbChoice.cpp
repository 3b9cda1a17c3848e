#include "FdbChoice.h"

#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/BestInput.h"
#include "records/Bridging/EthGroup.h"
#include "records/Bridging/FdbConfig.h"

#include <algorithm>

namespace Vornctl {

using Bridging::EntryType;

namespace {

template <class Fdb>
std::optional<FdbEntry> entryOf(Fdb const& fdb, Sulvi::EthAddr addr, bool countsGroup) {
   auto const group = addr.isMulticast() ? fdb.ethGroup(addr) : nullptr;
   auto const* const host = fdb.configuredHost(addr);
   if (group && (countsGroup || !host)) {
      FdbEntry entry;
      entry.isGroup = true;
      for (auto const& [port, isMember] : group->intf())
         if (isMember)
            entry.ports.push_back(port);
      std::sort(entry.ports.begin(), entry.ports.end());
      return entry;
   }
   if (host)
      return FdbEntry{.entryType = host->entryType, .ports = {host->intf}};
   return std::nullopt;
}

std::vector<std::string> fdbPortNames(FdbEntry const& entry) {
   std::vector<std::string> names;
   for (Sulvi::IntfId const port : entry.ports)
      names.push_back(port.stringValue().str());
   return names;
}

} // namespace

bool FdbChoice::isContradiction() const {
   return std::any_of(claims.begin(), claims.end(), [&](FdbClaim const& claim) {
      return claim.entry.isGroup != claims.front().entry.isGroup;
   });
}

std::string FdbChoice::resolvedFrom() const {
   for (FdbClaim const& claim : claims)
      if (claim.entry == resolved)
         return claim.input;
   return {};
}

std::optional<FdbEntry> resolvedFdbEntry(Bridging::Config const& config, Bridging::VlanId vlanId,
                                         Sulvi::EthAddr addr) {
   auto const fdb = config.fdbConfig(Bridging::Fid(vlanId.value()));
   return fdb ? entryOf(*fdb, addr, false) : std::nullopt;
}

FdbChoice fdbChoiceOf(SwitchState const& state, Bridging::VlanId vlanId, Sulvi::EthAddr addr) {
   FdbChoice choice;
   choice.resolved = resolvedFdbEntry(*state.config, vlanId, addr);
   Vorn::FdbInputs const inputs(*state.inputs, vlanId);
   for (Vorn::FdbHolder const& holder : inputs.holders())
      if (auto const entry = entryOf(*holder.record, addr, true))
         choice.claims.push_back({holder.input->name().str(), holder.input->fdbConfigPriority(), *entry});
   // The last of equals comes first.
   std::reverse(choice.claims.begin(), choice.claims.end());
   std::stable_sort(choice.claims.begin(), choice.claims.end(),
                    [](FdbClaim const& a, FdbClaim const& b) { return a.priority > b.priority; });
   // The agent's own rule has the last word on who is first.
   if (auto const best = inputs.best(addr); best.input) {
      auto const at = std::find_if(choice.claims.begin(), choice.claims.end(), [&](FdbClaim const& claim) {
         return claim.input == best.input->name().str();
      });
      std::rotate(choice.claims.begin(), at, at + 1);
   }
   return choice;
}

std::string entryText(FdbEntry const& entry) {
   std::string const ports = joined(fdbPortNames(entry));
   if (entry.isGroup)
      return entry.ports.empty() ? "group without members" : "group of " + ports;
   switch (entry.entryType) {
   case EntryType::staticMac:
      return "static host on " + ports;
   case EntryType::dropMac:
      return "dropped host";
   default:
      return "host of type " + entryTypeName(entry.entryType) + " on " + ports;
   }
}

std::string entryKind(FdbEntry const& entry) {
   if (entry.isGroup)
      return "group";
   switch (entry.entryType) {
   case EntryType::staticMac:
      return "forward";
   case EntryType::dropMac:
      return "drop";
   default:
      return "type " + entryTypeName(entry.entryType);
   }
}

std::string entryTypeName(EntryType type) {
   switch (type) {
   case EntryType::staticMac:
      return "staticMac";
   case EntryType::dropMac:
      return "dropMac";
   case EntryType::learnedMac:
      return "learnedMac";
   case EntryType::learnedRemoteMac:
      return "learnedRemoteMac";
   }
   return std::to_string(static_cast<unsigned>(type));
}

} // namespace Vornctl
