// What goes wrong between JSON and the tree. The text of each is one line that names place and reason.
#pragma once

#include <stdexcept>
#include <string>

namespace TreeJson {

class Error : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

// The text is no JSON: "line 3, column 7: expected ',' or '}'".
class SyntaxError : public Error {
  public:
   using Error::Error;
};

// The JSON can't be what its place in the tree holds: "bridging/config.hostAgingTime: true is no double;
// expected a number".
class Refusal : public Error {
  public:
   using Error::Error;
};

// What the selector names, or what it stands in, is not there.
class Absent : public Error {
  public:
   using Error::Error;
};

// A Refusal before its place is known: the field of a record, such as
// ".direction" or nothing, and the reason.
class ValueError : public Error {
  public:
   ValueError(std::string fieldText, std::string const& reason)
       : Error(reason), field(std::move(fieldText)) {}
   std::string field;
};

} // namespace TreeJson
