#include "Kem/Log.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

std::vector<std::string> logged;

class LogTest : public ::testing::Test {
  protected:
   LogTest() {
      logged.clear();
      Kem::logSinkIs([](int severity, std::string const& line) {
         logged.push_back(std::to_string(severity) + '|' + line);
      });
   }
   ~LogTest() override {
      Kem::logSinkIs(nullptr);
      Kem::logFacilityIs("VORN");
   }
   Kem::VirtualTime time{1000.0};
};

TEST_F(LogTest, lineNamesAgentSeverityAndMessage) {
   Kem::LogHandle const handle("INTF_TIMEOUT", 4, {"Time out waiting. ", "Going on."}, Kem::NoActionRequired,
                               0.0, 1.0);
   handle.log(0, nullptr, 0);
   EXPECT_EQ(logged, std::vector<std::string>{"4|%VORN-4-INTF_TIMEOUT: Time out waiting. Going on."});
   EXPECT_STREQ(handle.name(), "INTF_TIMEOUT");
   EXPECT_EQ(handle.severity(), 4);
   EXPECT_EQ(handle.text(), "Time out waiting. Going on.");
   EXPECT_STREQ(handle.recommendedAction(), "No action is required.");
   Kem::logFacilityIs("OTHER");
   handle.log(0, nullptr, 0);
   EXPECT_EQ(logged[1].substr(0, 9), "4|%OTHER-");
}

TEST_F(LogTest, argumentsBreakNoLine) {
   Kem::LogHandle const handle("N", 3, {"%s"}, Kem::NoActionRequired, 0.0, 1.0);
   char const* const args[] = {"a\n%VORN-0-FAKE: b\x1b"};
   handle.log(0, args, 1);
   EXPECT_EQ(logged[0], "3|%VORN-3-N: a\\n%VORN-0-FAKE: b\\x1b");
}

TEST_F(LogTest, eachPercentSTakesTheNextArgument) {
   Kem::LogHandle const handle("N", 3, {"%s is %s", ", %s at 100%"}, Kem::NoActionRequired, 0.0, 1.0);
   char const* const args[] = {"Ethernet1", "%s", "full"};
   handle.log(0, args, 3);
   EXPECT_EQ(logged[0], "3|%VORN-3-N: Ethernet1 is %s, full at 100%")
       << "what an argument holds is not read again";
   handle.log(0, args, 1);
   EXPECT_EQ(logged[1], "3|%VORN-3-N: Ethernet1 is %s, %s at 100%") << "missing ones stay as they are";
}

TEST_F(LogTest, tellsHowManyWereLeftOut) {
   Kem::LogHandle const handle("N", 6, {"text"}, Kem::NoActionRequired, 0.0, 1.0);
   handle.log(12, nullptr, 0);
   EXPECT_EQ(logged[0], "6|%VORN-6-N: text (12 like it left out)");
}

TEST_F(LogTest, intervalOfZeroSetsNoLimit) {
   Kem::LogHandle const handle("N", 6, {"text"}, Kem::NoActionRequired, 0.0, 1.0);
   for (int i = 0; i < 100; ++i)
      EXPECT_TRUE(handle.okToLog(0));
}

TEST_F(LogTest, rateLetsABurstThroughAndThenOneAtATime) {
   Kem::LogHandle const handle("N", 6, {"text"}, Kem::NoActionRequired, 10.0, 2.0);
   EXPECT_TRUE(handle.okToLog(0));
   EXPECT_TRUE(handle.okToLog(0));
   EXPECT_FALSE(handle.okToLog(0));
   Kem::VirtualTime::advanceTo(1004.0);
   EXPECT_FALSE(handle.okToLog(0));
   Kem::VirtualTime::advanceTo(1005.0);
   EXPECT_TRUE(handle.okToLog(0)) << "two in ten seconds are one in five";
   EXPECT_FALSE(handle.okToLog(0));
   Kem::VirtualTime::advanceTo(9000.0);
   EXPECT_TRUE(handle.okToLog(0));
   EXPECT_TRUE(handle.okToLog(0));
   EXPECT_FALSE(handle.okToLog(0)) << "room that wasn't used doesn't add up";
}

TEST(LogTime, messageOfALaterClockDoesNotSilenceAnEarlierOne) {
   Kem::LogHandle const handle("N", 6, {"text"}, Kem::NoActionRequired, 10.0, 1.0);
   {
      Kem::VirtualTime const time(1e6);
      EXPECT_TRUE(handle.okToLog(0));
   }
   Kem::VirtualTime const time(1000.0);
   EXPECT_FALSE(handle.okToLog(0));
   Kem::VirtualTime::advanceTo(1010.0);
   EXPECT_TRUE(handle.okToLog(0));
}

} // namespace
