// How a program says what went wrong: one line on standard error, "program: place: reason", and an
// exit status.
//
// A command raises a Failure, which knows its status, and runTool in the tool's main makes the line of it.
#pragma once

#include "Kem/FunctionRef.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace Process {

// What the tools end with.
enum ExitStatus : int {
   exitDone = 0,
   exitNo = 1,          // the answer is no: absent, timed out, not settled
   exitUsage = 2,       // the command line, or the input that it names, can't be worked with
   exitRefused = 3,     // by the database, or what the file holds can't be used
   exitUnreachable = 4, // the database, or the file
};

class Failure : public std::runtime_error {
  public:
   Failure(int exitStatus, std::string const& text) : std::runtime_error(text), exitStatus_(exitStatus) {}
   int exitStatus() const { return exitStatus_; }

  private:
   int exitStatus_;
};

// The kinds of failure that tools have in common.
template <ExitStatus status>
class FailureOf : public Failure {
  public:
   explicit FailureOf(std::string const& text) : Failure(status, text) {}
};
using Absent = FailureOf<exitNo>;               // what is asked for isn't there: a VLAN, a port
using UsageError = FailureOf<exitUsage>;        // the command line, or the input that it names
using Refused = FailureOf<exitRefused>;         // by the database
using Unreachable = FailureOf<exitUnreachable>; // the database; also where it doesn't answer or goes

// Writes the line "who: text" to standard error, whatever is in the text. What standard output still has in
// its buffer comes first.
void say(std::string_view who, std::string_view text);
// The same with the number of the process, "agent-runner[4711]: text", for programs that run for long.
void sayWithPid(std::string_view who, std::string_view text);

// Runs a tool: returns what the command returns, or the status of the Failure that it raises, which is said.
// When nobody reads the output any more the process ends silently, as other tools of its kind do.
int runTool(char const* program, Kem::FunctionRef<int()> command);

} // namespace Process
