// Tells others how far the agent is: its deferred stages, and its attribute log, in the record Agent::Status.
//
// Looks once when it is made and then once a second, and writes what differs from what the record
// holds. What it writes itself would change the figures of the log again, so these are left alone while
// nothing else has been written: an agent that has nothing to do writes nothing. The first report waits
// with the rest of a held log, so that the number of the process in the record is that of the last
// agent that finished its start.
//
// Owned by the agent, which it reads and does not change.
#pragma once

#include "Kem/Clock.h"
#include "Ulm/CodefBase.h"
#include "records/Agent/Status.h"

#include <cstdint>

namespace Vorn {

class Agent;

class StatusReport {
  public:
   static constexpr Kem::Seconds interval = 1.0;

   StatusReport(Kem::Ptr<::Agent::Status> status, Agent& agent);

  private:
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(StatusReport& r) : NotifieeConst(Kem::ActivityFacility::clock()), report(r) {}
      void onTime() override { report.handleTime(); }
      StatusReport& report;
   };
   void handleTime();
   void reportStages();
   void reportStage(char const* name, Ulm::CodefBase const* stage); // null: there is no such stage
   void reportLog();

   Kem::Ptr<::Agent::Status> const status_;
   Agent& agent_;
   // Of the log, the report's own included; before the first one no number that it can have.
   uint64_t operationsAfterReport_ = UINT64_MAX;
   KemClock kemClock_{*this};
};

} // namespace Vorn
