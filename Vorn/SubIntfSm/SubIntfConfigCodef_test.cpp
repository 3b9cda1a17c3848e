#include "Vorn/SubIntfSm/SubIntfConfigCodef.h"

#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/SubIntfSm/TestSubIntfs.h"

#include <gmock/gmock.h>

namespace Vorn {
namespace {

using testing::ElementsAre;
using Ids = std::vector<Sulvi::IntfId>;

class SubIntfConfigCodefTest : public testing::Test {
  public:
   Kem::TestTrace trace{"VornSubIntfCodef/0-9,VornSubIntfEntry/0-9"};
   TestAttrLog log;
   TestSubIntfs world;

   SubIntfConfigCodefTest() { world.agent.log = &log.check; }
   void start() {
      world.start();
      trace.clear();
   }
   SubIntfConfigCodef& codef() { return *world.sm->subIntfConfigCodef(); }
   Ids backlog() {
      Ids keys;
      for (auto const& [intfId, value] : codef().backlog().keys())
         keys.push_back(intfId);
      return keys;
   }
   uint64_t slice() { return codef().processBacklog(Kem::now()); }
   Kem::Ptr<Interface::SubIntfConfig> copy(Sulvi::IntfId intfId = "Ethernet1.1") {
      return codef().subIntfConfigEntrySm(intfId)->cfgOut();
   }
   // Ethernet1.1 to Ethernet1.n, of as many VLANs.
   void subIntfs(int n) {
      for (int i = 1; i <= n; ++i)
         world.subIntf("Ethernet1." + std::to_string(i), static_cast<unsigned>(i));
   }
};

TEST_F(SubIntfConfigCodefTest, AnInterfaceIsTakenOnWithAllItsAttributes) {
   start();
   auto const in = world.subIntf("Ethernet1.1", 10);
   in->mtuIs(1400);
   in->addrIs(world.addr("02:00:00:00:00:aa"));
   in->enabledStateLocalIs(Interface::EnabledState::enabledStateEnabled);
   world.notice();
   EXPECT_THAT(backlog(), ElementsAre("Ethernet1.1"));
   EXPECT_EQ(codef().timeMin(), 0.0);
   EXPECT_EQ(slice(), 1u);
   EXPECT_THAT(trace.take(),
               ElementsAre("Adding intfId: Ethernet1.1 to backlog", "Adding intfId: Ethernet1.1 to backlog",
                           "Adding intfId: Ethernet1.1 to backlog", "backlog processed 0 remaining size 1",
                           "backlog processing Ethernet1.1", "Ethernet1.1 initialization complete",
                           "backlog finished 1 remaining size 0"));
   EXPECT_EQ(copy()->intfId(), Sulvi::IntfId("Ethernet1.1"));
   EXPECT_EQ(copy()->encapType(), Interface::SubIntfEncapType::subIntfEncapDot1q);
   EXPECT_EQ(copy()->vlanId(), 10);
   EXPECT_EQ(copy()->mtu(), 1400u);
   EXPECT_EQ(copy()->addr(), world.addr("02:00:00:00:00:aa"));
   EXPECT_EQ(copy()->enabledStateLocal(), Interface::EnabledState::enabledStateEnabled);
   EXPECT_TRUE(copy()->enabled());
   EXPECT_NE(copy().ptr(), in.ptr());
   EXPECT_TRUE(world.sm->subIntfConfigAfterCodef("Ethernet1.1"));
   EXPECT_EQ(world.sm->subIntfConfig("Ethernet1.1")->config(), copy());
}

TEST_F(SubIntfConfigCodefTest, TracesOfSlicesAreAtLevelSeven) {
   start();
   subIntfs(1);
   world.run();
   EXPECT_EQ(trace.level("backlog processed "), 7);
   EXPECT_EQ(trace.level("backlog finished "), 7);
}

TEST_F(SubIntfConfigCodefTest, ChangesAreMirroredAndEncapsulationIsNeverSeenHalfDone) {
   subIntfs(1);
   start();
   auto const in = world.configDir->intfConfig("Ethernet1.1");
   in->vlanIdIs(20);
   in->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapNone);
   in->mtuIs(1300);
   in->addrIs(world.addr("02:00:00:00:00:bb"));
   in->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_EQ(copy()->vlanId(), 1);
   // At the first of the two, both are there.
   struct KemCopy final : Interface::SubIntfConfig::NotifieeConst {
      KemCopy() : NotifieeConst(this) {}
      void onVlanId() override { seen += "vlan " + text(); }
      void onEncapType() override { seen += "encap " + text(); }
      std::string text() const {
         return std::to_string(notifier()->vlanId()) + " " + toString(notifier()->encapType()) + ";";
      }
      std::string seen;
   };
   auto const follower = Kem::makePtr<KemCopy>();
   follower->notifierIs(copy());
   world.run();
   EXPECT_EQ(follower->seen, "vlan 20 subIntfEncapNone;encap 20 subIntfEncapNone;");
   EXPECT_EQ(copy()->mtu(), 1300u);
   EXPECT_EQ(copy()->addr(), world.addr("02:00:00:00:00:bb"));
   EXPECT_FALSE(copy()->enabled());
   in->enabledStateLocalIs(Interface::EnabledState::enabledStateDefault);
   world.run();
   EXPECT_TRUE(copy()->enabled());
   in->enabledIs(false);
   world.run();
   EXPECT_FALSE(copy()->enabled());
   EXPECT_TRUE(codef().backlog().keys().empty());
}

TEST_F(SubIntfConfigCodefTest, AnEntryThatIsNotInitializedMirrorsNothing) {
   subIntfs(1);
   start();
   auto const entry = codef().subIntfConfigEntrySm("Ethernet1.1");
   entry->handleInitialized(); // the second time, nothing
   EXPECT_FALSE(trace.has("initialization complete"));
   entry->initializedIs(false);
   auto const in = world.configDir->intfConfig("Ethernet1.1");
   in->vlanIdIs(20);
   in->mtuIs(1300);
   in->addrIs(world.addr("02:00:00:00:00:bb"));
   in->enabledIs(false);
   world.run();
   EXPECT_EQ(copy()->vlanId(), 1);
   EXPECT_EQ(copy()->mtu(), 1500u);
   EXPECT_EQ(copy()->addr(), Sulvi::EthAddr());
   EXPECT_TRUE(copy()->enabled());
   entry->handleInitialized();
   EXPECT_EQ(copy()->vlanId(), 20);
}

// The first two records alone don't wait for anything.
TEST_F(SubIntfConfigCodefTest, OnlyTheThirdRecordMakesItWait) {
   start();
   world.configure("Ethernet1.1", 10);
   world.notice();
   EXPECT_THAT(trace.take(), ElementsAre("Deleting intfId: Ethernet1.1 from backlog"));
   world.statusLocalDir->intfStatusLocalIs("Ethernet1.1");
   world.notice();
   EXPECT_THAT(trace.take(), ElementsAre());
   EXPECT_FALSE(codef().existsInOrdel("Ethernet1.1"));
   world.statusDir->intfStatusIs("Ethernet1.1");
   world.notice();
   EXPECT_THAT(trace.take(), ElementsAre("Adding intfId: Ethernet1.1 to backlog"));
   EXPECT_TRUE(codef().existsInOrdel("Ethernet1.1"));
   // It goes before its turn.
   world.configDir->intfConfigDel("Ethernet1.1");
   world.notice();
   EXPECT_THAT(trace.take(), ElementsAre("Deleting intfId: Ethernet1.1 from backlog"));
   EXPECT_THAT(backlog(), ElementsAre());
}

TEST_F(SubIntfConfigCodefTest, EachRecordThatGoesRemovesIt) {
   for (int which = 0; which < 3; ++which) {
      subIntfs(1);
      start();
      if (which == 0)
         world.configDir->intfConfigDel("Ethernet1.1");
      else if (which == 1)
         world.statusDir->intfStatusDel("Ethernet1.1");
      else
         world.statusLocalDir->intfStatusLocalDel("Ethernet1.1");
      world.notice();
      EXPECT_THAT(backlog(), ElementsAre("Ethernet1.1")) << which;
      EXPECT_EQ(slice(), 1u);
      EXPECT_EQ(trace.count("Removing subIntf: Ethernet1.1 from output"), 1u) << which;
      EXPECT_EQ(codef().subIntfConfigEntrySm("Ethernet1.1"), nullptr);
      EXPECT_FALSE(world.sm->subIntfConfigAfterCodef("Ethernet1.1"));
      world.stop();
   }
}

TEST_F(SubIntfConfigCodefTest, EachRecordThatIsReplacedMakesANewCopyInTheSameStep) {
   for (int which = 0; which < 3; ++which) {
      subIntfs(1);
      start();
      auto const before = copy();
      auto const entryBefore = world.sm->subIntfConfig("Ethernet1.1");
      if (which == 0)
         world.configDir->newIntfConfig("Ethernet1.1")->vlanIdIs(10);
      else if (which == 1)
         world.statusDir->newIntfStatus("Ethernet1.1");
      else
         world.statusLocalDir->newIntfStatusLocal("Ethernet1.1");
      world.notice();
      EXPECT_EQ(slice(), 1u);
      EXPECT_EQ(trace.count("Deleting subIntf: Ethernet1.1 from output (stale)"), 1u) << which;
      EXPECT_NE(copy(), before) << which;
      EXPECT_EQ(copy()->vlanId(), which == 0 ? 10 : 1);
      EXPECT_NE(world.sm->subIntfConfig("Ethernet1.1"), entryBefore);
      EXPECT_TRUE(entryBefore->preparedToDie());
      world.stop();
   }
}

TEST_F(SubIntfConfigCodefTest, WhatGoesAndComesBackBeforeItsTurnIsLeftAlone) {
   subIntfs(1);
   start();
   auto const before = copy();
   codef().handleSubIntfConfig("Ethernet1.1"); // nothing has changed
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(copy(), before);
}

// --- Slices.

TEST_F(SubIntfConfigCodefTest, ALogWithoutRoomStopsASliceAndItGoesOnWhereItStopped) {
   start();
   subIntfs(5);
   world.notice();
   log.roomFor(3);
   EXPECT_EQ(slice(), 3u);
   EXPECT_EQ(trace.count("Pausing backlog processing at Ethernet1.4 - attr log full"), 1u);
   EXPECT_EQ(codef().bookmark(), Sulvi::IntfId("Ethernet1.4"));
   EXPECT_THAT(backlog(), ElementsAre("Ethernet1.4", "Ethernet1.5"));
   EXPECT_EQ(slice(), 0u);
   EXPECT_FALSE(trace.has("backlog finished"));
   log.drain();
   trace.clear();
   EXPECT_EQ(slice(), 2u);
   EXPECT_THAT(trace.from("backlog processing "),
               ElementsAre("backlog processing Ethernet1.4", "backlog processing Ethernet1.5"));
   EXPECT_TRUE(trace.has("backlog finished 2 remaining size 0"));
   EXPECT_EQ(codef().bookmark(), Sulvi::IntfId());
}

TEST_F(SubIntfConfigCodefTest, ASliceThatIsLateFinishesOne) {
   start();
   subIntfs(3);
   world.notice();
   EXPECT_EQ(codef().processBacklog(Kem::now() - 1), 1u);
   EXPECT_TRUE(trace.has("Pausing backlog processing at Ethernet1.2"));
   EXPECT_EQ(codef().bookmark(), Sulvi::IntfId("Ethernet1.2"));
   // A change of another interface resets the pause point.
   world.statusDir->intfStatusDel("Ethernet1.1");
   world.notice();
   EXPECT_EQ(codef().bookmark(), Sulvi::IntfId());
   EXPECT_EQ(slice(), 3u);
}

TEST_F(SubIntfConfigCodefTest, AnEmptyBacklogIsFinishedAtOnce) {
   start();
   EXPECT_EQ(slice(), 0u);
   EXPECT_TRUE(trace.has("backlog finished 0 remaining size 0"));
}

TEST_F(SubIntfConfigCodefTest, NothingIsTakenInBeforeItIsInitialized) {
   subIntfs(1);
   start();
   struct NoOutput final : SubIntfConfigOutput {
      bool subIntfConfigAfterCodef(Sulvi::IntfId) const override { return false; }
      void subIntfConfigAfterCodefIs(Sulvi::IntfId) override { FAIL(); }
      void subIntfConfigAfterCodefDel(Sulvi::IntfId) override { FAIL(); }
      void subIntfConfigInitialize(Kem::Ptr<Interface::SubIntfConfig const> const&) override { FAIL(); }
      void subIntfConfigGone(Sulvi::IntfId) override { FAIL(); }
      void subIntfConfigRefused(Sulvi::IntfId, std::string const&) override { FAIL(); }
      void subIntfConfigBacklogEmpty() override { FAIL(); }
      AttrLogCheck* attrLogCheck() const override { return nullptr; }
   } output;
   auto const another = subIntfConfigCodefFactory(Kem::ActivityFacility::clock(), world.configDir,
                                                  world.statusDir, world.statusLocalDir, output);
   another->handleSubIntfConfig("Ethernet1.1");
   another->handleSubIntfStatus("Ethernet1.1");
   EXPECT_EQ(another->backlogSize(), 0u);
   EXPECT_EQ(another->updatesSeen(), 0u);
}

// The evaluation of what has been taken on waits until all claims to VLAN ids are known.
TEST_F(SubIntfConfigCodefTest, WhileItHasWorkNothingIsEvaluated) {
   start();
   subIntfs(3);
   world.notice();
   log.roomFor(2);
   EXPECT_EQ(slice(), 2u);
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   EXPECT_EQ(world.sm->intfBackLog().size(), 2u);
   log.drain();
   world.advance(1);
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.state("Ethernet1.3"), "up, in hardware");
   EXPECT_TRUE(world.sm->intfBackLog().empty());
}

} // namespace
} // namespace Vorn
