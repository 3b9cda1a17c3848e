// What is traced while it exists, for tests: lines are kept here and standard error stays quiet.
//
//    Kem::TestTrace trace("Vorn*/0-9");
//    ...
//    EXPECT_EQ(trace.take(), (std::vector<std::string>{"Adding Vlan: 10 to backlog"}));
//
// One at a time. At its end what it found is gone: the trace setting is empty and there is no sink.
#pragma once

#include "Kem/Assert.h"
#include "Kem/Trace.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Kem {

class TestTrace {
  public:
   struct Line {
      std::string facility;
      int level;
      std::string text;
   };

   // Captures the levels of the setting besides level 0 of all facilities.
   explicit TestTrace(std::string_view setting = {}) {
      KEM_ASSERT(!theOne);
      theOne = this;
      traceSettingIs(setting);
      traceToStandardErrorIs(false);
      traceSinkIs([](TraceLine const& line) { theOne->add(line); });
   }
   ~TestTrace() {
      traceSinkIs(nullptr);
      traceToStandardErrorIs(true);
      traceSettingIs("");
      theOne = nullptr;
   }
   TestTrace(TestTrace const&) = delete;
   TestTrace& operator=(TestTrace const&) = delete;

   // Called with each line as it is traced, for what has to happen at that moment.
   void onLine(std::function<void(Line const&)> f) { onLine_ = std::move(f); }

   std::vector<Line> const& lines() const { return lines_; }
   void clear() { lines_.clear(); }
   // The texts so far, in order; from then on only what comes later is here.
   std::vector<std::string> take() {
      std::vector<std::string> texts;
      for (auto& line : std::exchange(lines_, {}))
         texts.push_back(std::move(line.text));
      return texts;
   }
   // The texts so far, a line each.
   std::string text() const {
      std::string all;
      for (auto const& line : lines_)
         all += line.text + '\n';
      return all;
   }
   // How many lines have the text as a part, or as the whole.
   size_t count(std::string_view part) const {
      return static_cast<size_t>(std::count_if(lines_.begin(), lines_.end(), [&](Line const& line) {
         return line.text.find(part) != std::string::npos;
      }));
   }
   bool has(std::string_view part) const { return count(part) != 0; }
   // The level of the first line that has it; -1 for none.
   int level(std::string_view part) const {
      for (auto const& line : lines_)
         if (line.text.find(part) != std::string::npos)
            return line.level;
      return -1;
   }
   // The texts that begin so, in order.
   std::vector<std::string> from(std::string_view start) const {
      std::vector<std::string> texts;
      for (auto const& line : lines_)
         if (line.text.starts_with(start))
            texts.push_back(line.text);
      return texts;
   }

  private:
   void add(TraceLine const& line) {
      lines_.push_back({line.facility, line.level, std::string(line.text)});
      if (onLine_)
         onLine_(lines_.back());
   }

   static inline TestTrace* theOne = nullptr;
   std::vector<Line> lines_;
   std::function<void(Line const&)> onLine_;
};

} // namespace Kem
