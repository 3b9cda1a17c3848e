#include "VlanOperStatus/VlanOperStatusSm.h"

#include "Kem/Activity.h"
#include "Kem/Exception.h"
#include "Kem/TestTrace.h"
#include "Kem/Time.h"
#include "VlanOperStatus/Root.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using Interface::EnabledState;
using Interface::IntfOperStatus;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using VlanOperStatus::VlanOperStatusInputs;
using VlanOperStatus::VlanOperStatusSm;

constexpr auto up = IntfOperStatus::intfOperUp;
constexpr auto down = IntfOperStatus::intfOperDown;
constexpr auto unknown = IntfOperStatus::intfOperUnknown;
constexpr auto lowerLayerDown = IntfOperStatus::intfOperLowerLayerDown;
constexpr auto shutDown = EnabledState::enabledStateShutdown;

struct VlanOperStatusTest : testing::Test {
   Sulvi::IntfId intf(uint16_t vlanId) const { return VlanOperStatusSm::vlanIntfNameFromVlanId(vlanId); }
   VlanOperStatusInputs inputs() const {
      return {.vlanIntfStatusDir = statusDir,
              .vlanStatusDir = hasVlanStatusDir ? vlanStatusDir : nullptr,
              .vlanIntfConfigDir = configDir,
              .dynVlanIntfDir = dynDir,
              .dynVlanIntfList = dynList,
              .privateVlanLibState = privateVlans,
              .allVlanIntfAutoState = all};
   }
   void start() {
      sm = Kem::makeInitialized<VlanOperStatusSm>(inputs());
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   // A VLAN interface that is configured and that has a status record, as others make them.
   Kem::Ptr<Interface::VlanIntfConfig> configure(uint16_t vlanId) {
      auto const config = configDir->intfConfigIs(intf(vlanId));
      statusDir->intfStatusIs(intf(vlanId))->intfConfigIs(config);
      return config;
   }
   // The same of a dynamic source, without a status record.
   Kem::Ptr<Interface::VlanIntfConfig> ask(uint16_t vlanId) {
      auto const config = source->intfConfigIs(intf(vlanId));
      dynList->intfConfigIs(config);
      return config;
   }
   void portIs(uint16_t vlanId, Sulvi::IntfId port) {
      vlanStatusDir->vlanStatusIs(vlanId)->vlanPortStatusIs(port, true);
   }
   void portDel(uint16_t vlanId, Sulvi::IntfId port) {
      vlanStatusDir->vlanStatus(vlanId)->vlanPortStatusDel(port);
   }
   IntfOperStatus operStatus(uint16_t vlanId) const {
      return statusDir->intfStatus(intf(vlanId))->operStatus();
   }
   unsigned changes(uint16_t vlanId) const {
      return statusDir->intfStatus(intf(vlanId))->operStatusChange().count;
   }

   Kem::VirtualTime time{1000.0};
   Kem::TestTrace trace{"VlanOperStatus/0-9"};
   Kem::Ptr<Interface::VlanIntfStatusDir> statusDir = Interface::VlanIntfStatusDir::make();
   Kem::Ptr<Bridging::VlanStatusDir> vlanStatusDir = Bridging::VlanStatusDir::make();
   Kem::Ptr<Interface::VlanIntfConfigDir> configDir = Interface::VlanIntfConfigDir::make();
   Kem::Ptr<Kem::Dir> dynDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Interface::Input::DynVlanIntfConfigDir> source = Interface::Input::DynVlanIntfConfigDir::make();
   Kem::Ptr<Vorn::DynVlanIntfList> dynList = Vorn::DynVlanIntfList::make();
   Kem::Ptr<PrivateVlanLib::LibState> privateVlans = PrivateVlanLib::LibState::make();
   Kem::Ptr<Interface::AllVlanIntfAutoState> all = Interface::AllVlanIntfAutoState::make();
   bool hasVlanStatusDir = true;
   Kem::Ptr<VlanOperStatusSm> sm;
};

// --- The rows, in the order of the table: each record that comes lets the next row decide.

TEST_F(VlanOperStatusTest, everyRowDecidesWithItsTrace) {
   auto const status = statusDir->intfStatusIs("Vlan10");
   auto const config = configDir->intfConfigIs("Vlan10");
   config->enabledStateLocalIs(shutDown);
   privateVlans->secondaryVlanIs(10, true);
   portIs(10, "Ethernet1");
   start();
   EXPECT_EQ(operStatus(10), unknown);
   EXPECT_THAT(trace.take(), Contains("Vlan10 has no configuration yet"));

   status->intfConfigIs(config);
   run();
   EXPECT_EQ(operStatus(10), down);
   EXPECT_THAT(trace.take(), ElementsAre("Vlan10 is not enabled"));

   config->enabledStateLocalIs(EnabledState::enabledStateDefault);
   run();
   EXPECT_EQ(operStatus(10), down);
   EXPECT_THAT(trace.take(), Contains("Vlan10 is secondary"));

   privateVlans->secondaryVlanDel(10);
   run();
   EXPECT_EQ(operStatus(10), up);
   EXPECT_THAT(trace.take(), ElementsAre("intfId='Vlan10' vlanForwardable=1"));

   portDel(10, "Ethernet1");
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   EXPECT_THAT(trace.take(), ElementsAre("intfId='Vlan10' vlanForwardable=0"));

   config->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);
   config->autoStateIs(true);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   all->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);
   all->autoStateIs(true);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   trace.take();

   vlanStatusDir->vlanStatusDel(10);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   EXPECT_THAT(trace.take(), ElementsAre("no VlanStatus for 10", "intfId='Vlan10' vlanForwardable=0"));
}

TEST_F(VlanOperStatusTest, withoutADirectoryOfVlanStatusTheLayerBelowIsDown) {
   hasVlanStatusDir = false;
   configure(10)->autoStateIs(false);
   start();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   EXPECT_THAT(trace.take(), Contains("vlanStatusDir() is NULL"));
}

TEST_F(VlanOperStatusTest, withoutTheOtherDirectoriesItHoldsItsDefaults) {
   configure(10);
   configure(11);
   portIs(10, "Ethernet1");
   auto in = inputs();
   in.vlanIntfConfigDir = nullptr;
   in.privateVlanLibState = nullptr;
   in.allVlanIntfAutoState = nullptr;
   sm = Kem::makeInitialized<VlanOperStatusSm>(in);
   EXPECT_EQ(operStatus(10), up);
   EXPECT_EQ(operStatus(11), lowerLayerDown);
   in.vlanIntfStatusDir = nullptr;
   sm = Kem::makeInitialized<VlanOperStatusSm>(in);
   sm->doSetOperStatus("Vlan10");
   EXPECT_THAT(trace.take(), Contains("there is no VlanIntfStatus for Vlan10"));
}

TEST_F(VlanOperStatusTest, numbersAreThoseOfTheMib) {
   EXPECT_EQ(static_cast<int>(unknown), 4);
   EXPECT_EQ(static_cast<int>(up), 1);
   EXPECT_EQ(static_cast<int>(down), 2);
   EXPECT_EQ(static_cast<int>(lowerLayerDown), 7);
}

// --- Cases of their own.

TEST_F(VlanOperStatusTest, processorsPortAloneDoesNotForward) {
   configure(10);
   portIs(10, "Cpu");
   start();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   portIs(10, "Port-Channel5");
   run();
   EXPECT_EQ(operStatus(10), up);
   portDel(10, "Port-Channel5");
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
}

TEST_F(VlanOperStatusTest, globalSwitchOffRaisesAllThatAreEnabledAndNoSecondary) {
   for (uint16_t const vlanId : {10, 11, 12})
      configure(vlanId);
   configDir->intfConfig("Vlan11")->enabledIs(false);
   privateVlans->secondaryVlanIs(12, true);
   start();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   all->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);
   EXPECT_EQ(operStatus(11), down);
   EXPECT_EQ(operStatus(12), down);
}

TEST_F(VlanOperStatusTest, secondaryIsRaisedWhenItIsNoneAnyMore) {
   configure(10);
   portIs(10, "Ethernet1");
   privateVlans->secondaryVlanIs(10, true);
   start();
   EXPECT_EQ(operStatus(10), down);
   privateVlans->secondaryVlanDel(10);
   run();
   EXPECT_EQ(operStatus(10), up);
   privateVlans->secondaryVlanIs(10, false);
   run();
   EXPECT_EQ(operStatus(10), down) << "the key counts";
}

TEST_F(VlanOperStatusTest, changeIsCountedWithItsTimeAndARepeatIsNone) {
   configure(10);
   start();
   EXPECT_EQ(statusDir->intfStatus("Vlan10")->operStatusChange(),
             (Interface::OperStatusChange{.time = 1000.0, .count = 1}));
   Kem::activityManager()->advance(5);
   sm->doSetOperStatus("Vlan10");
   sm->doSyncOperStatus();
   EXPECT_EQ(statusDir->intfStatus("Vlan10")->operStatusChange(),
             (Interface::OperStatusChange{.time = 1000.0, .count = 1}));
   portIs(10, "Ethernet1");
   run();
   EXPECT_EQ(statusDir->intfStatus("Vlan10")->operStatusChange(),
             (Interface::OperStatusChange{.time = 1005.0, .count = 2}));
}

TEST_F(VlanOperStatusTest, restartChangesNothing) {
   configure(10);
   portIs(10, "Ethernet1");
   configure(11);
   statusDir->intfStatusIs("Vlan12");
   start();
   Kem::activityManager()->advance(5);
   sm = nullptr;
   start();
   EXPECT_EQ(changes(10), 1u);
   EXPECT_EQ(changes(11), 1u);
   EXPECT_EQ(changes(12), 0u) << "unknown is what a record begins with";
}

TEST_F(VlanOperStatusTest, manyPortsOfOneTurnAreOneEvaluation) {
   configure(10);
   start();
   trace.take();
   for (char const* const port : {"Ethernet1", "Ethernet2", "Ethernet3"})
      portIs(10, port);
   run(); // the VLAN's record is new, and evaluated with all its ports
   EXPECT_THAT(trace.take(), ElementsAre("intfId='Vlan10' vlanForwardable=1"));
   for (char const* const port : {"Ethernet1", "Ethernet2", "Ethernet3"})
      portDel(10, port);
   run();
   EXPECT_THAT(trace.take(), ElementsAre("intfId='Vlan10' vlanForwardable=0"));
}

// --- Configurations.

TEST_F(VlanOperStatusTest, configurationOfBothSourcesIsWatchedOnceAtTheStaticPlace) {
   auto const config = configure(10);
   auto const dynamic = ask(10);
   start();
   EXPECT_EQ(sm->vlanIntfConfig("Vlan10"), Kem::Ptr<Interface::VlanIntfConfig const>(config));
   trace.take();
   dynamic->autoStateIs(false);
   run();
   EXPECT_THAT(trace.take(), testing::IsEmpty());
   config->autoStateIs(false);
   run();
   EXPECT_EQ(trace.take().size(), 2u) << "one evaluation";

   configDir->intfConfigDel("Vlan10");
   run();
   EXPECT_EQ(sm->vlanIntfConfig("Vlan10"), Kem::Ptr<Interface::VlanIntfConfig const>(dynamic));
   dynList->intfConfigDel("Vlan10");
   run();
   EXPECT_FALSE(sm->vlanIntfConfig("Vlan10"));
}

TEST_F(VlanOperStatusTest, enabledIsFollowedBesideTheOperatorsWord) {
   auto const config = configure(10);
   portIs(10, "Ethernet1");
   start();
   config->enabledIs(false);
   run();
   EXPECT_EQ(operStatus(10), down);
   config->enabledIs(true);
   run();
   EXPECT_EQ(operStatus(10), up);
   config->enabledStateLocalIs(shutDown);
   run();
   EXPECT_EQ(operStatus(10), down);
}

TEST_F(VlanOperStatusTest, dynamicConfigurationIsFollowedTheSame) {
   auto const config = ask(10);
   statusDir->intfStatusIs("Vlan10")->intfConfigIs(config);
   start();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   config->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);
   config->enabledIs(false);
   run();
   EXPECT_EQ(operStatus(10), down);
}

TEST_F(VlanOperStatusTest, replacedConfigurationCountsBeforeTheReferenceIsWrittenAgain) {
   configure(10);
   start();
   configDir->newIntfConfig("Vlan10")->enabledIs(false);
   run();
   EXPECT_EQ(operStatus(10), down);
   configDir->intfConfig("Vlan10")->enabledIs(true);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown) << "the new one is watched";
   unsigned const before = changes(10);
   statusDir->intfStatus("Vlan10")->intfConfigIs(configDir->intfConfig("Vlan10"));
   run();
   EXPECT_EQ(changes(10), before);
}

TEST_F(VlanOperStatusTest, removedConfigurationIsNoneBeforeTheReferenceIsWrittenAgain) {
   configure(10);
   start();
   configDir->intfConfigDel("Vlan10");
   run();
   EXPECT_EQ(operStatus(10), unknown);

   // A dynamic one steps in.
   ask(10);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
}

TEST_F(VlanOperStatusTest, configurationThatOnlyTheStatusRefersToIsFollowedToo) {
   auto const dynamic = ask(10);
   statusDir->intfStatusIs("Vlan10")->intfConfigIs(dynamic);
   start();
   auto const config = configDir->intfConfigIs("Vlan10"); // the reference is not written again yet
   run();
   EXPECT_EQ(sm->vlanIntfConfig("Vlan10"), Kem::Ptr<Interface::VlanIntfConfig const>(config));
   dynamic->enabledIs(false);
   run();
   EXPECT_EQ(operStatus(10), down);
   config->enabledIs(false);
   config->autoStateIs(false);
   dynamic->enabledIs(true);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   dynamic->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);

   statusDir->intfStatus("Vlan10")->intfConfigIs(config);
   run();
   EXPECT_EQ(operStatus(10), down);
   trace.take();
   dynamic->autoStateIs(true);
   run();
   EXPECT_THAT(trace.take(), testing::IsEmpty()) << "nobody refers to it any more";
}

// --- Status records and VLANs.

TEST_F(VlanOperStatusTest, statusRecordThatComesOrIsReplacedIsDecided) {
   auto const config = configDir->intfConfigIs("Vlan10");
   portIs(10, "Ethernet1");
   start();
   EXPECT_THAT(trace.take(), Contains("there is no VlanIntfStatus for Vlan10"));
   statusDir->intfStatusIs("Vlan10")->intfConfigIs(config);
   run();
   EXPECT_EQ(operStatus(10), up);
   auto const made = statusDir->newIntfStatus("Vlan10");
   made->intfConfigIs(config);
   run();
   EXPECT_EQ(made->operStatus(), up);
   made->intfConfigIs(nullptr);
   run();
   EXPECT_EQ(made->operStatus(), unknown) << "the new one is followed";
   statusDir->intfStatusDel("Vlan10");
   run();
   trace.take();
   made->intfConfigIs(config);
   run();
   EXPECT_EQ(made->operStatus(), unknown);
   EXPECT_THAT(trace.take(), testing::IsEmpty()) << "the one that went isn't";
}

TEST_F(VlanOperStatusTest, replacedVlanStatusIsFollowed) {
   configure(10);
   portIs(10, "Ethernet1");
   start();
   auto const made = vlanStatusDir->newVlanStatus(10);
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   made->vlanPortStatusIs("Ethernet2", true);
   run();
   EXPECT_EQ(operStatus(10), up);
}

TEST_F(VlanOperStatusTest, nameThatIsNoVlanInterfaceIsNamedAndLeftAlone) {
   for (char const* const name : {"Vlan0", "Vlan4095", "Vlan10x", "Vlan007", "Loopback1"}) {
      auto const config = configDir->intfConfigIs(name);
      dynList->intfConfigIs(source->intfConfigIs(name));
      statusDir->intfStatusIs(name)->intfConfigIs(config);
   }
   configure(10);
   portIs(10, "Ethernet1");
   start();
   auto const traced = trace.take();
   for (char const* const name : {"Vlan0", "Vlan4095", "Vlan10x", "Vlan007", "Loopback1"}) {
      EXPECT_THAT(traced,
                  Contains(std::string(name) + " is no VLAN interface: its status is left alone").Times(1));
      EXPECT_EQ(statusDir->intfStatus(name)->operStatus(), unknown);
      configDir->intfConfig(name)->enabledIs(false);
   }
   all->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(10), up);
   try {
      sm->doSetOperStatus("Vlan4095");
      ADD_FAILURE() << "nothing raised";
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
   }
}

TEST_F(VlanOperStatusTest, firstAndLastVlanAreDecided) {
   for (uint16_t const vlanId : {1, 4094}) {
      configure(vlanId);
      portIs(vlanId, "Ethernet1");
   }
   start();
   EXPECT_EQ(operStatus(1), up);
   EXPECT_EQ(operStatus(4094), up);
}

TEST_F(VlanOperStatusTest, whatChangedWhileNothingWasDeliveredIsLookedUp) {
   for (uint16_t const vlanId : {10, 11, 12})
      configure(vlanId);
   portIs(11, "Ethernet1");
   start();
   sm->hasNotificationActiveIs(false);
   statusDir->intfStatusDel("Vlan12");
   configDir->intfConfigDel("Vlan10");
   vlanStatusDir->vlanStatusDel(11);
   portIs(13, "Ethernet1");
   configure(13);
   run();
   sm->hasNotificationActiveIs(true);
   run();
   EXPECT_EQ(operStatus(10), unknown);
   EXPECT_EQ(operStatus(11), lowerLayerDown);
   EXPECT_EQ(operStatus(13), up);
   EXPECT_FALSE(sm->vlanIntfConfig("Vlan10"));
   portIs(11, "Ethernet1");
   run();
   EXPECT_EQ(operStatus(11), up);

   sm->kemDoZombieReactors(true);
   privateVlans->secondaryVlanIs(11, true);
   all->autoStateIs(false);
   run();
   EXPECT_EQ(operStatus(11), up);
   sm->kemDoZombieReactors(false);
   run();
   EXPECT_EQ(operStatus(11), down);
}

TEST_F(VlanOperStatusTest, zombieFollowsNothing) {
   auto const config = configure(10);
   auto const dynamic = ask(11);
   statusDir->intfStatusIs("Vlan11")->intfConfigIs(dynamic);
   configDir->intfConfigIs("Vlan11"); // watched, but not what the status refers to
   portIs(10, "Ethernet1");
   start();
   sm->kemDoZombieReactors(true);
   trace.take();
   config->enabledIs(false);
   dynamic->enabledIs(false);
   statusDir->intfStatus("Vlan10")->intfConfigIs(nullptr);
   statusDir->intfStatusIs("Vlan12");
   portDel(10, "Ethernet1");
   portIs(11, "Ethernet1");
   configDir->intfConfigIs("Vlan12");
   dynList->intfConfigDel("Vlan11");
   privateVlans->secondaryVlanIs(10, true);
   all->autoStateIs(false);
   run();
   EXPECT_THAT(trace.take(), testing::IsEmpty());
   sm->kemDoZombieReactors(false);
   run();
   EXPECT_EQ(operStatus(10), unknown);
   EXPECT_EQ(operStatus(11), down);
}

// --- The start.

TEST_F(VlanOperStatusTest, nothingIsDecidedBeforeTheStart) {
   configure(10);
   sm = Kem::makePtr<VlanOperStatusSm>(inputs());
   EXPECT_FALSE(sm->initialized());
   EXPECT_THAT(trace.take(), ElementsAre("skipping because not initialized yet"));
   EXPECT_EQ(operStatus(10), unknown);
   sm->handleInitialized();
   EXPECT_TRUE(sm->initialized());
   EXPECT_EQ(operStatus(10), lowerLayerDown);
}

TEST_F(VlanOperStatusTest, startWatchesConfigurationsBeforeItDecidesAll) {
   configure(10);
   dynList->intfConfigIs(source->intfConfigIs("Vlan11"));
   statusDir->intfStatusIs("Vlan12");
   start();
   EXPECT_THAT(trace.take(),
               ElementsAre("skipping because not initialized yet", // Vlan10
                           "skipping because not initialized yet", // Vlan12
                           "no VlanStatus for 10", "intfId='Vlan10' vlanForwardable=0",
                           "there is no VlanIntfStatus for Vlan11",
                           "handling VlanIntfStatus'es that already exist", "no VlanStatus for 10",
                           "intfId='Vlan10' vlanForwardable=0", "Vlan12 has no configuration yet"));
}

using VlanOperStatusDeathTest = VlanOperStatusTest;

TEST_F(VlanOperStatusDeathTest, invariantsEndTheProcess) {
   auto const assertion = [](char const* condition) {
      return "Assertion \"" + std::string(condition) + "\" failed";
   };
   sm = Kem::makePtr<VlanOperStatusSm>(inputs());
   EXPECT_DEATH(sm->doSyncOperStatus(), assertion("initialized\\(\\)"));
   EXPECT_DEATH(sm->handleVlanStatus(10), assertion("initialized\\(\\)"));
   EXPECT_DEATH(VlanOperStatusSm::handleVlanStatus(), assertion("false"));
   auto in = inputs();
   in.dynVlanIntfDir = nullptr;
   auto const missing = assertion("dynVlanIntfList\\(\\) && dynVlanIntfDir\\(\\)");
   EXPECT_DEATH(Kem::makeInitialized<VlanOperStatusSm>(in), missing);
   in = inputs();
   in.dynVlanIntfList = nullptr;
   EXPECT_DEATH(Kem::makeInitialized<VlanOperStatusSm>(in), missing);
}

TEST_F(VlanOperStatusTest, rootMakesOneMachineAndRefusesOtherInputs) {
   auto const root = Kem::makePtr<VlanOperStatus::Root>("vosr");
   EXPECT_EQ(root->name(), Kem::Name("vosr"));
   EXPECT_FALSE(root->vlanOperStatusSm());
   configure(10);
   auto const made = root->vlanOperStatusSmIs(inputs());
   EXPECT_TRUE(made->initialized());
   EXPECT_EQ(operStatus(10), lowerLayerDown);
   EXPECT_EQ(root->vlanOperStatusSmIs(inputs()), made);

   auto const attributeOf = [&](auto change) -> std::string {
      auto in = inputs();
      change(in);
      try {
         root->vlanOperStatusSmIs(in);
      } catch (Kem::RangeException const& e) {
         std::string const text = e.what();
         std::string const before =
             "Reinstantiating the pointer interface where constructor parameter attribute _";
         EXPECT_EQ(text.rfind(before, 0), 0u) << text;
         return text.substr(before.size(), text.find(' ', before.size()) - before.size());
      }
      return {};
   };
   EXPECT_EQ(attributeOf([](auto& in) { in.vlanIntfStatusDir = nullptr; }), "vlanIntfStatusDir");
   EXPECT_EQ(attributeOf([](auto& in) { in.vlanStatusDir = nullptr; }), "vlanStatusDir");
   EXPECT_EQ(attributeOf([](auto& in) { in.vlanIntfConfigDir = nullptr; }), "vlanIntfConfigDir");
   EXPECT_EQ(attributeOf([](auto& in) { in.dynVlanIntfDir = nullptr; }), "dynVlanIntfDir");
   EXPECT_EQ(attributeOf([](auto& in) { in.dynVlanIntfList = nullptr; }), "dynVlanIntfList");
   EXPECT_EQ(attributeOf([](auto& in) { in.privateVlanLibState = nullptr; }), "privateVlanLibState");
   EXPECT_EQ(attributeOf([](auto& in) { in.allVlanIntfAutoState = nullptr; }), "allVlanIntfAutoState");

   root->isNondestructingIs(true);
   EXPECT_TRUE(made->isNondestructing());
   root->kemDoZombieReactors(true);
   portIs(10, "Ethernet1");
   run();
   EXPECT_EQ(operStatus(10), lowerLayerDown);
}

// --- Histories.

struct VlanOperStatusHistoryTest : VlanOperStatusTest, testing::WithParamInterface<unsigned> {
   unsigned pick(unsigned below) { return std::uniform_int_distribution<unsigned>(0, below - 1)(random); }
   bool coin() { return pick(2); }

   void changeConfiguration(Sulvi::IntfId intfId) {
      bool const isStatic = coin();
      auto config = isStatic ? configDir->intfConfig(intfId) : source->intfConfig(intfId);
      switch (pick(6)) {
      case 0: // comes, or is replaced
         config = isStatic ? configDir->newIntfConfig(intfId) : source->newIntfConfig(intfId);
         if (!isStatic)
            dynList->intfConfigIs(config);
         break;
      case 1:
         if (isStatic) {
            configDir->intfConfigDel(intfId);
         } else {
            source->intfConfigDel(intfId);
            dynList->intfConfigDel(intfId);
         }
         break;
      case 2:
      case 3:
         if (config)
            config->autoStateIs(coin());
         break;
      case 4:
         if (config)
            config->enabledIs(pick(4) != 0);
         break;
      default:
         if (config)
            config->enabledStateLocalIs(pick(4) ? EnabledState::enabledStateDefault : shutDown);
      }
   }
   void changeStatus(Sulvi::IntfId intfId) {
      unsigned const what = pick(8);
      if (what == 0)
         statusDir->intfStatusDel(intfId);
      else if (what == 1)
         statusDir->newIntfStatus(intfId);
      else if (what == 2)
         statusDir->intfStatusIs(intfId)->intfConfigIs(nullptr);
      else
         statusDir->intfStatusIs(intfId)->intfConfigIs(coin() ? configDir->intfConfig(intfId)
                                                              : source->intfConfig(intfId));
   }
   void changeVlan(uint16_t vlanId) {
      static constexpr char const* ports[] = {"Cpu", "Ethernet1", "Port-Channel1"};
      Sulvi::IntfId const port = ports[pick(3)];
      switch (pick(6)) {
      case 0:
         vlanStatusDir->vlanStatusDel(vlanId);
         break;
      case 1:
         vlanStatusDir->newVlanStatus(vlanId);
         break;
      case 2:
         vlanStatusDir->vlanStatusIs(vlanId)->vlanPortStatusDel(port);
         break;
      case 3:
         if (coin())
            privateVlans->secondaryVlanIs(vlanId, true);
         else
            privateVlans->secondaryVlanDel(vlanId);
         break;
      default:
         vlanStatusDir->vlanStatusIs(vlanId)->vlanPortStatusIs(port, coin());
      }
   }
   void change() {
      uint16_t const vlanId = static_cast<uint16_t>(1 + pick(4));
      switch (pick(10)) {
      case 0:
         all->autoStateIs(coin());
         break;
      case 1:
      case 2:
      case 3:
         changeStatus(intf(vlanId));
         break;
      case 4:
      case 5:
      case 6:
         changeVlan(vlanId);
         break;
      default:
         changeConfiguration(intf(vlanId));
      }
   }
   std::map<std::string, std::pair<IntfOperStatus, uint32_t>> statuses() const {
      std::map<std::string, std::pair<IntfOperStatus, uint32_t>> found;
      for (auto const& [intfId, status] : statusDir->intfStatus())
         found[intfId.stringValue().str()] = {status->operStatus(), status->operStatusChange().count};
      return found;
   }
   std::mt19937 random{GetParam()};
};

// A machine that starts on the records as they are finds nothing to change.
TEST_P(VlanOperStatusHistoryTest, endsAsAFreshStartWouldBegin) {
   start();
   std::map<IntfOperStatus, unsigned> seen;
   for (int round = 0; round < 300; ++round) {
      for (unsigned i = 0, count = 1 + pick(4); i < count; ++i)
         change();
      run();
      auto const before = statuses();
      auto const fresh = Kem::makeInitialized<VlanOperStatusSm>(inputs());
      ASSERT_EQ(statuses(), before) << "round " << round;
      for (auto const& [name, status] : before)
         ++seen[status.first];
   }
   EXPECT_EQ(seen.size(), 4u) << "the histories reach every status";
}

INSTANTIATE_TEST_SUITE_P(Seeds, VlanOperStatusHistoryTest, testing::Range(1u, 21u));

} // namespace
