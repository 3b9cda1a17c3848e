// The fixture of the server's tests: a server without sockets on a tree of test records, in virtual time.
#pragma once

#include "Kem/Activity.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Ordel/server/TestClient.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace TestRecords {

struct ServerTest : testing::Test {
   ServerTest() { Kem::traceSettingIs("*/-"); }

   Kem::VirtualTime time;
   std::string snapshotError;
   int snapshotCount = 0;
   Ordel::Server server{std::make_unique<Ordel::Tree>(schema(), 1), "switch1", [this] {
                           ++snapshotCount;
                           return snapshotError;
                        }};
   uint32_t const config = server.tree().find("config")->node();
   uint32_t const dir = server.tree().find("input/dir")->node();

   Step vlan(uint16_t id) const { return {Config::vlanConfig, u16Bytes(id)}; }
   static Block putNamed(uint32_t node, std::string_view name, bool value) {
      Block block;
      block.at(node).put(Config::named, stringBytes(name), value ? "\1"sv : "\0"sv);
      return block;
   }
   void verifyMirrored(TestClient const& client, std::string_view path) {
      EXPECT_EQ(mirrored(client, path), standing(server, path));
   }
};

} // namespace TestRecords
