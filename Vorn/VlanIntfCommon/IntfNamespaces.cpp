#include "Vorn/VlanIntfCommon/IntfNamespaces.h"

namespace Vorn {

IntfNamespaces::IntfNamespaces(Kem::Ptr<Interface::AllIntfNamespaceConfigDir const> dir,
                               Handler handleNetNsName)
    : handleNetNsName_(std::move(handleNetNsName)) {
   kemAllIntfNamespaceConfigDir_.notifierIs(std::move(dir));
}

void IntfNamespaces::handleInitialized() {
   initializedIs(true);
   if (auto const& dir = kemAllIntfNamespaceConfigDir_.notifier())
      for (auto const& [intfId, config] : dir->intfNamespaceConfig())
         handleIntfNamespaceConfig(intfId);
}

Sulvi::NamespaceName IntfNamespaces::netNsName(Sulvi::IntfId intfId) const {
   auto const& dir = kemAllIntfNamespaceConfigDir_.notifier();
   auto const config = dir ? dir->intfNamespaceConfig(intfId) : nullptr;
   return config && !config->netNsName().isDefault() ? config->netNsName() : Sulvi::DEFAULT_NS;
}

void IntfNamespaces::handleIntfNamespaceConfig(Sulvi::IntfId intfId) {
   if (!isReady())
      return;
   auto const config = kemAllIntfNamespaceConfigDir_.notifier()->intfNamespaceConfig(intfId);
   if (config) {
      auto const reactor =
          *intfNamespaceConfig_
               .findOrInsert(intfId, [&] { return Kem::makePtr<KemIntfNamespaceConfig>(*this); })
               .first;
      reactor->notifierIs(config);
   } else {
      intfNamespaceConfig_.erase(intfId);
   }
   handleNetNsName_(intfId);
}

} // namespace Vorn
