#include "Vorn/Rules/VlanIntfStatus.h"

#include "records/Bridging/VlanStatus.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/VlanIntfConfig.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using Interface::IntfOperStatus;
using Vorn::VlanIntfFacts;
using Vorn::vlanIntfRow;
using Vorn::VlanIntfRow;

TEST(VlanIntfStatusRules, firstRowThatFitsHolds) {
   // Facts that fit every row, taken away one by one from the front.
   VlanIntfFacts facts;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::noConfig);
   facts.hasConfig = true;
   facts.isSecondary = true;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::notEnabled);
   facts.enabled = true;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::secondaryVlan);
   facts.isSecondary = false;
   facts.autoState = facts.allAutoState = false;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::noVlanStatusDir) << "autostate doesn't count yet";
   facts.hasVlanStatusDir = true;
   facts.isForwardable = true;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::forwardable);
   facts.isForwardable = false;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::ownAutoStateOff);
   facts.autoState = true;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::allAutoStateOff);
   facts.allAutoState = true;
   EXPECT_EQ(vlanIntfRow(facts), VlanIntfRow::noForwardingPort);
}

TEST(VlanIntfStatusRules, everyRowHasItsStatusAndAReasonOfItsOwn) {
   std::pair<VlanIntfRow, IntfOperStatus> const statuses[] = {
       {VlanIntfRow::noConfig, IntfOperStatus::intfOperUnknown},
       {VlanIntfRow::notEnabled, IntfOperStatus::intfOperDown},
       {VlanIntfRow::secondaryVlan, IntfOperStatus::intfOperDown},
       {VlanIntfRow::noVlanStatusDir, IntfOperStatus::intfOperLowerLayerDown},
       {VlanIntfRow::forwardable, IntfOperStatus::intfOperUp},
       {VlanIntfRow::ownAutoStateOff, IntfOperStatus::intfOperUp},
       {VlanIntfRow::allAutoStateOff, IntfOperStatus::intfOperUp},
       {VlanIntfRow::noForwardingPort, IntfOperStatus::intfOperLowerLayerDown},
   };
   std::set<std::string> reasons;
   for (auto const& [row, status] : statuses) {
      EXPECT_EQ(operStatusOf(row), status) << reasonOf(row);
      EXPECT_TRUE(reasons.insert(reasonOf(row)).second) << reasonOf(row);
   }
}

TEST(VlanIntfStatusRules, portCountsByBeingListedUnlessItIsTheCpu) {
   auto const dir = Bridging::VlanStatusDir::make();
   EXPECT_FALSE(Vorn::isVlanForwardable(*dir, 10));
   auto const vlan = dir->vlanStatusIs(10);
   EXPECT_FALSE(Vorn::isVlanForwardable(*dir, 10));
   vlan->vlanPortStatusIs("Cpu", true);
   EXPECT_FALSE(Vorn::isVlanForwardable(*dir, 10));
   vlan->vlanPortStatusIs("Ethernet1", false);
   EXPECT_TRUE(Vorn::isVlanForwardable(*dir, 10));
   vlan->vlanPortStatusDel("Cpu");
   EXPECT_TRUE(Vorn::isVlanForwardable(*dir, 10));
   EXPECT_FALSE(Vorn::isVlanForwardable(*dir, 11));
}

TEST(VlanIntfStatusRules, factsAreReadFromTheRecords) {
   auto const config = Interface::VlanIntfConfig::make("Vlan10");
   auto const vlans = Bridging::VlanStatusDir::make();
   auto const privateVlans = PrivateVlanLib::LibState::make();
   auto const all = Interface::AllVlanIntfAutoState::make();
   auto const facts = [&] {
      return Vorn::vlanIntfFacts(config.ptr(), 10, vlans.ptr(), privateVlans.ptr(), all.ptr());
   };
   EXPECT_TRUE(facts().hasConfig);
   EXPECT_TRUE(facts().enabled);
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_FALSE(facts().enabled);
   EXPECT_TRUE(facts().autoState);
   config->autoStateIs(false);
   EXPECT_FALSE(facts().autoState);
   EXPECT_FALSE(facts().isSecondary);
   privateVlans->secondaryVlanIs(10, false);
   EXPECT_TRUE(facts().isSecondary) << "the key counts, not the value";
   EXPECT_FALSE(facts().isForwardable);
   vlans->vlanStatusIs(10)->vlanPortStatusIs("Ethernet1", true);
   EXPECT_TRUE(facts().isForwardable);
   EXPECT_TRUE(facts().allAutoState);
   all->autoStateIs(false);
   EXPECT_FALSE(facts().allAutoState);

   auto const none = Vorn::vlanIntfFacts(nullptr, 10, nullptr, nullptr, nullptr);
   EXPECT_FALSE(none.hasConfig);
   EXPECT_FALSE(none.enabled);
   EXPECT_FALSE(none.hasVlanStatusDir);
   EXPECT_FALSE(none.isForwardable);
   EXPECT_FALSE(none.isSecondary);
   EXPECT_TRUE(none.allAutoState);
}

TEST(VlanIntfStatusRules, configurationOfAnotherKindHasTheDefaultAutoState) {
   auto const config = Interface::SubIntfConfig::make("Ethernet1.10");
   auto const facts = Vorn::vlanIntfFacts(config.ptr(), 10, nullptr, nullptr, nullptr);
   EXPECT_TRUE(facts.hasConfig);
   EXPECT_TRUE(facts.autoState);
}

} // namespace
