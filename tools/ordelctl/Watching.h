// The commands that wait for changes: watch and wait.
//
// A selector where nothing exists yet is waited for. One that can never exist is refused: at once if the
// entity of a directory that it starts from exists, otherwise when that is made.
#pragma once

#include "Changing.h"
#include "Session.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

// Takes one line of JSON for each change, without its end: {"selector": "…", "value": …}, where something
// was created or has another value, or {"selector": "…", "deleted": true}. A new thing is one line with
// all that it holds then. Several changes of one thing may be one line with the last value. Returns only
// by an exception.
//
// `hasInitial`: the present values come first, a line for each selector that exists.
[[noreturn]] void watch(Session& session, std::vector<std::string> const& selectors, bool hasInitial,
                        std::function<void(std::string_view line)> const& print);

struct Condition {
   std::optional<Given> value; // the whole value is equal
   bool isAbsent = false;      // nothing is there
};

// Returns as soon as the condition holds; raises TreeJson::Absent when it doesn't within the timeout.
void waitFor(Session& session, std::string_view selector, Condition const& condition, Kem::Seconds timeout);

} // namespace Ordelctl
