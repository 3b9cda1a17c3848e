// An assertion whose condition is known by another text than the code that tests it.
#pragma once

#include "Kem/Assert.h"

// VORN_INVARIANT(!routedPort(vlanId), "...") prints the text as the condition when it fails, and aborts.
#define VORN_INVARIANT(holds, condition)                                                                     \
   ((holds) ? static_cast<void>(0) : ::Kem::assertionFailed(condition, __FILE__, __LINE__))
