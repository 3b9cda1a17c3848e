// Holds what belongs to the mirror of operational states in the kernel: the two directories
// of interfaces that the state machines of interfaces fill, the namespaces of the system, and
// the machines that work on them.
//
// Each XIs() makes that part, or answers with the one that exists; what it is made of is looked at the first
// time only. The parts are made by the agent in the order of their declaration here. The agent owns the root,
// and the root its parts.
#pragma once

#include "Kem/StateMachine.h"
#include "KernelNetNsInfo/Manager.h"
#include "KernelOperState/IntfStatusOperStatusSm.h"

namespace KernelOperState {

class Root final : public Kem::StateMachine {
  public:
   // The name is for identification only.
   explicit Root(Kem::Name name) : name_(std::move(name)) {}
   Kem::Name const& name() const { return name_; }

   Kem::Ptr<IntfStatusDir> intfStatusDirIs(Kem::Name const& name);
   Kem::Ptr<IntfStatusLocalDir> intfStatusLocalDirIs(Kem::Name const& name);
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollectionIs(Kem::Name const& name);
   Kem::Ptr<KernelNetNsInfo::Manager> netNsManagerIs(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                                                     Kem::Ptr<KernelNetNsInfo::Root> const& netNsCollection);
   Kem::Ptr<KernelOperStateManager> kosmIs();
   Kem::Ptr<IntfStatusOperStatusSm>
   intfStatusOperStatusSmIs(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                            Kem::Ptr<IntfStatusDir const> const& intfStatusDir,
                            Kem::Ptr<IntfStatusLocalDir const> const& intfStatusLocalDir,
                            Kem::Ptr<KernelOperStateManager> const& kosm,
                            Kem::Ptr<KernelNetNsInfo::Root const> const& netNsCollection);
   // Puts another one in the place of kosmIs()'s own; for tests, before it is asked for.
   void kosmIs(Kem::Ptr<KernelOperStateManager> kosm) { kosm_ = std::move(kosm); }

   // Null while it hasn't been made.
   Kem::Ptr<IntfStatusDir> const& intfStatusDir() const { return intfStatusDir_; }
   Kem::Ptr<IntfStatusLocalDir> const& intfStatusLocalDir() const { return intfStatusLocalDir_; }
   Kem::Ptr<KernelNetNsInfo::Root> const& netNsCollection() const { return netNsCollection_; }
   Kem::Ptr<KernelNetNsInfo::Manager> const& netNsManager() const { return netNsManager_; }
   Kem::Ptr<KernelOperStateManager> const& kosm() const { return kosm_; }
   Kem::Ptr<IntfStatusOperStatusSm> const& intfStatusOperStatusSm() const { return intfStatusOperStatusSm_; }

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(netNsManager_, intfStatusOperStatusSm_); }

   Kem::Name const name_;
   Kem::Ptr<IntfStatusDir> intfStatusDir_;
   Kem::Ptr<IntfStatusLocalDir> intfStatusLocalDir_;
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollection_;
   Kem::Ptr<KernelNetNsInfo::Manager> netNsManager_;
   Kem::Ptr<KernelOperStateManager> kosm_;
   Kem::Ptr<IntfStatusOperStatusSm> intfStatusOperStatusSm_;
};

} // namespace KernelOperState
