// zivcat: prints trace files, of running agents and of dead ones.
#include "Printer.h"
#include "TraceSet.h"

#include "Kem/StandardStreams.h"
#include "Process/Failure.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <optional>
#include <thread>

namespace {

constexpr char const* footer =
    "A line is: time, level, facility, text, and where it was traced. Levels: 0 failures, 1 missing\n"
    "objects, 3 and 5 flow, 8 and 9 entry to handlers.\n"
    "\n"
    "Exit status: 0 done; 1 nothing matched; 2 wrong usage; 3 a file is no trace file or damaged;\n"
    "4 a file can't be read. The other files are printed all the same.";

// The exit status of what has been printed: `status`, or another one where it can't be written.
int finished(int status) {
   std::string const why = Kem::whyOutputFailed();
   if (why.empty())
      return status;
   Process::say("zivcat", "standard output: " + why);
   return Process::exitUsage;
}

// Prints what is new, four times a second, until a signal ends the program or its output can't be written.
int follow(Zivcat::TraceSet& traces, Zivcat::Selection const& selection, Zivcat::Printer& printer) {
   for (;;) {
      if (int const status = finished(0); status != 0)
         return status;
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
      traces.refresh(std::cerr);
      traces.print(selection, std::nullopt, printer);
   }
}

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return Process::exitUsage;
   CLI::App app(
       "Prints trace files (.zv): the records of all levels, oldest first, several files merged by time.",
       "zivcat");
   std::vector<std::string> paths;
   unsigned level = Zivlog::levelCount - 1;
   std::optional<std::string> facility;
   std::optional<size_t> tail;
   bool wantsFollow = false, wantsJson = false, wantsInfo = false, isUtc = false;
   app.add_option("FILE", paths, "Trace files")->required();
   app.add_option("--level", level, "Only levels up to N")->check(CLI::Range(0, 9))->option_text("N");
   app.add_option("--facility", facility, "Only facilities and row formats that REGEX is found in")
       ->option_text("REGEX");
   app.add_option("--tail", tail, "Only the last N of the records that match")->option_text("N");
   app.add_flag("--follow", wantsFollow,
                "Go on printing what is traced, also by a new process with the same file");
   app.add_flag("--json", wantsJson, "One JSON object a line, times in UTC");
   app.add_flag("--utc", isUtc, "Times in UTC, not local");
   auto* const info = app.add_flag(
       "--info", wantsInfo, "Instead of records: who wrote the file, and how far back each level reaches");
   info->excludes("--follow", "--tail", "--level", "--facility");
   app.set_version_flag("--version", "zivcat " VORN_VERSION);
   app.footer(footer);

   Zivcat::Selection selection;
   try {
      app.parse(argc, argv);
      selection.maxLevel = level;
      if (facility)
         selection.facility.emplace(*facility, std::regex::extended);
   } catch (CLI::ParseError const& error) {
      if (error.get_exit_code() == 0) {
         app.exit(error); // prints the help, or the version
         return finished(0);
      }
      Process::say("zivcat", std::string(error.what()) + "; see zivcat --help");
      return Process::exitUsage;
   } catch (std::regex_error const& error) {
      Process::say("zivcat", "--facility: not a regular expression: " + *facility);
      return Process::exitUsage;
   }

   std::ios::sync_with_stdio(false);
   Zivcat::Printer printer(std::cout, wantsJson ? Zivcat::Form::json : Zivcat::Form::text, isUtc);
   Zivcat::TraceSet traces(paths);
   traces.refresh(std::cerr);
   if (wantsInfo) {
      traces.printInfo(printer);
      return finished(traces.failure());
   }
   size_t const printed = traces.print(selection, tail, printer);
   if (wantsFollow && !traces.empty())
      return follow(traces, selection, printer);
   if (traces.failure() != 0)
      return finished(traces.failure());
   return finished(printed == 0 ? Process::exitNo : 0);
}
