// The command batch: many commands over one connection.
#pragma once

#include "Nodes.h"
#include "Session.h"

#include <string>
#include <string_view>

namespace Ordelctl {

class Batch {
  public:
   explicit Batch(Session& session) : session_(session), nodes_(session) {}

   // Runs the command in a line such as ["set", "…", 10], with arguments and options as on a command line,
   // and returns the answer: {"ok": true, "value": …} or {"ok": false, "error": "…"}. The value of a command
   // that returns nothing is null. Values are JSON; a string is a string. Raises Unreachable only.
   std::string answer(std::string_view line);

  private:
   std::string run(std::string_view line);

   Session& session_;
   Nodes nodes_;
};

} // namespace Ordelctl
