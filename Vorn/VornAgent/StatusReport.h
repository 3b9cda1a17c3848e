// Reports to others how far the agent has come: the state of its deferred stages and of its attribute log, in
// the record Agent::Status.
//
// It reports once when it is made. Afterwards it writes what differs from the record, a second after
// something has happened and once a second while things go on happening:
//
//    asleep --a stage did something, or something was written--> timer, 1 s --> report --> asleep
//
// So an agent that has nothing to do sleeps. A report changes the figures of the log itself, so they are not
// reported as long as nothing else has been written. The first report is held back with the rest of a held
// log: the process id in the record is that of the last agent that finished its start.
//
// Owned by the agent, which it reads and does not change.
#pragma once

#include "Kem/Clock.h"
#include "Kem/FunctionRef.h"
#include "Ulm/CodefBase.h"
#include "records/Agent/Status.h"

#include <cstdint>

namespace Vorn {

class Agent;

class StatusReport {
  public:
   static constexpr Kem::Seconds interval = 1.0;

   StatusReport(Kem::Ptr<::Agent::Status> status, Agent& agent);
   ~StatusReport();

  private:
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(StatusReport& r) : NotifieeConst(Kem::ActivityFacility::clock()), report(r) {}
      void onTime() override { report.handleTime(); }
      StatusReport& report;
   };
   void handleTime();
   void handleDeliveryEnd();
   Kem::FunctionRef<void()> deliveryEndHook() {
      return Kem::FunctionRef<void()>::of<&StatusReport::handleDeliveryEnd>(*this);
   }
   uint64_t activity() const;
   void reportStages();
   void reportLog();

   Kem::Ptr<::Agent::Status> const status_;
   Agent& agent_;
   // How much the log had been given after the last report, the report's own writes included; before the
   // first one a number that it can't have.
   uint64_t operationsAfterReport_ = UINT64_MAX;
   uint64_t activityAfterReport_ = 0;
   KemClock kemClock_{*this};
};

} // namespace Vorn
