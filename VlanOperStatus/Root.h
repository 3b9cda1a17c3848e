// Owns the state machine of the VLAN interfaces' status. The agent owns it.
#pragma once

#include "VlanOperStatus/VlanOperStatusSm.h"

namespace VlanOperStatus {

class Root final : public Kem::StateMachine {
  public:
   // The name is for identification only.
   explicit Root(Kem::Name name) : name_(std::move(name)) {}
   Kem::Name const& name() const { return name_; }

   Kem::Ptr<VlanOperStatusSm> const& vlanOperStatusSm() const { return vlanOperStatusSm_; } // null until made
   // Makes the machine, and has it decide everything; or returns the existing one. One that has another input raises
   // a range exception that names the input.
   Kem::Ptr<VlanOperStatusSm> vlanOperStatusSmIs(VlanOperStatusInputs const& inputs);

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(vlanOperStatusSm_); }

   Kem::Name const name_;
   Kem::Ptr<VlanOperStatusSm> vlanOperStatusSm_;
};

} // namespace VlanOperStatus
