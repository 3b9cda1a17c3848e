// Which network namespace each interface is configured into: follows Interface::AllIntfNamespaceConfigDir, and
// says when that changes for an interface.
#pragma once

#include "Kem/Collections.h"
#include "Kem/StateMachine.h"
#include "records/Interface/AllIntfNamespaceConfigDir.h"
#include "records/Interface/IntfNamespaceConfig.h"

#include <functional>

namespace Vorn {

class IntfNamespaces final : public Kem::StateMachine {
  public:
   using Handler = std::function<void(Sulvi::IntfId intfId)>;

   // `dir` may be null: then all are in the default namespace. `handleNetNsName` is called for an interface whose
   // namespace may be another one, from handleInitialized() on.
   IntfNamespaces(Kem::Ptr<Interface::AllIntfNamespaceConfigDir const> dir, Handler handleNetNsName);
   void handleInitialized() override;

   // DEFAULT_NS when nothing else is configured.
   Sulvi::NamespaceName netNsName(Sulvi::IntfId intfId) const;

  private:
   struct KemAllIntfNamespaceConfigDir final : Interface::AllIntfNamespaceConfigDir::NotifieeConst {
      explicit KemAllIntfNamespaceConfigDir(IntfNamespaces& s) : NotifieeConst(this), sm(s) {}
      void onIntfNamespaceConfig(Sulvi::IntfId intfId) override { sm.handleIntfNamespaceConfig(intfId); }
      IntfNamespaces& sm;
   };
   struct KemIntfNamespaceConfig final : Interface::IntfNamespaceConfig::NotifieeConst {
      explicit KemIntfNamespaceConfig(IntfNamespaces& s) : NotifieeConst(this), sm(s) {}
      void onNetNsName() override { sm.handleNetNsName_(notifier()->intfId()); }
      IntfNamespaces& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemAllIntfNamespaceConfigDir_, intfNamespaceConfig_);
   }
   void handleIntfNamespaceConfig(Sulvi::IntfId intfId);

   Handler const handleNetNsName_;
   Kem::HashMap<KemIntfNamespaceConfig, Sulvi::IntfId> intfNamespaceConfig_;
   KemAllIntfNamespaceConfigDir kemAllIntfNamespaceConfigDir_{*this};
};

} // namespace Vorn
