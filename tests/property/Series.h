// A series of operations on a fresh world, as data: made from a seed, run, and shortened when it fails.
#pragma once

#include "Publishers.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Model {

struct Operation {
   // What the publishers do has the numbers of Publishers::Kind; these are done to the agent.
   enum Kind {
      restart = static_cast<int>(Publishers::Kind::count),
      stop,
      start,
      kill,
      killAtStart,
      changeDefault,
      routedByDefault, // the same, if they aren't
      wait,
      fresh,
      edit,   // of what the agent resolved, by a neighbour
      faults, // of calls of the kernel
   };

   int kind;
   uint64_t seed;
   bool endsTurn; // false: the loop doesn't run before the next one
   size_t number; // in the series as it was made
};

struct Series {
   uint64_t seed;
   std::vector<Operation> operations;
};

Series makeSeries(uint64_t seed, unsigned length);
// Only the operations of these numbers, as numbersOf gives them: "3,17,40".
Series only(Series series, std::string const& numbers);
std::string numbersOf(Series const& series);

// How a run ended: the operations so far, a line each, and what was wrong; empty when nothing was.
struct Verdict {
   std::string history, differences;
   size_t done = 0; // operations
   bool isGood() const { return differences.empty(); }
};

Verdict run(Series const& series);
// Runs it in a process of its own, so that a series that ends the process fails like any other.
Verdict runApart(Series const& series);
// Shortens it to as few operations as still fail, as far as that can be found within that many runs.
Series shortened(Series series, size_t done, unsigned runs);

} // namespace Model
