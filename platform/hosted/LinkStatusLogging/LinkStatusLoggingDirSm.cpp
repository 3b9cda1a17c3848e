#include "LinkStatusLogging/LinkStatusLoggingDirSm.h"

#include "records/Interface/IntfConfig.h"

#include <string>
#include <utility>

namespace Interface {

namespace {

Kem::LogHandle const statusChanged("INTF_STATUS_CHANGED", 5, {"%s is %s, was %s"}, Kem::NoActionRequired,
                                   10.0, 1000.0);

std::string text(IntfOperStatus operStatus) {
   switch (operStatus) {
   case IntfOperStatus::intfOperUp:
      return "up";
   case IntfOperStatus::intfOperDown:
      return "down";
   case IntfOperStatus::intfOperTesting:
      return "testing";
   case IntfOperStatus::intfOperUnknown:
      return "unknown";
   case IntfOperStatus::intfOperDormant:
      return "dormant";
   case IntfOperStatus::intfOperNotPresent:
      return "not present";
   case IntfOperStatus::intfOperLowerLayerDown:
      return "down (lower layer)";
   }
   return "in state " + std::to_string(static_cast<unsigned>(operStatus));
}

} // namespace

LinkStatusLoggingDirSm::LinkStatusLoggingDirSm(Kem::Ptr<Kem::ActivityConfig> const&,
                                               Kem::Ptr<GlobalIntfConfig const> globalConfig,
                                               Kem::Ptr<AllIntfConfigDir const> allIntfConfigDir,
                                               Kem::Ptr<AllIntfStatusDir const> allIntfStatusDir)
    : globalConfig_(std::move(globalConfig)), allIntfConfigDir_(std::move(allIntfConfigDir)),
      allIntfStatusDir_(std::move(allIntfStatusDir)), changedLog_(statusChanged) {
   kemAllIntfStatusDir_.notifierIs(allIntfStatusDir_);
   handleInitialized();
}

void LinkStatusLoggingDirSm::handleInitialized() {
   if (allIntfStatusDir_)
      for (auto const& [intfId, intfStatus] : allIntfStatusDir_->intfStatus())
         handleIntfStatus(intfId);
}

void LinkStatusLoggingDirSm::handleIntfStatus(Sulvi::IntfId intfId) {
   auto const intfStatus = allIntfStatusDir_->intfStatus(intfId);
   if (!intfStatus) {
      kemIntfStatus_.erase(intfId);
      return;
   }
   auto& reactor = kemIntfStatus_[intfId];
   if (!reactor)
      reactor = std::make_unique<KemIntfStatus>(*this);
   reactor->notifierIs(intfStatus);
}

void LinkStatusLoggingDirSm::handleOperStatus(KemIntfStatus& reactor) {
   IntfOperStatus const now = reactor.notifier()->operStatus();
   IntfOperStatus const before = std::exchange(reactor.last, now);
   bool const wasKnown =
       std::exchange(reactor.isKnown, reactor.isKnown || now != IntfOperStatus::intfOperUnknown);
   Sulvi::IntfId const intfId = reactor.notifier()->intfId();
   if (now != before && wasKnown && isLogged(intfId))
      changedLog_({intfId.stringValue().str(), text(now), text(before)});
}

bool LinkStatusLoggingDirSm::isLogged(Sulvi::IntfId intfId) const {
   auto const config = allIntfConfigDir_ ? allIntfConfigDir_->intfConfig(intfId) : nullptr;
   auto const choice = config ? config->linkStatusLogging() : LoggingChoice::loggingDefault;
   if (choice == LoggingChoice::loggingOn || choice == LoggingChoice::loggingOff)
      return choice == LoggingChoice::loggingOn;
   return !globalConfig_ || globalConfig_->linkStatusLogging();
}

} // namespace Interface
