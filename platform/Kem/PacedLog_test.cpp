#include "Kem/PacedLog.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::string> pacedLines;

TEST(PacedLog, countsWhatTheRateLeavesOutAndTellsItInTheNextLine) {
   pacedLines.clear();
   Kem::logSinkIs([](int, std::string const& line) { pacedLines.push_back(line); });
   Kem::VirtualTime const time(1000.0);
   Kem::LogHandle const handle("N", 4, {"%s by %s"}, Kem::NoActionRequired, 10.0, 2.0);
   Kem::PacedLog log(handle);
   for (auto const* name : {"a", "b", "c", "d", "e"})
      log({name, "x"});
   EXPECT_EQ(pacedLines, (std::vector<std::string>{"%VORN-4-N: a by x", "%VORN-4-N: b by x"}));
   Kem::VirtualTime::advanceTo(1100.0);
   log({"f", "y"});
   log({"g", "y"});
   EXPECT_EQ(pacedLines.at(2), "%VORN-4-N: f by y (3 like it left out)");
   EXPECT_EQ(pacedLines.at(3), "%VORN-4-N: g by y");
   Kem::logSinkIs(nullptr);
}

} // namespace
