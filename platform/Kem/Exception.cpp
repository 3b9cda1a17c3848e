#include "Kem/Exception.h"

#include "Kem/Ptr.h"

namespace Kem {

void throwRange(char const* text) {
   throw RangeException(text);
}

void throwRange(std::string const& text) {
   throw RangeException(text);
}

void throwNullValidPtr() {
   throw RangeException("null ValidPtr");
}

} // namespace Kem
