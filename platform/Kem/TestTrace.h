// What is traced while a test runs: the one way for tests to look at traces.
//
//    Kem::TestTrace trace;                          // all levels of the facilities Vorn*
//    ...
//    EXPECT_TRUE(trace.has("Deleting Vlan 10"));
//
// While it exists it also keeps the traces off standard error. One at a time.
#pragma once

#include "Kem/Trace.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace Kem {

class TestTrace {
  public:
   struct Line {
      int level;
      std::string text;
   };

   // `setting` as for traceSettingIs.
   explicit TestTrace(std::string_view setting = "Vorn*/0-9") {
      theLines.clear();
      traceSettingIs(setting);
      traceToStandardErrorIs(false);
      traceSinkIs([](TraceLine const& line) { theLines.push_back({line.level, std::string(line.text)}); });
   }
   ~TestTrace() {
      traceSinkIs(nullptr);
      traceToStandardErrorIs(true);
      traceSettingIs("");
   }
   TestTrace(TestTrace const&) = delete;
   TestTrace& operator=(TestTrace const&) = delete;

   void clear() { theLines.clear(); }
   // All lines so far, in order.
   static std::vector<Line> const& lines() { return theLines; }
   // How many lines have the text as a part, or as the whole.
   static size_t count(std::string_view part) {
      return static_cast<size_t>(std::count_if(theLines.begin(), theLines.end(), [&](Line const& line) {
         return line.text.find(part) != std::string::npos;
      }));
   }
   static bool has(std::string_view part) { return count(part) != 0; }
   // The level of the first line that has it; -1 when there is none.
   static int level(std::string_view part) {
      for (auto const& line : theLines)
         if (line.text.find(part) != std::string::npos)
            return line.level;
      return -1;
   }
   // The texts that begin so, in order.
   static std::vector<std::string> from(std::string_view start) {
      std::vector<std::string> texts;
      for (auto const& line : theLines)
         if (line.text.starts_with(start))
            texts.push_back(line.text);
      return texts;
   }

  private:
   static inline std::vector<Line> theLines;
};

} // namespace Kem
