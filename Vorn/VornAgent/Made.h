// The start in the trace: level 5 of "Vorn" names each thing at the moment at which it has been made. The
// order is part of the design, since what is made later finds what was made earlier at work.
#pragma once

#include "Kem/Ptr.h"

namespace Vorn {

void traceMade(char const* name);

// Wraps the expression that makes the thing, and returns the thing.
template <class T>
Kem::Ptr<T> made(char const* name, Kem::Ptr<T> thing) {
   traceMade(name);
   return thing;
}

} // namespace Vorn
