#include "Vorn/Rules/PortMode.h"

namespace Vorn {

NativeVlan configuredNativeVlan(Bridging::Input::SwitchIntfConfig const& record,
                                Bridging::SwitchportMode mode) {
   using Mode = Bridging::SwitchportMode;
   switch (mode) {
   case Mode::access_:
   case Mode::dot1qTunnel_:
      return {Bridging::VlanIdOrNone(record.accessVlan()), true};
   case Mode::trunk_:
      return {record.trunkNativeVlan(), true};
   case Mode::tap_:
      return {record.tapNativeVlan(), false};
   case Mode::tool_:
      return {1, false}; // whatever the record holds
   case Mode::routed_:
      break;
   }
   return {0, false};
}

} // namespace Vorn
