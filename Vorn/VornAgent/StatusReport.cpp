#include "Vorn/VornAgent/StatusReport.h"

#include "Kem/Activity.h"
#include "Kem/Time.h"
#include "Vorn/VornAgent/VornAgent.h"

#include <algorithm>
#include <unistd.h>

namespace Vorn {

StatusReport::StatusReport(Kem::Ptr<::Agent::Status> status, Agent& agent)
    : status_(std::move(status)), agent_(agent) {
   status_->pidIs(static_cast<uint32_t>(getpid()));
   handleTime();
   Kem::activityManager()->deliveryEndHookAdd(Kem::DeliveryEnd::report, deliveryEndHook());
}

StatusReport::~StatusReport() {
   Kem::activityManager()->deliveryEndHookDel(deliveryEndHook());
}

void StatusReport::handleTime() {
   reportStages();
   reportLog();
   activityAfterReport_ = activity();
}

void StatusReport::handleDeliveryEnd() {
   if (kemClock_.timeMin() == Kem::never && activity() != activityAfterReport_)
      kemClock_.timeMinIs(Kem::now() + interval);
}

// A sum of counts that only grow: when it differs, there is something to report.
uint64_t StatusReport::activity() const {
   auto const& out = agent_.attrLogCheck().nboAttrLogOutSm();
   uint64_t sum = out ? out->operationsWritten() : 0;
   for (auto const& [name, stage] : agent_.deferredStages())
      sum += 1 + stage->updatesSeen() + stage->dispatchCount(); // 1: the stage was made
   return sum;
}

void StatusReport::reportStages() {
   auto const stages = agent_.deferredStages();
   // A standby supervisor lacks some, whatever the active one left in the record.
   for (auto const& [name, reported] : status_->deferredStage())
      if (std::none_of(stages.begin(), stages.end(),
                       [&reportedName = name](auto const& stage) { return reportedName == stage.first; }))
         status_->deferredStageDel(name);
   for (auto const& [name, stage] : stages)
      status_->deferredStageIs(name, {.backlog = stage->backlogSize(),
                                      .updatesSeen = stage->updatesSeen(),
                                      .updatesProcessed = stage->updatesProcessed(),
                                      .dispatchCount = stage->dispatchCount(),
                                      .yieldBeforeFinishingCount = stage->yieldBeforeFinishingCount(),
                                      .timeUsed = stage->timeUsed()});
}

void StatusReport::reportLog() {
   auto const& check = agent_.attrLogCheck();
   auto const& out = check.nboAttrLogOutSm();
   ::Agent::AttributeLog log = status_->attributeLog();
   log.kernBufferSize = check.attrLogKernBufferSize();
   log.kernBufferThreshold = check.attrLogKernBufferThreshold();
   log.kernBufferUsage = check.attrLogKernBufferUsage();
   log.aboveThresholdCount = check.attrLogAboveThresholdCount();
   uint64_t const operations = out ? out->operationsWritten() : 0;
   if (operations != operationsAfterReport_) {
      log.operationsWritten = operations;
      log.bytesWritten = out ? out->bytesWritten() : 0;
   }
   status_->attributeLogIs(log);
   operationsAfterReport_ = out ? out->operationsWritten() : 0;
}

} // namespace Vorn
