// What plazectl does, one function a command, on the table files below <root>/<system>/Plaze.
//
// Rows are shown and taken in JSON by the declared types of the table's key and value; the type is the one
// that the file names. Each function prints to `out` and returns the exit status; what goes wrong is raised
// as a Failure, or as the Plaze::Error of the table.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <stdexcept>
#include <string>

namespace Plazectl {

inline constexpr int exitDone = 0;
inline constexpr int exitNo = 1; // absent
inline constexpr int exitUsage = 2;
inline constexpr int exitRefused = 3; // no such table, another writer, or a value that can't be
inline constexpr int exitSystem = 4;  // rights, room

class Failure : public std::runtime_error {
  public:
   Failure(int exitStatus, std::string const& text) : std::runtime_error(text), exitStatus_(exitStatus) {}
   int exitStatus() const { return exitStatus_; }

  private:
   int exitStatus_;
};

struct Place {
   std::string root;
   std::string system;
   bool wantsJson = false;

   std::string directory() const { return root + "/" + system + "/Plaze"; }
   // Raises a Failure where these can't name a table.
   std::string file(std::string const& path) const;
};

int ls(Place const& place, std::ostream& out);
int info(Place const& place, std::string const& path, std::ostream& out);
int get(Place const& place, std::string const& path, std::ostream& out);
int get(Place const& place, std::string const& path, std::string const& key, std::ostream& out);
int put(Place const& place, std::string const& path, std::string const& key, std::string const& json);
int del(Place const& place, std::string const& path, std::string const& key);
int create(Place const& place, std::string const& path, std::string const& type, uint32_t capacity);
// Prints what stands there and then each change, until a signal ends the program.
// An absent table is waited for.
[[noreturn]] void watch(Place const& place, std::string const& path, std::ostream& out);

} // namespace Plazectl
