// The world of the tests of internal VLANs: a bridge with the range 4000 to 4002, and look-ups of what a port
// holds.
#pragma once

#include "Vorn/testing/TestBridge.h"

namespace Vorn {

struct InternalVlansTest : testing::Test {
   static constexpr Kem::Seconds startTime = TestBridge::startTime;

   InternalVlansTest() { bridge.internalVlansAre(4000, 4002); }
   uint16_t allocate() { return bridge.sm->allocateInternalVlanId(); }
   // Why the allocation raises.
   std::string refusal() {
      try {
         return "gave " + std::to_string(allocate());
      } catch (Kem::RangeException const& e) {
         return e.what();
      }
   }
   void expectHolds(Sulvi::IntfId intfId, uint16_t vlanId) {
      EXPECT_EQ(bridge.mode(intfId), "routed " + std::to_string(vlanId));
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), vlanId);
      EXPECT_EQ(bridge.sm->routedPort(vlanId), intfId);
      EXPECT_EQ(bridge.vlansOf(intfId), std::vector<uint16_t>{vlanId});
      ASSERT_TRUE(bridge.resolvedVlan(vlanId));
      EXPECT_TRUE(bridge.resolvedVlan(vlanId)->internal());
   }
   void expectHoldsNothing(Sulvi::IntfId intfId) {
      EXPECT_EQ(bridge.mode(intfId), "routed 0");
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), 0);
      EXPECT_EQ(bridge.vlansOf(intfId), std::vector<uint16_t>{});
   }
   // What errdisable does to a port that waits, and then to one that has stopped waiting.
   void bringBack(std::vector<char const*> const& ports) {
      for (auto const model : {TestBridge::blockedModel, TestBridge::routedModel}) {
         for (char const* name : ports)
            bridge.forwardingModelIs(name, model);
         bridge.run();
      }
   }

   TestBridge bridge;
};

} // namespace Vorn
