// Assertions that are always compiled in. A failed one prints condition, file and line to standard error,
// runs the hook that flushes the trace, and aborts.
#pragma once

namespace Kem {

[[noreturn]] void assertionFailed(char const* condition, char const* file, int line);

// Runs before the abort of a failed assertion; null for nothing. Set once by whoever opens the trace file.
void assertionHookIs(void (*hook)());

} // namespace Kem

#define KEM_ASSERT(condition)                                                                                \
   ((condition) ? static_cast<void>(0) : ::Kem::assertionFailed(#condition, __FILE__, __LINE__))

// An assertion whose condition is known by another text than the code that tests it:
// KEM_INVARIANT(isInitialized_, "initialized()") prints the text as the condition when it fails, and aborts.
#define KEM_INVARIANT(holds, condition)                                                                      \
   ((holds) ? static_cast<void>(0) : ::Kem::assertionFailed(condition, __FILE__, __LINE__))
