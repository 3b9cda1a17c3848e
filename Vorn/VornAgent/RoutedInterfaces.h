// The agent's part in routed interfaces: makes the state machines of VLAN interfaces and of subinterfaces on the
// mounted records, in two steps of the agent's start, and holds them until the process ends.
//
// They exist on both supervisors. In standby they make the devices, so that a switchover finds them, and write
// only what each supervisor has for itself.
#pragma once

#include "Vorn/SubIntfSm/SubIntfSm.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"

namespace Ordel {
class EntityManager;
}

namespace Vorn {

class Agent;

class RoutedInterfaces final : public VlanIntfAgent {
  public:
   // Problems of devices go into the agent's status, as far as it has one.
   explicit RoutedInterfaces(Agent& agent);

   void makeVlanIntfSm();
   void makeSubIntfSm();
   // The supervisor is active from now on.
   void handleActive();

   // Null before it is made.
   Kem::Ptr<VlanIntfSm> const& vlanIntfSm() const { return vlanIntfSm_; }
   Kem::Ptr<SubIntfSm> const& subIntfSm() const { return subIntfSm_; }

   // --- What the state machines ask for.
   AttrLogCheck* roomToWrite() override;
   Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const override;

  private:
   template <class T>
   Kem::Ptr<T> entityOrEmpty(std::string const& path) const;
   VlanIntfInputs common() const;

   Agent& agent_;
   Ordel::EntityManager& em_;
   Kem::Ptr<DeviceProblems> const problems_;
   Kem::Ptr<VlanIntfSm> vlanIntfSm_;
   Kem::Ptr<SubIntfSm> subIntfSm_;
};

} // namespace Vorn
