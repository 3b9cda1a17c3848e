#include "UplinkFailureDetection/UplinkFailureDetectionSm.h"

#include "Kem/Trace.h"
#include "records/UplinkFailureDetection/GroupStatus.h"

#include <algorithm>

namespace UplinkFailureDetection {

namespace {
Kem::TraceFacility theTrace("UplinkFailure");
}

struct UplinkFailureDetectionSm::Group {
   explicit Group(UplinkFailureDetectionSm& s) : kemGroupConfig(s) {}

   struct KemGroupConfig final : GroupConfig::NotifieeConst {
      explicit KemGroupConfig(UplinkFailureDetectionSm& s) : NotifieeConst(this), sm(s) {}
      void onUplink() override { sm.evaluateSoon(); }
      void onDownlink() override { sm.evaluateSoon(); }
      UplinkFailureDetectionSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) { visit(kemGroupConfig); }
   Kem::Ptr<GroupConfig const> config() const { return kemGroupConfig.notifier(); } // never null

   KemGroupConfig kemGroupConfig;
   bool isFailed = false;
   Kem::Seconds upSince = Kem::never; // since the failure: an uplink has been up without a break
};

UplinkFailureDetectionSm::UplinkFailureDetectionSm(
    Kem::Ptr<Config const> config, Kem::Ptr<Status> status, Kem::Ptr<Errdisable::CauseStatus> causeStatus,
    Kem::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir)
    : config_(std::move(config)), status_(std::move(status)), causeStatus_(std::move(causeStatus)),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)) {
   kemConfig_.notifierIs(config_);
   kemEthIntfStatusDir_.notifierIs(ethIntfStatusDir_);
   handleInitialized();
}

UplinkFailureDetectionSm::~UplinkFailureDetectionSm() = default;

void UplinkFailureDetectionSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(kemConfig_, kemEthIntfStatusDir_, kemTimer_, groups_, uplinks_);
}

void UplinkFailureDetectionSm::handleInitialized() {
   // What an earlier run disabled is ours to release.
   if (causeStatus_)
      for (auto const& [intfId, time] : causeStatus_->intfStatus())
         disabled_.findOrInsert(intfId, [] { return true; });
   evaluate();
}

void UplinkFailureDetectionSm::evaluate() {
   followGroups();
   followUplinks();
   Kem::Seconds next = Kem::never;
   for (auto const& [name, group] : groups_)
      next = std::min(next, evaluateGroup(name, *group));
   // After all groups: a port may be a downlink of one that has failed and of one that hasn't.
   applyDownlinks();
   kemTimer_.timeMinIs(next);
}

void UplinkFailureDetectionSm::followGroups() {
   std::erase_if(groups_, [&](auto const& item) { return !config_ || !config_->group(item.first); });
   if (status_)
      for (auto const& [name, groupStatus] : status_->group())
         if (!config_ || !config_->group(name))
            status_->groupDel(name);
   if (!config_)
      return;
   for (auto const& [name, groupConfig] : config_->group()) {
      auto& group = groups_[name];
      if (!group) {
         group = std::make_unique<Group>(*this);
         auto const left = status_ ? status_->group(name) : nullptr;
         group->isFailed = left && left->failed();
      }
      group->kemGroupConfig.notifierIs(groupConfig);
   }
}

void UplinkFailureDetectionSm::followUplinks() {
   if (!ethIntfStatusDir_)
      return;
   IntfIds wanted;
   for (auto const& [name, group] : groups_)
      group->config()->uplink().forEach([&](Sulvi::IntfId intfId, bool isUplink) {
         if (isUplink)
            wanted.findOrInsert(intfId, [] { return true; });
      });
   std::erase_if(uplinks_, [&](auto const& item) {
      return !wanted.find(item.first) || !ethIntfStatusDir_->intfStatus(item.first);
   });
   wanted.forEach([&](Sulvi::IntfId intfId, bool) {
      auto const intfStatus = ethIntfStatusDir_->intfStatus(intfId);
      if (!intfStatus)
         return;
      auto& uplink = uplinks_[intfId];
      if (!uplink)
         uplink = std::make_unique<KemUplink>(*this);
      uplink->notifierIs(intfStatus);
   });
}

bool UplinkFailureDetectionSm::isUp(Sulvi::IntfId uplink) const {
   auto const at = uplinks_.find(uplink);
   return at != uplinks_.end() &&
          at->second->notifier()->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

Kem::Seconds UplinkFailureDetectionSm::evaluateGroup(Kem::Name const& name, Group& group) {
   uint32_t uplinks = 0;
   uint32_t uplinksUp = 0;
   group.config()->uplink().forEach([&](Sulvi::IntfId intfId, bool isUplink) {
      uplinks += isUplink;
      uplinksUp += isUplink && isUp(intfId);
   });

   bool const wasFailed = group.isFailed;
   Kem::Seconds next = Kem::never;
   if (uplinks == 0 || !ethIntfStatusDir_) {
      group.isFailed = false;
   } else if (uplinksUp == 0) {
      group.isFailed = true;
      group.upSince = Kem::never;
   } else if (group.isFailed) {
      group.upSince = std::min(group.upSince, Kem::now());
      Kem::Seconds const delay = config_->recoveryDelay() > 0 ? config_->recoveryDelay() : 0;
      next = group.upSince + delay;
      if (next <= Kem::now()) {
         group.isFailed = false;
         next = Kem::never;
      }
   }

   if (group.isFailed != wasFailed)
      KEM_TRACE(theTrace, 3, "group " << name << (group.isFailed ? " has failed" : " works again"));
   if (status_) {
      auto const groupStatus = status_->groupIs(name);
      groupStatus->uplinksUpIs(uplinksUp);
      groupStatus->failedIs(group.isFailed);
      if (group.isFailed && !wasFailed)
         groupStatus->failuresInc();
   }
   return next;
}

void UplinkFailureDetectionSm::applyDownlinks() {
   IntfIds wanted;
   for (auto const& item : groups_) {
      Group const& group = *item.second;
      if (!group.isFailed)
         continue;
      group.config()->downlink().forEach([&](Sulvi::IntfId intfId, bool isDownlink) {
         if (isDownlink && !group.config()->uplink(intfId))
            wanted.findOrInsert(intfId, [] { return true; });
      });
   }

   if (causeStatus_) {
      disabled_.forEach([&](Sulvi::IntfId intfId, bool) {
         if (!wanted.find(intfId))
            causeStatus_->intfStatusDel(intfId);
      });
      wanted.forEach([&](Sulvi::IntfId intfId, bool) {
         if (!disabled_.find(intfId))
            causeStatus_->intfStatusIs(intfId, Kem::now());
      });
   }
   disabled_ = std::move(wanted);
}

Kem::Ptr<UplinkFailureDetectionSm>
Root::uplinkFailureDetectionSmIs(Kem::Ptr<Config const> const& config, Kem::Ptr<Status> const& status,
                                 Kem::Ptr<Errdisable::CauseStatus> const& causeStatus,
                                 Kem::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir) {
   if (!sm_)
      sm_ = Kem::makePtr<UplinkFailureDetectionSm>(config, status, causeStatus, ethIntfStatusDir);
   return sm_;
}

} // namespace UplinkFailureDetection
