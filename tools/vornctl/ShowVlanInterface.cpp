#include "Show.h"

#include "Failures.h"
#include "IntfDevice.h"
#include "Processor.h"
#include "Table.h"
#include "Words.h"

namespace Vornctl {

namespace {

std::string vlanIntfTable(SwitchState const& state, KernelView& kernel, std::vector<RoutedIntf> const& intfs,
                          size_t width) {
   Table table({{"VLAN"},
                {"Interface"},
                {"Source"},
                {"Enabled"},
                {"Autostate"},
                {"Forwarding"},
                {"Cpu"},
                {"Device"},
                {"State"},
                {"Reason"}});
   for (RoutedIntf const& intf : intfs) {
      auto const vlanId = intf.vlanId();
      auto const config = intf.vlanConfig();
      auto const vlan = vlanId ? state.config->vlanConfig(*vlanId) : nullptr;
      auto const* const device = deviceOf(kernel, intf);
      table.add({vlanId ? std::to_string(vlanId->value()) : "-", intf.intfId.shortName().str(),
                 config ? intf.source() : "-",
                 !config             ? "-"
                 : config->enabled() ? "yes"
                                     : "no",
                 !config               ? "-"
                 : config->autoState() ? "on"
                                       : "off",
                 vlanId ? counted(forwardingPorts(state, *vlanId).size(), "port") : "-",
                 vlan && hasProcessor(*vlan) ? "member" : "-",
                 device ? intf.deviceName() : absenceText(kernel, intf), stateText(intf)},
                {reasonText(intf)});
   }
   if (table.empty())
      return "There are no VLAN interfaces.\n";
   std::string text = table.text(width);
   if (!state.allVlanIntfAutoState->autoState())
      text += "\nAutostate is off for all VLAN interfaces.\n";
   return text + remarksText(state, kernel, intfs, width);
}

} // namespace

std::string showVlanInterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                              Format const& format) {
   KernelView kernel(state.agentProcess);
   std::vector<RoutedIntf> intfs;
   for (Sulvi::IntfId const each : knownIntfs(state))
      if (each.kind() == Sulvi::IntfKind::vlan && (!intfId || each == *intfId))
         intfs.push_back(routedIntf(state, each));
   if (intfId && intfs.empty())
      throw Absent(intfId->stringValue().str() + ": there is no such VLAN interface");
   return format.wantsJson ? intfsJsonText(state, kernel, "vlanInterfaces", intfs)
                           : vlanIntfTable(state, kernel, intfs, format.width);
}

} // namespace Vornctl
