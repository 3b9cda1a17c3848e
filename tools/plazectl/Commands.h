// What plazectl does, one function a command, on the table files below <root>/<system>/Plaze.
//
// Rows are shown and taken in JSON by the declared types of the table's key and value; the type is the one
// that the file names. Each function prints to `out` and returns the exit status; errors are raised as a
// Failure, or as the Plaze::Error of the table.
#pragma once

#include "Process/Failure.h"

#include <cstdint>
#include <iosfwd>
#include <string>

namespace Plazectl {

using Process::exitDone;
using Process::exitNo;      // absent
using Process::exitRefused; // no such table, another writer, or an illegal value
using Process::exitUsage;
inline constexpr int exitSystem = Process::exitUnreachable; // rights, room
using Process::Failure;

struct Place {
   std::string root;
   std::string system;
   bool wantsJson = false;

   std::string directory() const { return root + "/" + system + "/Plaze"; }
   // Raises a Failure when these can't name a table.
   std::string file(std::string const& path) const;
};

int ls(Place const& place, std::ostream& out);
int info(Place const& place, std::string const& path, std::ostream& out);
int get(Place const& place, std::string const& path, std::ostream& out);
int get(Place const& place, std::string const& path, std::string const& key, std::ostream& out);
int put(Place const& place, std::string const& path, std::string const& key, std::string const& json);
int del(Place const& place, std::string const& path, std::string const& key);
int create(Place const& place, std::string const& path, std::string const& type, uint32_t capacity);
// Prints the present rows and then each change, until a signal ends the program. Waits for an absent table.
[[noreturn]] void watch(Place const& place, std::string const& path, std::ostream& out);

} // namespace Plazectl
