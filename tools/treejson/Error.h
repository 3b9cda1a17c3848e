// What goes wrong between JSON and the tree. The text of each is one line that names place and reason.
#pragma once

#include "Process/Failure.h"

#include <string>
#include <utility>

namespace TreeJson {

class Error : public Process::Failure {
  public:
   using Failure::Failure;
};

// The text isn't JSON: "line 3, column 7: expected ',' or '}'".
class SyntaxError : public Error {
  public:
   explicit SyntaxError(std::string const& text) : Error(Process::exitUsage, text) {}
};

// The JSON doesn't fit its place in the tree: "bridging/config.hostAgingTime: true is no double; expected a
// number".
class Refusal : public Error {
  public:
   explicit Refusal(std::string const& text) : Error(Process::exitRefused, text) {}
};

// What the selector names, or what contains it, doesn't exist.
class Absent : public Error {
  public:
   explicit Absent(std::string const& text) : Error(Process::exitNo, text) {}
};

// A Refusal before its place is known: the field of a record, such as ".direction" or nothing, and
// the reason.
class ValueError : public Error {
  public:
   ValueError(std::string fieldText, std::string const& reason)
       : Error(Process::exitRefused, reason), field(std::move(fieldText)) {}
   std::string field;
};

} // namespace TreeJson
