// The record classes of this build by the numbers of their types.
#pragma once

#include "Kem/Entity.h"

namespace Records {

// The class of that position in Schema::entities, 0 being Kem::Dir; null for a
// number beyond. A Kem::TypeFinder.
Kem::TypeInfo const* typeInfo(uint16_t id);

} // namespace Records
