#include "Kem/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kem {

namespace {
void (*theHook)() = nullptr;
}

void assertionHookIs(void (*hook)()) {
   theHook = hook;
}

void assertionFailed(char const* condition, char const* file, int line) {
   std::fprintf(stderr, "Assertion \"%s\" failed at %s:%d\n", condition, file, line);
   // The hook is taken away first: an assertion that fails inside it must not come back here.
   if (auto hook = theHook) {
      theHook = nullptr;
      hook();
   }
   std::abort();
}

} // namespace Kem
