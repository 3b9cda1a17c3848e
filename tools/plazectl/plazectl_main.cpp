// plazectl: shows, follows and writes the shared-memory tables of a system.
#include "Commands.h"

#include "Kem/StandardStreams.h"
#include "Plaze/TableFile.h"
#include "Plaze/TablePath.h"
#include "Plaze/Writer.h"
#include "Process/Failure.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

namespace {

constexpr char const* footer =
    "PATH is the path of a table in the system, such as bridging/status. KEY is the text of its key, such\n"
    "as 10/00:1c:73:00:00:01; JSON an object of the fields that differ from their defaults. A table is\n"
    "in ROOT/SYSTEM/Plaze/PATH; it has one writer at a time, so that put and del are refused while an agent\n"
    "writes it. What is put stays until an agent or another del removes it.\n"
    "\n"
    "Exit status: 0 done; 1 there is no such table or entry; 2 wrong usage; 3 refused: another process\n"
    "writes the table, the file isn't one or is damaged, the value is illegal; 4 the system refuses.";

int exitStatusOf(Plaze::Error const& error) {
   switch (error.kind()) {
   case Plaze::Error::Kind::absent:
      return Plazectl::exitNo;
   case Plaze::Error::Kind::refused:
      return Plazectl::exitRefused;
   case Plaze::Error::Kind::system:
      break;
   }
   return Plazectl::exitSystem;
}

int failed(std::string const& reason, int status) {
   Process::say("plazectl", reason);
   return status;
}

// The exit status of what has been printed: `status`, or another one where it can't be written.
int finished(int status) {
   std::string const why = Kem::whyOutputFailed();
   return why.empty() ? status : failed("standard output: " + why, Plazectl::exitSystem);
}

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return Plazectl::exitSystem;
   CLI::App app("Shows, follows and writes shared-memory tables.", "plazectl");
   Plazectl::Place place{.root = Plaze::defaultRoot(), .system = Plaze::defaultSystemName()};
   std::string path, key, json, type;
   std::optional<std::string> oneKey;
   uint32_t capacity = Plaze::Writer::defaultCapacity;
   app.add_option("--root", place.root,
                  "The directory of the systems, " + place.root +
                      " unless given (PLAZE_ROOT of the environment)")
       ->option_text("DIR");
   app.add_option("--system", place.system, "Name of the system, " + place.system + " unless given")
       ->option_text("NAME");
   app.add_flag("--json", place.wantsJson, "Output of ls and info as JSON; rows are JSON always");
   app.set_version_flag("--version", "plazectl " VORN_VERSION);
   app.footer(footer);
   app.require_subcommand(1);
   app.fallthrough();

   auto command = [&](char const* name, char const* meaning, bool hasPath = true) {
      auto* const sub = app.add_subcommand(name, meaning);
      if (hasPath)
         sub->add_option("PATH", path, "The table")->required();
      return sub;
   };
   auto* const ls = command("ls", "Paths of the tables, a line each", false);
   auto* const info = command("info", "What a table is, how full it is, and who wrote it last");
   auto* const get = command("get", "The rows, or one of them, as JSON");
   get->add_option("KEY", oneKey, "The row");
   auto* const put = command("put", "Writes a row");
   put->add_option("KEY", key, "The row")->required();
   put->add_option("JSON", json, "Its value")->required();
   auto* const del = command("del", "Removes a row");
   del->add_option("KEY", key, "The row")->required();
   auto* const create = command("create", "Makes an empty table where there is none");
   create->add_option("TYPE", type, "Its type, such as Plaze::Bridging::Status")->required();
   create->add_option("--capacity", capacity, "Entries that it has room for before it grows")
       ->check(CLI::Range(uint32_t{1}, Plaze::Layout::maxCapacity))
       ->option_text("N");
   command("watch", "The rows, then each change, as lines of JSON, until it is ended");

   try {
      app.parse(argc, argv);
   } catch (CLI::ParseError const& error) {
      if (error.get_exit_code() == 0) {
         app.exit(error); // prints the help, or the version
         return finished(Plazectl::exitDone);
      }
      return failed(std::string(error.what()) + "; see plazectl --help", Plazectl::exitUsage);
   }
   return Process::runTool("plazectl", [&] {
      try {
         if (ls->parsed())
            return finished(Plazectl::ls(place, std::cout));
         if (info->parsed())
            return finished(Plazectl::info(place, path, std::cout));
         if (get->parsed())
            return finished(oneKey ? Plazectl::get(place, path, *oneKey, std::cout)
                                   : Plazectl::get(place, path, std::cout));
         if (put->parsed())
            return Plazectl::put(place, path, key, json);
         if (del->parsed())
            return Plazectl::del(place, path, key);
         if (create->parsed())
            return Plazectl::create(place, path, type, capacity);
         Plazectl::watch(place, path, std::cout);
      } catch (Plaze::Error const& error) {
         throw Process::Failure(exitStatusOf(error), error.what());
      }
   });
}
