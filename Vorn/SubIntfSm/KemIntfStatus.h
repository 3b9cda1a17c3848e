// Follows the status of a port that has subinterfaces: each change that decides about these evaluates them again.
// Owned by SubIntfSm.
#pragma once

#include "records/Interface/IntfStatus.h"

namespace Vorn {

class SubIntfSm;

class KemIntfStatus final : public Interface::IntfStatus::NotifieeConst {
  public:
   explicit KemIntfStatus(SubIntfSm& sm) : NotifieeConst(this), sm_(sm) {}
   void handleInitialized() override; // of each record that it is bound to
   void onOperStatus() override { handleIntfOperStatus(); }
   void onForwardingModel() override { handleIntfForwardingModel(); }

  private:
   void handleIntfOperStatus();
   void handleIntfForwardingModel();

   SubIntfSm& sm_;
};

} // namespace Vorn
