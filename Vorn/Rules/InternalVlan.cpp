#include "Vorn/Rules/InternalVlan.h"

namespace Vorn {

bool isShutDown(Interface::EthIntfConfig const& config) {
   return config.enabledStateLocal() == Interface::EnabledState::enabledStateShutdown;
}

bool hasRoutedForwardingModel(Interface::EthIntfStatus const& status) {
   return status.forwardingModel() == Interface::IntfForwardingModel::intfForwardingModelRouted;
}

InternalVlanObstacle internalVlanObstacle(Interface::EthIntfConfig const* config,
                                          Interface::EthIntfStatus const* status) {
   if (!config)
      return InternalVlanObstacle::notConfigured;
   if (isShutDown(*config))
      return InternalVlanObstacle::shutDown;
   if (!status)
      return InternalVlanObstacle::noStatus;
   return hasRoutedForwardingModel(*status) ? InternalVlanObstacle::none : InternalVlanObstacle::notRouted;
}

} // namespace Vorn
