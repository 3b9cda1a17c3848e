// Mirrors the configuration of one subinterface to the copy that SubIntfSm follows. VLAN id and encapsulation are
// copied together, so that a change of both is never seen half done. It exists from the time the interface is taken
// on until it is removed, or one of its three records is replaced. Owned by SubIntfConfigCodef.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusLocal.h"

namespace Vorn {

// The three records of a subinterface, which have to exist all for it to be taken on.
struct SubIntfRecords {
   Kem::Ptr<Interface::SubIntfConfig const> config;
   Kem::Ptr<Interface::SubIntfStatus const> status;
   Kem::Ptr<Interface::SubIntfStatusLocal const> statusLocal;

   bool areComplete() const { return config && status && statusLocal; }
   friend bool operator==(SubIntfRecords const&, SubIntfRecords const&) = default;
};

class SubIntfConfigEntrySm final : public Kem::StateMachine {
  public:
   SubIntfConfigEntrySm(SubIntfRecords in, Kem::Ptr<Interface::SubIntfConfig> cfgOut);
   // Makes the copy; the second call does nothing.
   void handleInitialized() override;

   Sulvi::IntfId intfId() const { return cfgOut_->intfId(); }
   SubIntfRecords const& records() const { return in_; }
   Kem::Ptr<Interface::SubIntfConfig const> const& cfgIn() const { return in_.config; }
   Kem::Ptr<Interface::SubIntfConfig> const& cfgOut() const { return cfgOut_; }

  private:
   struct KemCfgIn final : Interface::SubIntfConfig::NotifieeConst {
      explicit KemCfgIn(SubIntfConfigEntrySm& s) : NotifieeConst(this), sm(s) {}
      void onEnabledStateLocal() override { sm.handleEnabled(); }
      void onEnabled() override { sm.handleEnabled(); }
      void onEncapType() override { sm.handleEncap(); }
      void onVlanId() override { sm.handleEncap(); }
      void onMtu() override { sm.handleMtu(); }
      void onAddr() override { sm.handleMacAddr(); }
      SubIntfConfigEntrySm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemCfgIn_); }
   void handleEnabled();
   void handleEncap();
   void handleMtu();
   void handleMacAddr();

   SubIntfRecords const in_;
   Kem::Ptr<Interface::SubIntfConfig> const cfgOut_;
   KemCfgIn kemCfgIn_{*this};
};

} // namespace Vorn
