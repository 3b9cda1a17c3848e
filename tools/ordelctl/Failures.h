// Why a command fails, beside what treejson/Error.h tells; each has an exit status
// of its own (ordelctl_main.cpp).
#pragma once

#include <stdexcept>
#include <string>

namespace Ordelctl {

// The command line, or the input that it names, can't be worked with.
class UsageError : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

// The database can't be reached, or the connection has ended.
class Unreachable : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

} // namespace Ordelctl
