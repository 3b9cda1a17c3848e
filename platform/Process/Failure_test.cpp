#include "Process/Failure.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

template <class F>
std::string errorsOf(F&& f) {
   testing::internal::CaptureStderr();
   f();
   return testing::internal::GetCapturedStderr();
}

TEST(Failure, isOneLineWhateverIsInIt) {
   EXPECT_EQ(errorsOf([] { Process::say("ordeld", "a\nb\tc\x1b[2Jd\x7f"); }),
             "ordeld: a\\nb\\tc\\x1b[2Jd\\x7f\n");
}

TEST(Failure, ofALongRunningProgramNamesTheProcess) {
   EXPECT_EQ(errorsOf([] { Process::sayWithPid("agent-runner", "text"); }),
             "agent-runner[" + std::to_string(getpid()) + "]: text\n");
}

TEST(Failure, ofACommandIsItsLineAndItsStatus) {
   int status = 0;
   EXPECT_EQ(errorsOf([&] { status = Process::runTool("tool", [] { return 1; }); }), "");
   EXPECT_EQ(status, 1);
   EXPECT_EQ(errorsOf([&] {
                status = Process::runTool("tool", []() -> int { throw Process::Refused("place: reason"); });
             }),
             "tool: place: reason\n");
   EXPECT_EQ(status, 3);
   EXPECT_EQ(Process::Absent("").exitStatus(), 1);
   EXPECT_EQ(Process::UsageError("").exitStatus(), 2);
   EXPECT_EQ(Process::Unreachable("").exitStatus(), 4);
}

} // namespace
