// Why a command fails; each has an exit status of its own (vornctl_main.cpp).
#pragma once

#include <stdexcept>
#include <string>

namespace Vornctl {

// What is asked for isn't there: a VLAN, a port.
class Absent : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

// The command line can't be worked with.
class UsageError : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

// The database doesn't give what every database of this build has.
class Refused : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

// The database can't be reached, doesn't answer, or the connection has ended.
class Unreachable : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

} // namespace Vornctl
