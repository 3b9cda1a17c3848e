// The world of the tests of dynamic VLANs: a bridge whose deferred stages have room in a log that the test can fill.
#pragma once

#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/testing/TestBridge.h"

namespace Vorn {

using Names = std::vector<std::string>;

struct DynVlansTest : testing::Test {
   DynVlansTest() { bridge.attrLogCheck = &log.check; }
   // The deferred stage has no room: what it is to make or delete waits.
   void holdBackCopies() { log.fill(); }
   void letCopiesGo() {
      log.drain();
      bridge.advance(1);
   }
   std::string name(uint16_t vlanId) { return bridge.resolvedVlan(vlanId)->configuredName().str(); }
   // The trunk groups of the resolved VLAN, by name.
   Names groups(uint16_t vlanId) {
      Names names;
      for (auto const& [group, value] : bridge.resolvedVlan(vlanId)->trunkGroup())
         names.push_back(group.str());
      std::sort(names.begin(), names.end());
      return names;
   }

   TestTrace trace;
   Vorn::TestAttrLog log;
   TestBridge bridge;
};

} // namespace Vorn
