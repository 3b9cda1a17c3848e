#include "Kem/Trace.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using ::testing::MatchesRegex;

std::vector<std::string> sunk;

void sink(Kem::TraceLine const& line) {
   sunk.push_back(std::string(line.facility) + ' ' + std::to_string(line.level) + ' ' +
                  std::string(line.text));
}

class TraceTest : public ::testing::Test {
  protected:
   TraceTest() {
      sunk.clear();
      Kem::traceSinkIs(sink);
      Kem::traceToStandardErrorIs(false);
   }
   ~TraceTest() override {
      Kem::traceSettingIs("");
      Kem::traceSinkIs(nullptr);
      Kem::traceToStandardErrorIs(true);
      Kem::coverageStream_ = 0;
   }
   // The enabled levels as a text of digits.
   static std::string levels(Kem::TraceFacility const& f) {
      std::string enabled;
      for (int level = 0; level < Kem::traceLevelCount; ++level)
         if (f.isEnabled(level))
            enabled += static_cast<char>('0' + level);
      return enabled;
   }
   static std::string errorsOf(char const* setting) {
      ::testing::internal::CaptureStderr();
      Kem::traceSettingIs(setting);
      return ::testing::internal::GetCapturedStderr();
   }

   Kem::TraceFacility vlan{"VornVlan"};
   Kem::TraceFacility ordel{"Ordel"};
};

TEST_F(TraceTest, levelZeroIsEnabledByDefault) {
   EXPECT_EQ(levels(vlan), "0");
}

TEST_F(TraceTest, settingNamesFacilitiesAndLevels) {
   Kem::traceSettingIs("Vorn*/0-5");
   EXPECT_EQ(levels(vlan), "012345");
   EXPECT_EQ(levels(ordel), "0");
   Kem::traceSettingIs("Ordel/3-9");
   EXPECT_EQ(levels(ordel), "3456789");
   EXPECT_EQ(levels(vlan), "0") << "a setting replaces the one before";
   Kem::traceSettingIs("*/2");
   EXPECT_EQ(levels(vlan), "012");
   Kem::traceSettingIs("*/-");
   EXPECT_EQ(levels(vlan), "");
   Kem::traceSettingIs("*/8-8");
   EXPECT_EQ(levels(vlan), "8");
   EXPECT_EQ(errorsOf(""), "");
   EXPECT_EQ(levels(vlan), "0");
}

TEST_F(TraceTest, laterEntryWins) {
   Kem::traceSettingIs("*/9,VornVlan/1-2");
   EXPECT_EQ(levels(vlan), "12");
   EXPECT_EQ(levels(ordel), "0123456789");
   Kem::traceSettingIs("VornVlan/1-2,*/9");
   EXPECT_EQ(levels(vlan), "0123456789");
}

TEST_F(TraceTest, starStandsForAnyRunOfCharacters) {
   struct {
      char const* pattern;
      bool matches;
   } const cases[] = {{"VornVlan", true},  {"Vorn", false},       {"*", true},       {"Vorn*", true},
                      {"*Vlan", true},     {"V*V*n", true},       {"*a*", true},     {"**", true},
                      {"VornVlan*", true}, {"*VornVlanX", false}, {"V*x*n", false},  {"vornvlan", false},
                      {"Vorn?lan", false}, {"*n*n", true},        {"*n*n*n", false}, {"*V*l*n*", true}};
   for (auto const& c : cases) {
      Kem::traceSettingIs(std::string(c.pattern) + "/9");
      EXPECT_EQ(vlan.isEnabled(9), c.matches) << c.pattern;
   }
}

TEST_F(TraceTest, hostilePatternIsDecidedAtOnce) {
   Kem::TraceFacility const longName("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa");
   Kem::traceSettingIs("*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b/9");
   EXPECT_FALSE(longName.isEnabled(9));
}

TEST_F(TraceTest, entryThatCannotBeReadIsNamedAndTheRestHolds) {
   for (char const* bad :
        {"Vorn", "/5", "Vorn/", "Vorn/10", "Vorn/a", "Vorn/5-", "Vorn/-5", "Vorn/5-3", "Vorn/0-99", " "}) {
      std::string const errors = errorsOf((std::string(bad) + ",Ordel/4").c_str());
      EXPECT_EQ(errors,
                "trace setting \"" + std::string(bad) + "\": expected PATTERN/LEVELS, such as Vorn*/0-5\n");
      EXPECT_EQ(levels(ordel), "01234");
      EXPECT_EQ(levels(vlan), "0");
   }
   EXPECT_EQ(errorsOf(",,Ordel/4,"), "");
   EXPECT_EQ(levels(ordel), "01234");
}

TEST_F(TraceTest, facilityMadeLaterObeysTheSettingToo) {
   Kem::traceSettingIs("Late*/5");
   Kem::TraceFacility const late("LateOne");
   EXPECT_EQ(levels(late), "012345");
   Kem::traceSettingIs("Late*/1");
   EXPECT_EQ(levels(late), "01") << "and a change while it runs";
}

TEST_F(TraceTest, enabledLineReachesTheSink) {
   KEM_TRACE(vlan, 0, "Vlan " << 10 << " failed");
   KEM_TRACE(vlan, 3, "unheard");
   Kem::traceSettingIs("VornVlan/3");
   KEM_TRACE(vlan, 3, "flow");
   EXPECT_EQ(sunk, (std::vector<std::string>{"VornVlan 0 Vlan 10 failed", "VornVlan 3 flow"}));
   Kem::traceSinkIs(nullptr);
   KEM_TRACE(vlan, 3, "to nobody");
   EXPECT_EQ(sunk.size(), 2u);
}

TEST_F(TraceTest, disabledTraceBuildsNothing) {
   int built = 0;
   KEM_TRACE(vlan, 9, ++built);
   EXPECT_EQ(built, 0);
   KEM_TRACE(vlan, 0, ++built);
   EXPECT_EQ(built, 1);
}

TEST_F(TraceTest, coverageBuildsTheTextAndWritesNothing) {
   int built = 0;
   Kem::coverageStream_ = 1;
   KEM_TRACE(vlan, 9, ++built);
   EXPECT_EQ(built, 1);
   EXPECT_TRUE(sunk.empty());
   KEM_TRACE(vlan, 0, "written");
   EXPECT_EQ(sunk.size(), 1u);
}

TEST_F(TraceTest, lineOnStandardErrorTellsWhereItIsFrom) {
   Kem::traceToStandardErrorIs(true);
   ::testing::internal::CaptureStderr();
   KEM_TRACE(vlan, 0, "something happened");
   std::string const line = ::testing::internal::GetCapturedStderr();
   EXPECT_THAT(line, MatchesRegex("[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9]+ [0-9]+ VornVlan 0 "
                                  "Trace_test\\.cpp:[0-9]+ TestBody: something happened\n"));
   EXPECT_EQ(sunk.size(), 1u);
}

TEST_F(TraceTest, lineOnStandardErrorIsOneLineWhateverNamesAreInIt) {
   Kem::traceToStandardErrorIs(true);
   ::testing::internal::CaptureStderr();
   KEM_TRACE(vlan, 0, "port a\nb\x1b[2J");
   EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::EndsWith(": port a\\nb\\x1b[2J\n"));
   EXPECT_EQ(sunk.back(), "VornVlan 0 port a\nb\x1b[2J") << "the trace file keeps the text as it is";
}

TEST_F(TraceTest, macroIsOneStatement) {
   bool const isWanted = false;
   if (isWanted)
      KEM_TRACE(vlan, 0, "not this one");
   else
      KEM_TRACE(vlan, 0, "this one");
   EXPECT_EQ(sunk, std::vector<std::string>{"VornVlan 0 this one"});
}

// --- The sink's own mask.

TEST_F(TraceTest, sinkWithAMaskOfItsOwnGetsMoreThanStandardError) {
   Kem::traceToStandardErrorIs(true);
   Kem::traceSinkIs(sink, "Vorn*/0-5");
   EXPECT_EQ(levels(vlan), "012345");
   EXPECT_EQ(levels(ordel), "0");
   ::testing::internal::CaptureStderr();
   KEM_TRACE(vlan, 5, "for the file");
   KEM_TRACE(vlan, 0, "for both");
   KEM_TRACE(ordel, 1, "for nobody");
   std::string const errors = ::testing::internal::GetCapturedStderr();
   EXPECT_EQ(sunk, (std::vector<std::string>{"VornVlan 5 for the file", "VornVlan 0 for both"}));
   EXPECT_EQ(errors.find("for the file"), std::string::npos);
   EXPECT_NE(errors.find("for both"), std::string::npos);
}

TEST_F(TraceTest, settingGoesToTheSinkAsWell) {
   Kem::traceSinkIs(sink, "Vorn*/-,Ordel/1-1");
   Kem::traceSettingIs("Vorn*/8-8");
   EXPECT_EQ(levels(vlan), "8");
   EXPECT_EQ(levels(ordel), "01");
   KEM_TRACE(vlan, 8, "by the setting");
   EXPECT_EQ(sunk, std::vector<std::string>{"VornVlan 8 by the setting"});
}

TEST_F(TraceTest, withoutASinkItsMaskCostsNothing) {
   Kem::traceSinkIs(sink, "*/0-9");
   Kem::TraceFacility const late("Late");
   EXPECT_EQ(levels(late), "0123456789") << "facilities that are made later have it too";
   Kem::traceSinkIs(nullptr, "*/0-9");
   EXPECT_EQ(levels(vlan), "0");
   EXPECT_EQ(levels(late), "0");
}

TEST_F(TraceTest, unreadableMaskOfTheSinkIsNamed) {
   ::testing::internal::CaptureStderr();
   Kem::traceSinkIs(sink, "Vorn");
   EXPECT_EQ(::testing::internal::GetCapturedStderr(),
             "trace setting \"Vorn\": expected PATTERN/LEVELS, such as Vorn*/0-5\n");
}

} // namespace
