#include "Vorn/BridgingSm/SviMappingSm.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using Bridging::VlanType;
using testing::HasSubstr;
using Vorn::TestBridge;

// A primary VLAN 10 with a VLAN interface, its secondaries 20 and 30, and the plain VLAN 40, also with one.
struct SviMappingSmTest : testing::Test {
   SviMappingSmTest() {
      bridge.hasLibrary = true;
      bridge.vlan(10);
      bridge.secondaryVlan(20, 10);
      bridge.secondaryVlan(30, 10);
      bridge.vlan(40);
      bridge.vlanIntf(10);
      bridge.vlanIntf(40);
   }
   std::string cpu(uint16_t vlanId) { return bridge.membership(vlanId, "Cpu"); }
   // The resolved mapping: "20 30 default", "20", "none".
   std::string mapping(uint16_t primary) {
      auto const out = bridge.config->sviMapping(primary);
      if (!out)
         return "none";
      std::vector<int> served;
      out->secondaryVlan().forEach([&](Bridging::VlanId vlanId, bool is) {
         EXPECT_TRUE(is);
         served.push_back(vlanId);
      });
      std::sort(served.begin(), served.end());
      std::string text;
      for (int const vlanId : served)
         text += std::to_string(vlanId) + ' ';
      return text + (out->defaultSviMapping() ? "default" : "");
   }

   TestBridge bridge;
};

TEST_F(SviMappingSmTest, withoutAMappingEverySecondaryIsServed) {
   bridge.start();
   EXPECT_EQ(mapping(10), "none");
   EXPECT_EQ(cpu(20), "tagged");
   EXPECT_EQ(cpu(30), "tagged");
}

TEST_F(SviMappingSmTest, mappingServesTheSecondariesThatItNames) {
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.start();
   EXPECT_EQ(mapping(10), "20 ");
   EXPECT_EQ(cpu(20), "tagged");
   EXPECT_EQ(cpu(30), "");
   bridge.sviMapping(10)->secondaryVlanIs(30, true);
   bridge.sviMapping(10)->secondaryVlanDel(20);
   bridge.run();
   EXPECT_EQ(mapping(10), "30 ");
   EXPECT_EQ(cpu(20), "");
   EXPECT_EQ(cpu(30), "tagged");
   bridge.sviMapping(10)->secondaryVlanIs(30, false);
   bridge.run();
   EXPECT_EQ(mapping(10), "") << "false is none";
   EXPECT_EQ(cpu(30), "");
   bridge.sviMapping(10)->defaultSviMappingIs(true);
   bridge.run();
   EXPECT_EQ(mapping(10), "default");
   EXPECT_EQ(cpu(20), "tagged");
   EXPECT_EQ(cpu(30), "tagged");
}

TEST_F(SviMappingSmTest, suspendedSecondaryIsNeverServed) {
   bridge.sviMapping(10)->defaultSviMappingIs(true);
   bridge.vlan(20)->adminStateIs(Bridging::VlanAdminState::suspended);
   bridge.start();
   EXPECT_EQ(cpu(20), "");
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.run();
   EXPECT_EQ(cpu(20), "");
   EXPECT_EQ(cpu(30), "tagged");
}

TEST_F(SviMappingSmTest, mappingThatGoesServesAllAgain) {
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.start();
   EXPECT_EQ(cpu(30), "");
   bridge.cli->sviMappingDel(10);
   bridge.run();
   EXPECT_EQ(mapping(10), "none");
   EXPECT_FALSE(bridge.sm->privateVlans().sviMappingSm(10));
   EXPECT_EQ(cpu(20), "tagged");
   EXPECT_EQ(cpu(30), "tagged");
}

TEST_F(SviMappingSmTest, mappingOfThePreviousRunGoesAtTheStart) {
   bridge.config->sviMappingIs(40)->secondaryVlanIs(41, true);
   auto const left = bridge.config->sviMappingIs(10);
   left->secondaryVlanIs(30, true);
   left->defaultSviMappingIs(true);
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.start();
   EXPECT_EQ(mapping(40), "none");
   EXPECT_EQ(mapping(10), "20 ");
   EXPECT_EQ(cpu(30), "");
}

TEST_F(SviMappingSmTest, mappingThatIsMadeAgainInOneTurnIsFollowedAsTheNewOne) {
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.start();
   bridge.cli->sviMappingDel(10);
   bridge.sviMapping(10)->secondaryVlanIs(30, true);
   bridge.run();
   EXPECT_EQ(mapping(10), "30 ");
   EXPECT_EQ(cpu(20), "");
   EXPECT_EQ(cpu(30), "tagged");
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.run();
   EXPECT_EQ(mapping(10), "20 30 ") << "the new one is followed";
}

TEST_F(SviMappingSmTest, mappingsOfAnotherCommandLineReplaceTheOldOnes) {
   bridge.sviMapping(10)->secondaryVlanIs(20, true);
   bridge.sviMapping(40)->secondaryVlanIs(41, true);
   bridge.start();
   auto const other = Bridging::Input::CliConfig::make();
   other->sviMappingIs(10)->secondaryVlanIs(30, true);
   bridge.sm->cliConfigIs(other);
   bridge.run();
   EXPECT_EQ(mapping(10), "30 ");
   EXPECT_EQ(mapping(40), "none");
   EXPECT_EQ(cpu(20), "");
   EXPECT_EQ(cpu(30), "tagged");
   other->sviMappingIs(10)->defaultSviMappingIs(true);
   bridge.sviMapping(10)->secondaryVlanIs(99, true); // of the old one
   bridge.run();
   EXPECT_EQ(mapping(10), "30 default");
}

// A VLAN that is named by mistake keeps the processor's port that it has by itself, as after a restart.
TEST_F(SviMappingSmTest, plainVlanThatIsNamedByMistakeIsLeftAlone) {
   bridge.start();
   EXPECT_EQ(cpu(40), "tagged");
   bridge.sviMapping(10)->secondaryVlanIs(40, true);
   bridge.run();
   bridge.sviMapping(10)->secondaryVlanDel(40);
   bridge.run();
   EXPECT_EQ(cpu(40), "tagged");
   bridge.sviMapping(50)->secondaryVlanIs(40, true); // and of a primary that isn't there
   bridge.run();
   EXPECT_EQ(cpu(40), "tagged");
}

TEST_F(SviMappingSmTest, mappingOfAVlanThatIsNoPrimaryIsCopiedAndSaysNothing) {
   bridge.sviMapping(20)->secondaryVlanIs(30, true);
   bridge.start();
   EXPECT_EQ(mapping(20), "30 ");
   EXPECT_EQ(cpu(20), "tagged");
   EXPECT_EQ(cpu(30), "tagged");
}

TEST_F(SviMappingSmTest, handlersWaitForTheFirstEvaluation) {
   bridge.start();
   auto const sm = Kem::makePtr<Vorn::SviMappingSm>(*bridge.sm, bridge.sviMapping(10),
                                                    Bridging::SviMappingState::make(10));
   EXPECT_EQ(sm->primaryVlan(), 10);
   EXPECT_DEATH(sm->handleSecondaryVlan(20), HasSubstr("\"initialized()\""));
   EXPECT_DEATH(sm->handleDefaultSviMapping(), HasSubstr("\"initialized()\""));
   EXPECT_EQ(Kem::makePtr<Vorn::SviMappingSm>(*bridge.sm, nullptr, Bridging::SviMappingState::make(10))
                 ->primaryVlan(),
             1);
}

} // namespace
