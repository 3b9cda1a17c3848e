#include "Kem/Exception.h"

namespace Kem {

void throwRange(char const* text) { throw RangeException(text); }

void throwRange(std::string const& text) { throw RangeException(text); }

} // namespace Kem
