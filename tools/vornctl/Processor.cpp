#include "Processor.h"

#include "PrivateVlan.h"
#include "Words.h"

namespace Vornctl {

namespace {

constexpr char processorRule[] = "VLAN interface";

void explainSecondary(Explanation& out, Bridging::Config const& config, Bridging::VlanConfig const& vlan,
                      Bridging::VlanId primaryId) {
   std::string const primary = std::to_string(primaryId.value());
   bool const isMember = hasProcessor(vlan);
   auto const record = config.vlanConfig(primaryId);
   if (isMember) {
      out.decide(true, processorRule, "the interface of its primary VLAN " + primary + " serves it");
   } else if (vlan.adminState() != Bridging::VlanAdminState::active) {
      out.decide(false, processorRule, "the VLAN is " + statusText(vlan.adminState()));
      out.advise("have the VLAN made active by " + vlan.configSource().str() + ", which it comes from");
   } else if (record && !hasProcessor(*record)) {
      out.decide(false, processorRule, "its primary VLAN " + primary + " has no active VLAN interface");
      out.advise("configure and enable interface/config/eth/vlan.intfConfig[Vlan" + primary +
                 "], and see that VLAN " + primary + " is active");
   } else {
      out.decide(false, processorRule, "the interface of its primary VLAN " + primary + " doesn't serve it");
      out.advise("set bridging/input/config/cli.sviMapping[" + primary + "].secondaryVlan[" +
                 std::to_string(vlan.vlanId().value()) + "] to true, or defaultSviMapping there");
   }
}

} // namespace

bool hasProcessor(Bridging::VlanConfig const& vlan) {
   return vlan.intf().find(Sulvi::IntfId("Cpu")) != nullptr;
}

void explainProcessor(Explanation& out, Bridging::Config const& config, Bridging::VlanConfig const& vlan) {
   if (auto const primary = primaryOf(config, vlan); primary != 0)
      return explainSecondary(out, config, vlan, Bridging::VlanId(primary));
   bool const isMember = hasProcessor(vlan);
   out.decide(isMember, processorRule,
              isMember ? "the processor takes part in the VLAN"
                       : "no active VLAN interface lets the processor take part");
   if (!isMember)
      out.advise("configure and enable interface/config/eth/vlan.intfConfig[Vlan" +
                 std::to_string(vlan.vlanId().value()) + "], and see that the VLAN is active");
}

} // namespace Vornctl
