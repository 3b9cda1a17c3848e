// Reports to the operator which ports drop frames for congestion: one message for all of them in each round,
// with the ports that dropped most.
//
//    waiting ──the interval is over──► round: read all counters, log what grew ──► waiting
//
// The counters are read in rounds and not followed, since they may change with every frame; so drops are
// reported at the end of the round that they fall into. It is driven by its timer, by the interval, and by
// the platform's flag that drops are counted at all; without that there are no rounds.
//
// - Whether a port is logged is read at the end of the round: its own word, else the global one.
// - What is in a counter when it is first read was dropped before, and is not reported. One that has fallen
//   was started again, and all that is in it is new.
// - An interval below 1 s counts as 1 s, one that is no number as the default of 60 s.
#pragma once

#include "Kem/Clock.h"
#include "Kem/StateMachine.h"
#include "records/Interface/AllEthPhyIntfConfigDir.h"
#include "records/Interface/AllEthPhyIntfStatusDir.h"
#include "records/Interface/EthPhyIntfGlobalDefaultConfigDir.h"
#include "records/Interface/HwStatus.h"

#include <cstdint>
#include <vector>

namespace Interface {

class CongestionDropsLoggingSm final : public Kem::StateMachine {
  public:
   // Any record may be null, and is not watched then: without `intfHwStatus` nothing is known to be counted,
   // and without `ethPhyIntfDefaultConfigDir` its defaults hold. The rounds run on `syslogTimer`.
   CongestionDropsLoggingSm(Kem::Ptr<AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir,
                            Kem::Ptr<AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir,
                            Kem::Ptr<EthPhyIntfGlobalDefaultConfigDir const> ethPhyIntfDefaultConfigDir,
                            Kem::Ptr<HwStatus const> intfHwStatus, Kem::Ptr<Kem::Clock const> syslogTimer);

  private:
   // --- Reactions.
   struct KemIntfHwStatus final : HwStatus::NotifieeConst {
      explicit KemIntfHwStatus(CongestionDropsLoggingSm& s) : NotifieeConst(this), sm(s) {}
      void onCongestionDropsSupported() override { sm.handleInitialized(); }
      CongestionDropsLoggingSm& sm;
   };
   struct KemDefaultConfigDir final : EthPhyIntfGlobalDefaultConfigDir::NotifieeConst {
      explicit KemDefaultConfigDir(CongestionDropsLoggingSm& s) : NotifieeConst(this), sm(s) {}
      void onCongestionDropsLoggingInterval() override { sm.scheduleRound(); }
      CongestionDropsLoggingSm& sm;
   };
   struct KemSyslogTimer final : Kem::Clock::NotifieeConst {
      KemSyslogTimer(CongestionDropsLoggingSm& s, Kem::Ptr<Kem::Clock const> clock)
          : NotifieeConst(std::move(clock)), sm(s) {}
      void onTime() override { sm.handleRound(); }
      CongestionDropsLoggingSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemIntfHwStatus_, kemDefaultConfigDir_, kemSyslogTimer_);
   }
   void handleInitialized() override;
   void handleRound();

   // --- Helpers.
   struct Drops {
      Sulvi::IntfId intfId;
      uint64_t count;
   };
   void scheduleRound();
   // Reads all counters; returns what grew since they were last read, of the ports that are logged.
   std::vector<Drops> readCounters();
   bool isLogged(Sulvi::IntfId intfId) const;
   static std::string text(std::vector<Drops> drops);

   Kem::Ptr<AllEthPhyIntfConfigDir const> ethPhyIntfConfigDir_;
   Kem::Ptr<AllEthPhyIntfStatusDir const> ethPhyIntfStatusDir_;
   Kem::Ptr<EthPhyIntfGlobalDefaultConfigDir const> ethPhyIntfDefaultConfigDir_;
   Kem::Ptr<HwStatus const> intfHwStatus_;

   Kem::ValueMap<Sulvi::IntfId, uint64_t> lastDrops_; // counters as they were last read
   Kem::Seconds lastRound_ = 0;

   KemIntfHwStatus kemIntfHwStatus_{*this};
   KemDefaultConfigDir kemDefaultConfigDir_{*this};
   KemSyslogTimer kemSyslogTimer_;
};

} // namespace Interface
