// The world of the property test: a state database, its publishers, a subscriber that has been there from the
// start, and the agent in one life after another, each beside a life of the model.
//
// What is compared with the model is what the subscriber has put together from what it was sent, which must
// equal what the database holds byte for byte; never the agent's memory.
#pragma once

#include "AgentModel.h"
#include "Neighbour.h"
#include "Publishers.h"

#include "records/Bridging/Config.h"
#include "records/Bridging/FdbConfigDir.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Errdisable/CauseStatus.h"

#include <memory>
#include <optional>
#include <string>

namespace Model {

class World {
  public:
   explicit World(uint64_t seed);
   ~World();

   bool isAgentUp() const { return model_ != nullptr; }
   void startAgent();
   void stopAgent();
   // Starts it and kills it after so many turns of the loop.
   void startAndKillAgent(unsigned turns);
   // Runs so many turns of the loop on what has been changed, and kills the agent then.
   void killAgent(unsigned turns);
   // A fresh agent on the same inputs: everything that agents wrote is taken away while it is down.
   void startFreshAgent();
   void pass(double seconds);
   // Calls of the kernel fail from now on; routed interfaces aren't compared until the faults have ended.
   std::string makeKernelFail(Dice dice);
   // Ends them, if there are any, and lets what failed be tried again.
   void endFaults();

   // Runs until nothing is left to do, in the world and in the model.
   void run();
   // Where database, subscriber and model differ; empty when they are alike.
   std::string differences();

   Publishers& publishers() { return *publishers_; }
   // Somebody edits what the agent resolved. Not in a turn in which an input came: the agent works on that at
   // once, and which of the two is the later writer depends on how the frame is cut.
   std::string edit(Dice dice);

  private:
   // The subscriber's records as objects, each held so that no other one can take its address.
   struct Records {
      std::map<unsigned, Kem::Ptr<Bridging::VlanConfig>> vlans;
      std::map<std::string, Kem::Ptr<Bridging::SwitchIntfConfig>> ports;
   };
   Records records() const;
   // Looks for records that the subscriber saw deleted and made again without need.
   void noteNeedlesslyMade(bool isStart);
   Survivors survivors() const;
   Outcome told() const; // the subscriber's view

   // --- Routed interfaces (WorldRouting.cpp).
   void subscribeRouting();
   std::string routingDifferences() const;
   std::string deviceDifferences(RoutedOutcome const& expected) const;

   mutable Netlink::FakeKernel kernel_; // outlives the agent
   std::string const namespaceFolder_;
   Vorn::TestSwitch sw_;
   Intent intent_;
   PortOrder portOrder_;
   std::unique_ptr<Publishers> publishers_;
   std::unique_ptr<Neighbour> neighbour_;
   Kem::Ptr<Bridging::Config> config_;
   Kem::Ptr<Bridging::Input::Config> defaults_;
   Kem::Ptr<Bridging::FdbConfigDir> merged_;
   Kem::Ptr<Errdisable::CauseStatus> cause_;
   Kem::Ptr<Interface::VlanIntfStatusDir> vlanStatuses_;
   Kem::Ptr<Interface::SubIntfStatusDir> subStatuses_;
   Kem::Ptr<Kem::Dir> errors_;
   bool hasFaults_ = false;
   std::unique_ptr<Agent> model_; // null while the agent is down
   Records records_;              // as they were when nothing was left to do the last time
   Births births_;                // of the model at that moment
   std::string needlesslyMade_;   // what was found since differences() was asked
};

} // namespace Model
