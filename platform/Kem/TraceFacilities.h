// Which trace facilities this process has.
#pragma once

#include <string_view>
#include <vector>

namespace Kem {

// The names of all, in the order in which they were made; twice where two have the same, which should not be:
// a setting could not tell them apart, nor who reads the trace.
std::vector<std::string_view> traceFacilityNames();

} // namespace Kem
