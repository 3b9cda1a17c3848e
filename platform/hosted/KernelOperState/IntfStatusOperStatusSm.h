// Mirrors the operational state of interfaces down to their kernel devices.
//
//    intfStatus       operStatus, deviceName ─┐
//                                             ├──► doSetOperState(deviceName, operStatus, netNsName)
//    intfStatusLocal  netNsName ──────────────┘
//
// An interface takes part while it is in both directories and has a device. The kernel gets its state when
// something of the three changes, and when the namespace is made; a state that it has taken is not sent
// again. One that it refused is sent again with the next of these events, and otherwise firstRetry later, then
// after twice the time, lastRetry at most. An interface that leaves a directory is left in the state that its
// device has.
//
// The kernel changes the state of a device when its carrier changes or it is switched on. This machine
// isn't notified of that; whoever switches devices calls doSyncIntfStatus, which always sends the state to
// the kernel.
//
// The agent owns it, through Root. It writes no record.
#pragma once

#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/StateMachine.h"
#include "KernelOperState/KernelOperStateManager.h"
#include "records/Interface/IntfStatus.h"
#include "records/Interface/IntfStatusLocal.h"
#include "records/KernelNetNsInfo/NetNs.h"
#include "records/KernelNetNsInfo/Root.h"
#include "records/KernelOperState/IntfStatusDir.h"
#include "records/KernelOperState/IntfStatusLocalDir.h"

#include <optional>

namespace Kem {
class ActivityConfig;
}

namespace KernelOperState {

class IntfStatusOperStatusSm final : public Kem::StateMachine {
  public:
   static constexpr Kem::Seconds firstRetry = 1.0;
   static constexpr Kem::Seconds lastRetry = 64.0;

   // Its reactors run in the one loop of the process, which is the activity. `netNsCollection` may be null;
   // the directories may be null, and then no interface takes part.
   IntfStatusOperStatusSm(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                          Kem::Ptr<IntfStatusDir const> intfStatusDir,
                          Kem::Ptr<IntfStatusLocalDir const> intfStatusLocalDir,
                          Kem::Ptr<KernelOperStateManager> kosm,
                          Kem::Ptr<KernelNetNsInfo::Root const> netNsCollection);

   // Sends the state of that interface to the kernel now, whatever it was before. 0 when the kernel took it, or
   // the interface doesn't take part; else an errno. `fresh` is what the caller has told the kernel since the device
   // was made or switched: a state that means the same to the kernel isn't sent again.
   int doSyncIntfStatus(Sulvi::IntfId intfId, std::optional<Interface::IntfOperStatus> fresh = {});

  private:
   // --- Reactions.
   struct KemIntfStatusDir final : IntfStatusDir::NotifieeConst {
      explicit KemIntfStatusDir(IntfStatusOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      IntfStatusOperStatusSm& sm;
   };
   struct KemIntfStatus final : Interface::IntfStatus::NotifieeConst {
      explicit KemIntfStatus(IntfStatusOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleChange(notifier()->intfId()); }
      void onOperStatus() override { handleInitialized(); }
      void onDeviceName() override { handleInitialized(); }
      IntfStatusOperStatusSm& sm;
   };
   struct KemIntfStatusLocalDir final : IntfStatusLocalDir::NotifieeConst {
      explicit KemIntfStatusLocalDir(IntfStatusOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatusLocal(Sulvi::IntfId intfId) override { sm.handleIntfStatusLocal(intfId); }
      IntfStatusOperStatusSm& sm;
   };
   struct KemIntfStatusLocal final : Interface::IntfStatusLocal::NotifieeConst {
      explicit KemIntfStatusLocal(IntfStatusOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleChange(notifier()->intfId()); }
      void onNetNsName() override { handleInitialized(); }
      IntfStatusOperStatusSm& sm;
   };
   struct KemNetNsCollection final : KernelNetNsInfo::Root::NotifieeConst {
      explicit KemNetNsCollection(IntfStatusOperStatusSm& s) : NotifieeConst(this), sm(s) {}
      void onNetNsByName(Sulvi::NamespaceName const& netNs) override { sm.handleNetNs(netNs); }
      IntfStatusOperStatusSm& sm;
   };
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(IntfStatusOperStatusSm& s) : NotifieeConst(Kem::ActivityFacility::clock()), sm(s) {}
      void onTime() override { sm.handleRetry(); }
      IntfStatusOperStatusSm& sm;
   };
   void handleRetry();
   void handleIntfStatus(Sulvi::IntfId intfId);
   void handleIntfStatusLocal(Sulvi::IntfId intfId);
   void handleNetNs(Sulvi::NamespaceName const& netNs);
   void handleChange(Sulvi::IntfId intfId);
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemClock_, kemIntfStatusDir_, kemIntfStatusLocalDir_, kemNetNsCollection_, kemIntfStatus_,
            kemIntfStatusLocal_);
   }

   // --- Helpers.
   struct Told {
      Kem::String8 deviceName;
      Sulvi::NamespaceName netNsName;
      Interface::IntfOperStatus operStatus = Interface::IntfOperStatus::intfOperUnknown;
      friend bool operator==(Told const&, Told const&) = default;
   };
   bool wanted(Sulvi::IntfId intfId, Told& told) const; // false: the interface doesn't take part
   int tell(Sulvi::IntfId intfId, Told const& told);    // 0 or an errno
   void isTold(Sulvi::IntfId intfId, Told const& told);

   Kem::Ptr<IntfStatusDir const> intfStatusDir_;
   Kem::Ptr<IntfStatusLocalDir const> intfStatusLocalDir_;
   Kem::Ptr<KernelOperStateManager> kosm_;
   Kem::Ptr<KernelNetNsInfo::Root const> netNsCollection_;
   Kem::ValueMap<Sulvi::IntfId, Told> told_;    // what the kernel took
   Kem::ValueMap<Sulvi::IntfId, bool> refused_; // what it refused; the value is always true
   Kem::Seconds retryPause_ = firstRetry;
   KemClock kemClock_{*this};
   Kem::HashMap<KemIntfStatus, Sulvi::IntfId> kemIntfStatus_;
   Kem::HashMap<KemIntfStatusLocal, Sulvi::IntfId> kemIntfStatusLocal_;
   KemIntfStatusDir kemIntfStatusDir_{*this};
   KemIntfStatusLocalDir kemIntfStatusLocalDir_{*this};
   KemNetNsCollection kemNetNsCollection_{*this};
};

} // namespace KernelOperState
