#include "Vorn/Rules/SubIntfStatus.h"

#include "Vorn/Rules/SubIntfIds.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusLocal.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace Vorn {
namespace {

using Interface::IntfForwardingModel;
using Interface::IntfOperStatus;
using Interface::SubIntfEncapType;

// Facts of a subinterface that is up.
SubIntfFacts goodFacts() {
   return {
       .isEnabled = true,
       .hasBridgeMacAddr = true,
       .vlanId = 10,
       .isVlanIdTaken = false,
       .encapType = SubIntfEncapType::subIntfEncapDot1q,
       .hasParentStatus = true,
       .parentOperStatus = IntfOperStatus::intfOperUp,
       .parentForwardingModel = IntfForwardingModel::intfForwardingModelRouted,
       .isProgrammed = true,
   };
}

struct RowCase {
   SubIntfRow row;
   std::function<void(SubIntfFacts&)> spoil;
   IntfOperStatus operStatus;
   bool programInHw;
   char const* traceText;
};

std::vector<RowCase> const& rowCases() {
   static std::vector<RowCase> const cases{
       {SubIntfRow::notEnabled, [](SubIntfFacts& f) { f.isEnabled = false; }, IntfOperStatus::intfOperDown,
        false, " is not enabled"},
       {SubIntfRow::noBridgeMacAddr, [](SubIntfFacts& f) { f.hasBridgeMacAddr = false; },
        IntfOperStatus::intfOperDown, false, "bridge mac addr is zero"},
       {SubIntfRow::noVlanId, [](SubIntfFacts& f) { f.vlanId = 0; }, IntfOperStatus::intfOperLowerLayerDown,
        false, "vlanId is not configured.  vlanId=0"},
       {SubIntfRow::vlanIdTaken, [](SubIntfFacts& f) { f.isVlanIdTaken = true; },
        IntfOperStatus::intfOperLowerLayerDown, false, "Invalid config.  Duplicate vlanId=10"},
       {SubIntfRow::noEncap, [](SubIntfFacts& f) { f.encapType = SubIntfEncapType::subIntfEncapNone; },
        IntfOperStatus::intfOperLowerLayerDown, false, "encapType is not set.  encapType=subIntfEncapNone"},
       {SubIntfRow::noParentStatus, [](SubIntfFacts& f) { f.hasParentStatus = false; },
        IntfOperStatus::intfOperLowerLayerDown, false, "parent intf status is missing"},
       {SubIntfRow::parentDown, [](SubIntfFacts& f) { f.parentOperStatus = IntfOperStatus::intfOperDormant; },
        IntfOperStatus::intfOperLowerLayerDown, false, "parent intf operationally down"},
       {SubIntfRow::parentNotRouted,
        [](SubIntfFacts& f) { f.parentForwardingModel = IntfForwardingModel::intfForwardingModelBridged; },
        IntfOperStatus::intfOperLowerLayerDown, false, "parent intf not in routed forwarding model"},
       {SubIntfRow::notProgrammed, [](SubIntfFacts& f) { f.isProgrammed = false; },
        IntfOperStatus::intfOperDormant, true,
        "hardware programming for the subinterface was not successful"},
   };
   return cases;
}

TEST(SubIntfStatus, EachConditionAloneSettlesItsRow) {
   for (auto const& row : rowCases()) {
      auto facts = goodFacts();
      row.spoil(facts);
      EXPECT_EQ(subIntfRow(facts), row.row);
      EXPECT_EQ(operStatusOf(row.row), row.operStatus) << row.traceText;
      EXPECT_EQ(wantsProgramInHw(row.row), row.programInHw) << row.traceText;
      EXPECT_EQ(subIntfTraceText(row.row, facts), row.traceText);
      EXPECT_NE(subIntfReason(row.row, facts), subIntfReason(SubIntfRow::up, facts));
   }
}

// A duplicate VLAN id is said even while the parent is down, and so on for each pair.
TEST(SubIntfStatus, TheFirstConditionThatHoldsWins) {
   for (size_t first = 0; first < rowCases().size(); ++first) {
      for (size_t second = first + 1; second < rowCases().size(); ++second) {
         if (rowCases()[first].row == SubIntfRow::noVlanId &&
             rowCases()[second].row == SubIntfRow::vlanIdTaken)
            continue; // without a VLAN id there is nothing to take
         auto facts = goodFacts();
         rowCases()[second].spoil(facts);
         rowCases()[first].spoil(facts);
         EXPECT_EQ(subIntfRow(facts), rowCases()[first].row) << rowCases()[second].traceText;
      }
   }
}

TEST(SubIntfStatus, WithoutAnObstacleItIsUp) {
   auto const row = subIntfRow(goodFacts());
   EXPECT_EQ(row, SubIntfRow::up);
   EXPECT_EQ(operStatusOf(row), IntfOperStatus::intfOperUp);
   EXPECT_TRUE(wantsProgramInHw(row));
   EXPECT_EQ(subIntfTraceText(row, goodFacts()), "");
   EXPECT_EQ(subIntfReason(row, goodFacts()), "nothing holds it down");
}

TEST(SubIntfStatus, AVlanIdThatNoTagCanCarryIsTakenAsNone) {
   for (uint16_t const vlanId : {4095, 4096, 65535}) {
      auto facts = goodFacts();
      facts.vlanId = vlanId;
      EXPECT_EQ(subIntfRow(facts), SubIntfRow::noVlanId) << vlanId;
      EXPECT_EQ(subIntfTraceText(SubIntfRow::noVlanId, facts),
                "vlanId is not configured.  vlanId=" + std::to_string(vlanId));
      EXPECT_EQ(subIntfReason(SubIntfRow::noVlanId, facts),
                "VLAN id " + std::to_string(vlanId) + " is above 4094");
   }
   auto facts = goodFacts();
   facts.vlanId = 4094;
   EXPECT_EQ(subIntfRow(facts), SubIntfRow::up);
}

TEST(SubIntfStatus, OnlySubinterfacesOfTheSameParentThatAreCompleteTakeAVlanId) {
   auto const configDir = Interface::SubIntfConfigDir::make();
   auto const statusDir = Interface::SubIntfStatusDir::make();
   auto const statusLocalDir = Interface::SubIntfStatusLocalDir::make();
   auto const add = [&](char const* intfId, uint16_t vlanId) {
      configDir->intfConfigIs(intfId)->vlanIdIs(vlanId);
      statusDir->intfStatusIs(intfId);
      statusLocalDir->intfStatusLocalIs(intfId);
   };
   auto const isTaken = [&] {
      return isVlanIdTaken("Ethernet1.10", *configDir, *statusDir, *statusLocalDir);
   };
   EXPECT_FALSE(isTaken()); // there is no such subinterface
   add("Ethernet1.10", 10);
   add("Ethernet1.11", 11);
   add("Ethernet2.10", 10);
   add("Ethernet1.4095", 10);
   EXPECT_FALSE(isTaken());
   add("Ethernet1.12", 10);
   EXPECT_TRUE(isTaken());
   statusDir->intfStatusDel("Ethernet1.12");
   EXPECT_FALSE(isTaken());
   statusDir->intfStatusIs("Ethernet1.12");
   statusLocalDir->intfStatusLocalDel("Ethernet1.12");
   EXPECT_FALSE(isTaken());
   configDir->intfConfig("Ethernet1.10")->vlanIdIs(0);
   configDir->intfConfig("Ethernet1.11")->vlanIdIs(0);
   EXPECT_FALSE(isTaken());
}

TEST(SubIntfStatus, FactsComeFromTheRecords) {
   auto const config = Interface::SubIntfConfig::make("Ethernet1.10");
   config->vlanIdIs(10);
   config->encapTypeIs(SubIntfEncapType::subIntfEncapDot1q);
   auto const parent = Interface::IntfStatus::make("Ethernet1");
   parent->operStatusIs(IntfOperStatus::intfOperUp);
   parent->forwardingModelIs(IntfForwardingModel::intfForwardingModelRouted);
   auto const hw = Interface::Hardware::SubIntfStatus::make("Ethernet1.10");
   auto const rowNow = [&] { return subIntfRow(subIntfFacts(*config, true, false, parent.ptr(), hw.ptr())); };
   EXPECT_EQ(rowNow(), SubIntfRow::notProgrammed);
   hw->hardwareSuccessIs(true);
   EXPECT_EQ(rowNow(), SubIntfRow::up);
   EXPECT_EQ(subIntfRow(subIntfFacts(*config, true, false, parent.ptr(), nullptr)),
             SubIntfRow::notProgrammed);
   EXPECT_EQ(subIntfRow(subIntfFacts(*config, true, false, nullptr, hw.ptr())), SubIntfRow::noParentStatus);
   EXPECT_EQ(subIntfRow(subIntfFacts(*config, true, true, parent.ptr(), hw.ptr())), SubIntfRow::vlanIdTaken);
   EXPECT_EQ(subIntfRow(subIntfFacts(*config, false, false, parent.ptr(), hw.ptr())),
             SubIntfRow::noBridgeMacAddr);
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_EQ(rowNow(), SubIntfRow::notEnabled);
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateEnabled);
   config->enabledIs(false);
   EXPECT_EQ(rowNow(), SubIntfRow::notEnabled);
}

TEST(SubIntfIds, PortsAndPortChannelsHaveSubinterfaces) {
   EXPECT_EQ(subIntfNumber("Ethernet3/1.100"), 100u);
   EXPECT_EQ(parentOfSubIntf("Ethernet3/1.100"), Sulvi::IntfId("Ethernet3/1"));
   EXPECT_EQ(subIntfNumber("Port-Channel5.7"), 7u);
   EXPECT_EQ(parentOfSubIntf("Port-Channel5.7"), Sulvi::IntfId("Port-Channel5"));
   EXPECT_EQ(subIntfIdProblem("Ethernet3/1.4094"), "");
   EXPECT_EQ(subIntfIdProblem("Port-Channel5.0"), "");
}

TEST(SubIntfIds, OtherNamesHaveAProblemInWords) {
   EXPECT_EQ(subIntfIdProblem("Ethernet3/1.4095"), "its number is above 4094");
   EXPECT_EQ(subIntfIdProblem("Ethernet1.99999999999"), "its number is above 4094");
   for (char const* const name : {"Loopback0.1", "Vlan10.5", "Ethernet1", "Foo.1", ""}) {
      EXPECT_EQ(subIntfIdProblem(name), "not a subinterface of an Ethernet port or a port channel") << name;
      EXPECT_EQ(subIntfNumber(name), std::nullopt) << name;
      EXPECT_EQ(parentOfSubIntf(name), Sulvi::IntfId()) << name;
   }
}

} // namespace
} // namespace Vorn
