// The exceptions of the object platform. A range exception says that a value is illegal; it carries the exact
// text that its type declares. The logic doesn't catch these: one that nothing catches ends the process.
#pragma once

#include <stdexcept>
#include <string>

namespace Kem {

class Exception : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

class RangeException : public Exception {
  public:
   using Exception::Exception;
};

// Raises a range exception. Out of line, so that a range check costs one compare and a jump never taken.
[[noreturn]] void throwRange(char const* text);
[[noreturn]] void throwRange(std::string const& text);

} // namespace Kem
