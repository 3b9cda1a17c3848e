#include "Show.h"

#include "IntfDevice.h"
#include "Table.h"
#include "Words.h"

#include "records/Interface/IntfNamespaceConfig.h"

#include <map>
#include <set>

namespace Vornctl {

namespace {

struct NamespaceUse {
   std::set<Sulvi::IntfId> in;     // whose device is in it, as the records say
   std::set<Sulvi::IntfId> wanted; // configured into it, and not in it
};

// By name; "" is the default one.
std::map<std::string, NamespaceUse> namespaceUses(SwitchState const& state, KernelView& kernel) {
   auto const key = [](Sulvi::NamespaceName const& netNs) {
      return netNs.isDefault() ? std::string() : netNs.stringValue().str();
   };
   std::map<std::string, NamespaceUse> uses;
   uses[""];
   for (Sulvi::IntfId const each : knownIntfs(state)) {
      RoutedIntf const intf = routedIntf(state, each);
      if (!intf.hasAgentDevice())
         continue;
      // A record without a name may be of a device that was found in the default one, or of none.
      bool const isPlaced = intf.local && (!intf.local->netNsName().empty() || deviceOf(kernel, intf));
      if (isPlaced)
         uses[key(intf.netNs)].in.insert(each);
      if (intf.config && (!isPlaced || key(intf.netNs) != key(intf.wantedNetNs)))
         uses[key(intf.wantedNetNs)].wanted.insert(each);
   }
   // Of interfaces that don't exist, too.
   for (auto const& [intfId, wanted] : state.intfNamespace->intfNamespaceConfig()) {
      NamespaceUse& use = uses[key(wanted->netNsName())];
      if (use.in.count(intfId) == 0)
         use.wanted.insert(intfId);
   }
   return uses;
}

std::string existenceText(KernelNamespace const& netNs) {
   if (!netNs.exists)
      return "doesn't exist";
   return netNs.problem.empty() ? "exists" : "exists, unreadable";
}

Json idsJson(std::set<Sulvi::IntfId> const& ids) {
   Json names = Json::array();
   for (Sulvi::IntfId const id : ids)
      names.push_back(id.stringValue().str());
   return names;
}

} // namespace

std::string showNamespace(SwitchState const& state, Format const& format) {
   KernelView kernel(state.agentProcess);
   auto const uses = namespaceUses(state, kernel);
   Table table({{"Namespace"}, {"Status"}, {"Devices"}, {"Interfaces"}});
   Json all = Json::object();
   std::string remarks;
   for (auto const& [name, use] : uses) {
      auto const& netNs = kernel.at(Sulvi::NamespaceName(name));
      std::string const shown = netNsText(Sulvi::NamespaceName(name));
      auto list = portList({use.in.begin(), use.in.end()});
      for (std::string const& wanted : portList({use.wanted.begin(), use.wanted.end()}))
         list.push_back(wanted + " (not in it yet)");
      table.add({shown, existenceText(netNs),
                 netNs.problem.empty() ? std::to_string(netNs.deviceByName.size()) : "-"},
                list);
      if (netNs.exists && !netNs.problem.empty())
         remarks += paragraph(Kem::printable(shown + ": " + netNs.problem + '.'), 0, format.width);
      all[shown] = {{"exists", netNs.exists},
                    {"unreadable", netNs.exists && !netNs.problem.empty() ? Json(netNs.problem) : Json()},
                    {"devices", netNs.problem.empty() ? Json(netNs.deviceByName.size()) : Json()},
                    {"interfaces", idsJson(use.in)},
                    {"configuredInterfaces", idsJson(use.wanted)}};
   }
   if (format.wantsJson)
      return jsonText({{"namespaces", std::move(all)}, {"agentPid", agentPidJson(state)}});
   return table.text(format.width) + (remarks.empty() ? "" : '\n' + remarks) +
          remarksText(state, kernel, {}, format.width);
}

} // namespace Vornctl
