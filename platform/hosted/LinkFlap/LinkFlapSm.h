// Disables ports whose link goes up and down too often: counts the link changes of each physical port in a
// sliding interval, and adds the port to the cause's status when there are too many.
//
//    counting ──maxFlaps changes within the interval──► held: listed in the cause's status
//       ▲                                                 │
//       └──── the cause's machinery takes the port out ───┘
//
// It only finds the fault; ErrdisableLib brings the port back, and logs both. It is moved by
// linkStatusChanges and linkStatus of the ports; settings are read at each change of a link. The greater of
// the two counts: the counter where its writer keeps it, else the changes of the state that are seen here.
//
// - No change is counted while the port is held or shut down, while it is not active, and while detection is
//   off (Errdisable::Config for the cause, or linkFlapDetection of the port). What it has done before is
//   forgotten then, and the link that comes up first afterwards is no flap.
// - The step by which a link's state first becomes known is the port coming into being, and a counter that
//   falls is a new start of its writer: neither counts.
// - A port's own maxFlaps and interval hold where they are above 0, else the global ones. Where these are not
//   above 0 either, nothing is counted.
// - A port that vanishes stays listed as it is: it is still faulty when it is plugged in again.
#pragma once

#include "Kem/Activity.h"
#include "Kem/StateMachine.h"
#include "Kem/String.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Errdisable/Config.h"
#include "records/Interface/AllEthPhyIntfConfigDir.h"
#include "records/Interface/AllEthPhyIntfStatusDir.h"
#include "records/Interface/EthPhyIntfConfig.h"
#include "records/Interface/EthPhyIntfStatus.h"
#include "records/LinkFlap/Config.h"

#include <memory>
#include <unordered_map>

namespace LinkFlap {

class LinkFlapSm final : public Kem::StateMachine {
  public:
   // Any record may be null, and is not watched then. Without `causeStatus` nothing is disabled.
   LinkFlapSm(Kem::Ptr<Kem::ActivityConfig> const& activity,
              Kem::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir,
              Kem::Ptr<Interface::AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir,
              Kem::Ptr<Errdisable::Config const> errdisableConfig, Kem::Ptr<Config const> linkFlapConfig,
              Kem::Ptr<Errdisable::CauseStatus> causeStatus, Kem::Name causeName);
   ~LinkFlapSm() override;

  private:
   class PortSm;

   // --- Reactions.
   struct KemEthPhyIntfStatusDir final : Interface::AllEthPhyIntfStatusDir::NotifieeConst {
      explicit KemEthPhyIntfStatusDir(LinkFlapSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      LinkFlapSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleInitialized() override;
   void handleIntfStatus(Sulvi::IntfId intfId);

   // --- What a port asks.
   struct Limits {
      uint32_t maxFlaps;
      Kem::Seconds interval;
      bool isOff() const { return maxFlaps == 0 || !(interval > 0); }
   };
   Limits limits(Interface::EthPhyIntfConfig const* config) const;
   bool isDetectionOff() const;
   bool isHeld(Sulvi::IntfId intfId) const { return causeStatus_ && causeStatus_->intfStatus(intfId); }
   void hold(Sulvi::IntfId intfId);

   Kem::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
   Kem::Ptr<Interface::AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir_;
   Kem::Ptr<Errdisable::Config const> errdisableConfig_;
   Kem::Ptr<Config const> linkFlapConfig_;
   Kem::Ptr<Errdisable::CauseStatus> causeStatus_;
   Kem::Name const causeName_;
   std::unordered_map<Sulvi::IntfId, std::unique_ptr<PortSm>> ports_;
   KemEthPhyIntfStatusDir kemEthPhyIntfStatusDir_{*this};
};

// The owner of the link flap machine.
class Root final : public Kem::StateMachine {
  public:
   explicit Root(Kem::Name name) : name_(std::move(name)) {}

   Kem::Name const& name() const { return name_; }
   Kem::Ptr<LinkFlapSm> const& linkFlapSm() const { return linkFlapSm_; } // null until it is made
   // Makes the machine, or returns the existing one. See its constructor.
   Kem::Ptr<LinkFlapSm>
   linkFlapSmIs(Kem::Ptr<Kem::ActivityConfig> const& activity,
                Kem::Ptr<Interface::AllEthPhyIntfConfigDir const> const& ethPhyIntfConfigDir,
                Kem::Ptr<Interface::AllEthPhyIntfStatusDir const> const& ethPhyIntfStatusDir,
                Kem::Ptr<Errdisable::Config const> const& errdisableConfig,
                Kem::Ptr<Config const> const& linkFlapConfig,
                Kem::Ptr<Errdisable::CauseStatus> const& causeStatus, Kem::Name const& causeName);

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(linkFlapSm_); }

   Kem::Name const name_;
   Kem::Ptr<LinkFlapSm> linkFlapSm_;
};

} // namespace LinkFlap
