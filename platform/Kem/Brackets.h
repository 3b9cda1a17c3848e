// A key as it is in a selector: between brackets, and in quotes where it could be misread.
//
// One rule for all that write selectors: entities that say where they are, and the state database.
#pragma once

#include <string>
#include <string_view>

namespace Kem {

// Whether the key needs quotes: it is empty, begins with '"', or holds ']' or a control character.
bool needsQuotes(std::string_view key);

// "[key]", in quotes where it needs them; then \ is before a quote or another \, and control characters
// are \xHH. `key` is in text form.
std::string bracketed(std::string_view key);

} // namespace Kem
