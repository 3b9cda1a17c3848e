// The world of the agent's tests: a state database in this process, an agent on it, and a publisher beside
// it, all on one loop with virtual time.
//
//    TestSwitch sw;        // a database with the whole skeleton, nobody connected
//    sw.publish<Redundancy::RedundancyStatus>("cell/1/redundancy/status")->modeIs(...);
//    sw.startAgent();      // mounted, settled
//    sw.run();             // until nothing is left to do
#pragma once

#include "Kem/Activity.h"
#include "Ordel/client/Cell.h"
#include "Ordel/client/EntityManager.h"
#include "Ordel/server/Listener.h"
#include "Vorn/VornAgent/VornAgent.h"
#include "records/TypeInfo.h"
#include "tests/network/OwnNetwork.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace Vorn {

// Waits for one group of mounts.
class TestMounter final : public Ordel::Mounter {
  public:
   TestMounter() : Mounter(Kem::Name("test")) {}
   void doMountsComplete(Ordel::MountStatus const& mountStatus, Ordel::EntityManager&) override {
      status = mountStatus;
      isComplete = true;
   }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Vorn::TestMounter", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   Ordel::MountStatus status;
   bool isComplete = false;
};

class TestSwitch {
  public:
   // `places`: the schema whose places the database starts with; it must outlive the switch.
   explicit TestSwitch(Records::Schema const& places = Records::schema())
       : server_(std::make_unique<Ordel::Tree>(places, 1), "sys") {
      setenv("ZIVLOG_DISABLE", "1", 1);
      static_cast<void>(Tests::isInOwnNetwork());
      std::string error;
      EXPECT_TRUE(listener_.listen(socketPath_, error)) << error;
      publisher_ = connect("publisher", Ordel::Role::tool);
      subscriber_ = connect("subscriber", Ordel::Role::tool);
   }
   ~TestSwitch() {
      agent = nullptr;
      agentManager = nullptr;
      publisher_ = nullptr;
      subscriber_ = nullptr;
      run();
      Kem::singletonDelAll();
   }

   // Mounts the record for the publisher, who writes it; made of that type where it is absent.
   template <class T>
   Kem::Ptr<T> publish(std::string const& path) {
      return mount<T>(*publisher_, "wc", path);
   }
   // Mounts the record for a third party, who only reads it.
   template <class T>
   Kem::Ptr<T> subscribe(std::string const& path) {
      return mount<T>(*subscriber_, "r", path);
   }
   template <class T>
   static Kem::Ptr<T> mount(Ordel::EntityManager& manager, char const* mode, std::string const& path) {
      auto const mounter = Kem::makePtr<TestMounter>();
      auto const group = manager.getMountGroup(*mounter);
      group->doMount({mode, T::typeInfo_.name, path});
      group->doClose(false, "test", 0.0);
      run();
      EXPECT_TRUE(mounter->isComplete) << path;
      return manager.entity<T>(path);
   }

   // From the next start on, holds the agent's log until it has settled, as the agent's runner does.
   void holdsLogIs(bool holds) { holdsLog_ = holds; }
   // Makes the agent and asks for its mounts, after what the base mounts.
   void startAgent() {
      beginStart();
      run();
      EXPECT_TRUE(agent->initialized());
   }
   // The same, but leaves it to the caller to run the loop.
   void beginStart() {
      agentManager = connect("Vorn", Ordel::Role::agent);
      agent = agentFactory("Vorn");
      agent->cellIdIs(1);
      agent->entityManagerIs(agentManager);
      agent->redundancyStatusIs(
          mount<Redundancy::RedundancyStatus>(*agentManager, "r", Cell::path("redundancy/status", 0)));
      agentManager->groupCompleteHookIs([this](Ordel::MountGroup const& group) {
         if (&group.mounter() != agent.ptr())
            return;
         agentMounts = group.mounts();
         agent->initializedIs(true);
         if (holdsLog_)
            agentManager->releaseLogWhenSettled();
      });
      if (holdsLog_)
         agentManager->holdLog(holdLimit);
      agent->doInit();
   }
   // The agent's process ends; what it wrote stays.
   void stopAgent() {
      agent = nullptr;
      agentManager = nullptr;
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   Ordel::Server& server() { return server_; }
   Ordel::Server const& server() const { return server_; }

   Kem::Ptr<Ordel::EntityManager> agentManager;
   Kem::Ptr<Agent> agent;
   std::vector<Ordel::Mount> agentMounts; // what the agent asked for, in one group

  private:
   static constexpr Kem::Seconds holdLimit = 60;

   Kem::Ptr<Ordel::EntityManager> connect(char const* name, Ordel::Role role) {
      auto const manager =
          Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo, name, role);
      EXPECT_EQ(manager->connect(socketPath_, 0), "");
      run();
      return manager;
   }

   Kem::VirtualTime time_;
   std::string const socketPath_ = testing::TempDir() + "/vorn-test-" + std::to_string(getpid()) + ".sock";
   Ordel::Server server_;
   Ordel::Listener listener_{server_};
   bool holdsLog_ = false;
   Kem::Ptr<Ordel::EntityManager> publisher_;
   Kem::Ptr<Ordel::EntityManager> subscriber_;
};

} // namespace Vorn
