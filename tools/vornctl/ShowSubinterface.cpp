#include "Show.h"

#include "Failures.h"
#include "IntfDevice.h"
#include "Table.h"
#include "Words.h"

#include "records/Interface/Hardware/SubIntfStatus.h"

namespace Vornctl {

namespace {

// What is asked of the hardware, and what it says.
std::string hardwareText(RoutedIntf const& intf) {
   auto const status = intf.subStatus();
   bool const isDone = intf.hwStatus && intf.hwStatus->hardwareSuccess();
   if (!status || !status->programInHw())
      return isDone ? "yes, not asked for" : "not asked for";
   return isDone ? "yes" : intf.hwStatus ? "no" : "no answer";
}

std::string subIntfTable(SwitchState const& state, KernelView& kernel, std::vector<RoutedIntf> const& intfs,
                         size_t width) {
   Table table({{"Interface"},
                {"Parent"},
                {"VLAN"},
                {"Encapsulation"},
                {"In hardware"},
                {"Device"},
                {"State"},
                {"Reason"}});
   for (RoutedIntf const& intf : intfs) {
      auto const config = intf.subConfig();
      auto const* const device = deviceOf(kernel, intf);
      std::vector<std::string> reason{reasonText(intf)};
      auto const rivals = rivalsOf(state, intf);
      if (!rivals.empty())
         reason[0] += " (" + joined(portList(rivals)) + ")";
      table.add({intf.intfId.shortName().str(), intf.parent().shortName().str(),
                 config && config->vlanId() != 0 ? std::to_string(config->vlanId()) : "-",
                 config ? encapsulationText(config->encapType()) : "-", hardwareText(intf),
                 device ? intf.deviceName() : absenceText(kernel, intf), stateText(intf)},
                reason);
   }
   return table.empty() ? "There are no subinterfaces.\n"
                        : table.text(width) + remarksText(state, kernel, intfs, width);
}

} // namespace

std::string showSubinterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                             Format const& format) {
   KernelView kernel(state.agentProcess);
   std::vector<RoutedIntf> intfs;
   for (Sulvi::IntfId const each : knownIntfs(state)) {
      if (intfId && each != *intfId)
         continue;
      RoutedIntf intf = routedIntf(state, each);
      if (intf.isSubIntf())
         intfs.push_back(std::move(intf));
   }
   if (intfId && intfs.empty())
      throw Absent(intfId->stringValue().str() + ": there is no such subinterface");
   return format.wantsJson ? intfsJsonText(state, kernel, "subinterfaces", intfs)
                           : subIntfTable(state, kernel, intfs, format.width);
}

} // namespace Vornctl
