// Device names in the structures of ioctls.
#pragma once

#include "Kem/String.h"

#include <algorithm>
#include <cstring>

namespace Vorn {

// Cuts what doesn't fit, without a terminating zero: the kernel puts its own at the end. The field is zero
// beforehand.
template <size_t bytes>
void nameIs(char (&field)[bytes], Kem::String8 const& name) {
   std::memcpy(field, name.charPtr(), std::min(bytes, std::strlen(name.charPtr())));
}

} // namespace Vorn
