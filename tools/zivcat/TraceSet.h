// The trace files that zivcat was given: loads them, loads them again while they grow, and prints
// them merged.
#pragma once

#include "Printer.h"
#include "Zivlog/Reader.h"

#include <iosfwd>
#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace Zivcat {

struct Selection {
   unsigned maxLevel = 9;
   std::optional<std::regex> facility; // searched for, anywhere in the name
   bool matches(Zivlog::Record const& record) const;
};

class TraceSet {
  public:
   explicit TraceSet(std::vector<std::string> const& paths);

   // Loads the files that changed since the last call. A file that can't be read costs one line on `errors`,
   // once; what was loaded from it before stays.
   void refresh(std::ostream& errors);
   // Prints the selected records that no earlier call has seen, merged by wall clock, those of one file
   // always in the order in which they were written; only the last `tail` of them all. Returns how many.
   size_t print(Selection const& selection, std::optional<size_t> tail, Printer& printer);
   void printInfo(Printer& printer) const;

   // Whether no file at all could be read.
   bool empty() const;
   // The exit status for the files that failed: 0 none, 3 not a trace file, 4 can't be read (the greater
   // of several).
   int failure() const;

  private:
   struct Trace {
      std::string path;
      std::string source; // printed before each record
      std::optional<Zivlog::Reader> reader;
      uint64_t loadedSequence = 0; // newest just before it was loaded last
      uint64_t completeTo = 0;     // up to this one, no record can be missing from `reader` and appear later
      uint64_t seenSequence = 0;   // records up to this one were printed or left out
      std::string error;           // of the last attempt; empty when it went well
      int failure = 0;
   };
   struct Selected {
      Trace* trace;
      Zivlog::Record record;
   };

   static void load(Trace& trace, std::ostream& errors);
   static std::vector<Selected> selectNew(Trace& trace, Selection const& selection);

   std::vector<Trace> traces_;
};

} // namespace Zivcat
