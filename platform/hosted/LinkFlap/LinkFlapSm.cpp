#include "LinkFlap/LinkFlapSm.h"

#include "Kem/Trace.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace LinkFlap {

namespace {

Kem::TraceFacility theTrace("LinkFlap");

// Points in time that are remembered of one port. A port that flaps more often within the interval, and that
// may, gives up exactness for memory.
constexpr size_t maxMarks = 1024;

} // namespace

// One port: what of its link was counted, and when.
class LinkFlapSm::PortSm {
  public:
   PortSm(LinkFlapSm& sm, Kem::Ptr<Interface::EthPhyIntfStatus const> status)
       : sm_(sm), intfId_(status->intfId()), status_(std::move(status)),
         changes_(status_->linkStatusChanges()), lastLink_(status_->linkStatus()) {
      kemIntfStatus_.notifierIs(status_);
      isComingBack_ = !isWatched(config().ptr());
   }
   Kem::Ptr<Interface::EthPhyIntfStatus const> const& status() const { return status_; }
   void forEachPart(Kem::PartVisitor const& visit) { visit(kemIntfStatus_); }

  private:
   struct KemIntfStatus final : Interface::EthPhyIntfStatus::NotifieeConst {
      explicit KemIntfStatus(PortSm& p) : NotifieeConst(this), port(p) {}
      void onLinkStatus() override { port.handleLink(); }
      void onLinkStatusChanges() override { port.handleLink(); }
      PortSm& port;
   };
   struct Mark {
      Kem::Seconds time;
      uint64_t count;
   };

   void handleLink();
   uint64_t newChanges();
   uint64_t changesWithin(Kem::Seconds interval);
   Kem::Ptr<Interface::EthPhyIntfConfig const> config() const {
      return sm_.ethPhyIntfConfigDir_ ? sm_.ethPhyIntfConfigDir_->intfConfig(intfId_) : nullptr;
   }
   bool isWatched(Interface::EthPhyIntfConfig const* config) const;

   LinkFlapSm& sm_;
   Sulvi::IntfId const intfId_;
   Kem::Ptr<Interface::EthPhyIntfStatus const> const status_;

   // The two sources, both counted from the same point, and how far they were looked at.
   uint32_t changes_; // linkStatusChanges as it was
   Interface::LinkStatus lastLink_;
   uint64_t byCounter_ = 0;
   uint64_t byState_ = 0;
   uint64_t seen_ = 0; // the greater of the two as it was

   bool isComingBack_ = false; // the next link up is no flap
   std::vector<Mark> marks_;   // in order of time
   KemIntfStatus kemIntfStatus_{*this};
};

// Changes of the link since it was last called. The record's two attributes may come in different turns.
uint64_t LinkFlapSm::PortSm::newChanges() {
   using Interface::LinkStatus;
   uint32_t const changes = status_->linkStatusChanges();
   LinkStatus const link = status_->linkStatus();
   bool const isFirstKnown = lastLink_ == LinkStatus::linkUnknown && link != LinkStatus::linkUnknown;
   if (changes >= changes_ && !isFirstKnown) {
      byCounter_ += changes - changes_;
      if (link != lastLink_ && link != LinkStatus::linkUnknown)
         ++byState_;
   }
   changes_ = changes;
   if (link != LinkStatus::linkUnknown)
      lastLink_ = link;
   uint64_t const sum = std::max(byCounter_, byState_);
   return sum - std::exchange(seen_, sum);
}

uint64_t LinkFlapSm::PortSm::changesWithin(Kem::Seconds interval) {
   Kem::Seconds const start = Kem::now() - interval;
   std::erase_if(marks_, [&](Mark const& mark) { return mark.time <= start; });
   uint64_t count = 0;
   for (auto const& mark : marks_)
      count += mark.count;
   return count;
}

bool LinkFlapSm::PortSm::isWatched(Interface::EthPhyIntfConfig const* config) const {
   return status_->active() && !sm_.isHeld(intfId_) && !sm_.isDetectionOff() &&
          (!config || (config->enabled() && config->linkFlapDetection()));
}

void LinkFlapSm::PortSm::handleLink() {
   uint64_t changes = newChanges();
   auto const config = this->config();
   Limits const limits = sm_.limits(config.ptr());
   if (!isWatched(config.ptr()) || limits.isOff()) {
      marks_.clear();
      isComingBack_ = status_->linkStatus() != Interface::LinkStatus::linkUp;
      return;
   }
   if (changes > 0 && isComingBack_ && status_->linkStatus() == Interface::LinkStatus::linkUp) {
      isComingBack_ = false;
      --changes;
   }
   if (changes == 0)
      return;
   if (marks_.empty() || marks_.back().time != Kem::now())
      marks_.push_back({Kem::now(), 0});
   marks_.back().count += changes;
   if (marks_.size() > maxMarks) {
      marks_[1].count += marks_[0].count;
      marks_.erase(marks_.begin());
   }

   uint64_t const count = changesWithin(limits.interval);
   KEM_TRACE(theTrace, 5, intfId_ << ": " << count << " link changes within " << limits.interval << " s");
   if (count >= limits.maxFlaps) {
      marks_.clear();
      isComingBack_ = true;
      sm_.hold(intfId_);
   }
}

LinkFlapSm::LinkFlapSm(Kem::Ptr<Kem::ActivityConfig> const&,
                       Kem::Ptr<Interface::AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir,
                       Kem::Ptr<Interface::AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir,
                       Kem::Ptr<Errdisable::Config const> errdisableConfig,
                       Kem::Ptr<Config const> linkFlapConfig, Kem::Ptr<Errdisable::CauseStatus> causeStatus,
                       Kem::Name causeName)
    : ethPhyIntfConfigDir_(std::move(ethPhyIntfConfigDir)),
      ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), errdisableConfig_(std::move(errdisableConfig)),
      linkFlapConfig_(std::move(linkFlapConfig)), causeStatus_(std::move(causeStatus)),
      causeName_(std::move(causeName)) {
   kemEthPhyIntfStatusDir_.notifierIs(ethPhyIntfStatusDir_);
   handleInitialized();
}

LinkFlapSm::~LinkFlapSm() = default;

void LinkFlapSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(kemEthPhyIntfStatusDir_, ports_);
}

void LinkFlapSm::handleInitialized() {
   if (ethPhyIntfStatusDir_)
      for (auto const& [intfId, status] : ethPhyIntfStatusDir_->intfStatus())
         handleIntfStatus(intfId);
}

void LinkFlapSm::handleIntfStatus(Sulvi::IntfId intfId) {
   auto const status = ethPhyIntfStatusDir_->intfStatus(intfId);
   auto& port = ports_[intfId];
   if (!status)
      ports_.erase(intfId);
   else if (!port || port->status() != status)
      port = std::make_unique<PortSm>(*this, status);
}

LinkFlapSm::Limits LinkFlapSm::limits(Interface::EthPhyIntfConfig const* config) const {
   Limits limits =
       linkFlapConfig_ ? Limits{linkFlapConfig_->maxFlaps(), linkFlapConfig_->flapInterval()} : Limits{0, 0};
   if (config && config->linkFlapMaxFlaps() > 0)
      limits.maxFlaps = config->linkFlapMaxFlaps();
   if (config && config->linkFlapInterval() > 0)
      limits.interval = config->linkFlapInterval();
   return limits;
}

bool LinkFlapSm::isDetectionOff() const {
   bool const* const enabled =
       errdisableConfig_ ? errdisableConfig_->detectionEnabled().find(causeName_) : nullptr;
   return enabled && !*enabled;
}

void LinkFlapSm::hold(Sulvi::IntfId intfId) {
   KEM_TRACE(theTrace, 3, "link of " << intfId << " flaps");
   if (causeStatus_)
      causeStatus_->intfStatusIs(intfId, Kem::now());
}

Kem::Ptr<LinkFlapSm>
Root::linkFlapSmIs(Kem::Ptr<Kem::ActivityConfig> const& activity,
                   Kem::Ptr<Interface::AllEthPhyIntfConfigDir const> const& ethPhyIntfConfigDir,
                   Kem::Ptr<Interface::AllEthPhyIntfStatusDir const> const& ethPhyIntfStatusDir,
                   Kem::Ptr<Errdisable::Config const> const& errdisableConfig,
                   Kem::Ptr<Config const> const& linkFlapConfig,
                   Kem::Ptr<Errdisable::CauseStatus> const& causeStatus, Kem::Name const& causeName) {
   if (!linkFlapSm_)
      linkFlapSm_ = Kem::makePtr<LinkFlapSm>(activity, ethPhyIntfConfigDir, ethPhyIntfStatusDir,
                                             errdisableConfig, linkFlapConfig, causeStatus, causeName);
   return linkFlapSm_;
}

} // namespace LinkFlap
