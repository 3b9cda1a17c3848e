// The commands that wait for what comes: watch and wait.
//
// A selector where nothing exists is awaited. What can't stand there is refused: at once where the entity of
// a directory that the selector starts from stands, else when it comes.
#pragma once

#include "Changing.h"
#include "Session.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

// Takes one line of JSON for each change, without its end: {"selector": "…", "value": …}, where something was
// created or has another value, or {"selector": "…", "deleted": true}. What is created comes as one line with
// all that it holds then. Several changes of one thing may come as one line with the last value. Returns only
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
