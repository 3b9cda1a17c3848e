#include "CongestionDropsLogging/CongestionDropsLoggingSm.h"

#include "Kem/Log.h"
#include "records/Interface/EthPhyIntfConfig.h"
#include "records/Interface/EthPhyIntfStatus.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace Interface {

namespace {

constexpr Kem::Seconds minInterval = 1;
constexpr Kem::Seconds defaultInterval = 60;
constexpr size_t maxListed = 20; // ports by name in one message

Kem::LogHandle const congestionDrops("CONGESTION_DROPS", 4,
                                     {"Frames dropped for congestion in the last %s seconds: %s"},
                                     "Look for senders that send more than the port can carry.", 0.0, 1.0);

} // namespace

CongestionDropsLoggingSm::CongestionDropsLoggingSm(
    Kem::Ptr<AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir,
    Kem::Ptr<AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir,
    Kem::Ptr<EthPhyIntfGlobalDefaultConfigDir const> ethPhyIntfDefaultConfigDir,
    Kem::Ptr<HwStatus const> intfHwStatus, Kem::Ptr<Kem::Clock const> syslogTimer)
    : ethPhyIntfConfigDir_(std::move(ethPhyIntfConfigDir)),
      ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)),
      ethPhyIntfDefaultConfigDir_(std::move(ethPhyIntfDefaultConfigDir)),
      intfHwStatus_(std::move(intfHwStatus)), kemSyslogTimer_(*this, std::move(syslogTimer)) {
   kemIntfHwStatus_.notifierIs(intfHwStatus_);
   kemDefaultConfigDir_.notifierIs(ethPhyIntfDefaultConfigDir_);
   handleInitialized();
}

void CongestionDropsLoggingSm::handleInitialized() {
   readCounters();
   lastRound_ = Kem::now();
   scheduleRound();
}

void CongestionDropsLoggingSm::scheduleRound() {
   if (!intfHwStatus_ || !intfHwStatus_->congestionDropsSupported()) {
      kemSyslogTimer_.timeMinIs(Kem::never);
      return;
   }
   Kem::Seconds interval = ethPhyIntfDefaultConfigDir_
                               ? ethPhyIntfDefaultConfigDir_->congestionDropsLoggingInterval()
                               : defaultInterval;
   if (std::isnan(interval))
      interval = defaultInterval;
   kemSyslogTimer_.timeMinIs(lastRound_ + std::max(interval, minInterval));
}

void CongestionDropsLoggingSm::handleRound() {
   auto const drops = readCounters();
   if (!drops.empty()) {
      std::string const seconds = std::to_string(std::lround(Kem::now() - lastRound_));
      std::string const ports = text(drops);
      char const* const args[] = {seconds.c_str(), ports.c_str()};
      if (congestionDrops.okToLog(0))
         congestionDrops.log(0, args, 2);
   }
   lastRound_ = Kem::now();
   scheduleRound();
}

std::vector<CongestionDropsLoggingSm::Drops> CongestionDropsLoggingSm::readCounters() {
   std::vector<Drops> drops;
   Kem::ValueMap<Sulvi::IntfId, uint64_t> read;
   if (ethPhyIntfStatusDir_)
      ethPhyIntfStatusDir_->intfStatus().forEach([&](Sulvi::IntfId intfId, auto const& intfStatus) {
         uint64_t const count = intfStatus->congestionDrops();
         uint64_t const* const last = lastDrops_.find(intfId);
         if (last && count != *last && isLogged(intfId))
            if (uint64_t const grown = count > *last ? count - *last : count)
               drops.push_back({intfId, grown});
         read.findOrInsert(intfId, [&] { return count; });
      });
   lastDrops_ = std::move(read);
   return drops;
}

bool CongestionDropsLoggingSm::isLogged(Sulvi::IntfId intfId) const {
   auto const config = ethPhyIntfConfigDir_ ? ethPhyIntfConfigDir_->intfConfig(intfId) : nullptr;
   auto const choice = config ? config->congestionDropsLogging() : LoggingChoice::loggingDefault;
   if (choice == LoggingChoice::loggingOn || choice == LoggingChoice::loggingOff)
      return choice == LoggingChoice::loggingOn;
   return ethPhyIntfDefaultConfigDir_ && ethPhyIntfDefaultConfigDir_->congestionDropsLogging();
}

std::string CongestionDropsLoggingSm::text(std::vector<Drops> drops) {
   std::sort(drops.begin(), drops.end(), [](Drops const& a, Drops const& b) {
      return a.count != b.count ? a.count > b.count : a.intfId < b.intfId;
   });
   std::string text;
   for (size_t i = 0; i < std::min(drops.size(), maxListed); ++i) {
      text += i == 0 ? "" : ", ";
      text += drops[i].intfId.stringValue().str() + ' ' + std::to_string(drops[i].count);
   }
   if (drops.size() > maxListed)
      text += " and " + std::to_string(drops.size() - maxListed) + " other interfaces";
   return text;
}

} // namespace Interface
