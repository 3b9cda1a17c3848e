#include "Kem/Assert.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>

namespace {

void saysFlushed() {
   std::fputs("trace flushed\n", stderr);
}

void failsItself() {
   std::fputs("hook runs\n", stderr);
   KEM_ASSERT(!"in the hook");
}

TEST(Assert, holdsWithoutATrace) {
   int evaluated = 0;
   KEM_ASSERT(++evaluated == 1);
   EXPECT_EQ(evaluated, 1);
   Kem::assertionHookIs(saysFlushed);
   ::testing::internal::CaptureStderr();
   KEM_ASSERT(true);
   EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
   Kem::assertionHookIs(nullptr);
}

TEST(AssertDeathTest, tellsConditionFileAndLineAndAborts) {
   int const vlans = 3;
   EXPECT_EXIT(KEM_ASSERT(vlans == 4), ::testing::KilledBySignal(SIGABRT),
               "^Assertion \"vlans == 4\" failed at .*Assert_test\\.cpp:[0-9]+\n$");
}

TEST(AssertDeathTest, runsTheHookOnceBeforeTheAbort) {
   EXPECT_EXIT(
       {
          Kem::assertionHookIs(saysFlushed);
          KEM_ASSERT(false);
       },
       ::testing::KilledBySignal(SIGABRT), "failed at .*\ntrace flushed\n$");
}

TEST(AssertDeathTest, hookThatFailsItselfDoesNotRunAgain) {
   EXPECT_EXIT(
       {
          Kem::assertionHookIs(failsItself);
          KEM_ASSERT(false);
       },
       ::testing::KilledBySignal(SIGABRT),
       "^Assertion \"false\".*\nhook runs\nAssertion \"!\"in the hook\"\" .*\n$");
}

} // namespace
