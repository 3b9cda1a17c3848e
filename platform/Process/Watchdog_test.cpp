#include "Process/Watchdog.h"

#include "Kem/Activity.h"
#include "Process/TestServiceManager.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/wait.h>

namespace {

using Process::TestVariable;

struct WatchdogTest : testing::Test {
   // What the manager was told since the last call, such as "WATCHDOG=1 WATCHDOG=1".
   std::string told() {
      std::string text;
      for (std::string message; !(message = manager.told()).empty();)
         text += (text.empty() ? "" : " ") + message;
      return text;
   }
   static void advance(Kem::Seconds duration) { Kem::activityManager()->advance(duration); }

   Kem::VirtualTime time;
   std::string const address = "@watchdog-test-" + std::to_string(getpid());
   Process::TestServiceManager manager{address};
   TestVariable notifySocket{"NOTIFY_SOCKET", address};
};

TEST_F(WatchdogTest, isFedAtOnceAndTwiceInEachInterval) {
   TestVariable const interval("WATCHDOG_USEC", "30000000"),
       process("WATCHDOG_PID", std::to_string(getpid()));
   Process::Watchdog const watchdog;
   EXPECT_EQ(told(), "WATCHDOG=1");
   advance(14.9);
   EXPECT_EQ(told(), "") << "not yet";
   advance(0.1);
   EXPECT_EQ(told(), "WATCHDOG=1");
   advance(45);
   EXPECT_EQ(told(), "WATCHDOG=1 WATCHDOG=1 WATCHDOG=1");
}

TEST_F(WatchdogTest, isNotFedWhileTheLoopMakesNoTurns) {
   TestVariable const interval("WATCHDOG_USEC", "30000000");
   Process::Watchdog const watchdog;
   EXPECT_EQ(told(), "WATCHDOG=1");
   Kem::VirtualTime::advanceTo(Kem::now() + 1000);
   EXPECT_EQ(told(), "");
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(told(), "WATCHDOG=1") << "once, for all that were missed";
}

TEST_F(WatchdogTest, isNotFedAfterItsEnd) {
   TestVariable const interval("WATCHDOG_USEC", "30000000");
   std::optional<Process::Watchdog> watchdog(std::in_place);
   EXPECT_EQ(told(), "WATCHDOG=1");
   watchdog.reset();
   advance(1000);
   EXPECT_EQ(told(), "");
}

TEST_F(WatchdogTest, whereNobodyAsksNothingIsSaid) {
   Process::Watchdog const watchdog;
   EXPECT_EQ(Process::watchdogInterval(), 0);
   advance(1000);
   EXPECT_EQ(told(), "");
}

TEST_F(WatchdogTest, askedForIsAWholeNumberOfMicrosecondsOfThisProcess) {
   for (char const* text : {"", "0", "-1", "+5", " 5", "5s", "1e6", "99999999999999999999999"}) {
      TestVariable const interval("WATCHDOG_USEC", text);
      EXPECT_EQ(Process::watchdogInterval(), 0) << text;
   }
   TestVariable const interval("WATCHDOG_USEC", "1500000");
   EXPECT_EQ(Process::watchdogInterval(), 1.5);
   TestVariable const process("WATCHDOG_PID", std::to_string(getpid()));
   EXPECT_EQ(Process::watchdogInterval(), 1.5);
   for (std::string const& text : {std::to_string(getppid()), std::string("x"), std::string()}) {
      TestVariable const other("WATCHDOG_PID", text);
      EXPECT_EQ(Process::watchdogInterval(), 0) << text;
      Process::feedWatchdog();
   }
   EXPECT_EQ(told(), "");
}

// 0 when the child of a process that the manager asks, or doesn't, is asked.
int statusOfChild() {
   pid_t const pid = fork();
   if (pid == 0) {
      bool const isAskedBefore = Process::watchdogInterval() > 0;
      Process::inheritWatchdog();
      _exit((Process::watchdogInterval() > 0 ? 0 : 1) + (isAskedBefore ? 2 : 0));
   }
   int status = 0;
   waitpid(pid, &status, 0);
   return WEXITSTATUS(status);
}

TEST_F(WatchdogTest, childTakesOverWhatItsParentIsAskedFor) {
   TestVariable const interval("WATCHDOG_USEC", "30000000");
   {
      TestVariable const process("WATCHDOG_PID", std::to_string(getpid()));
      EXPECT_EQ(statusOfChild(), 0);
   }
   TestVariable const other("WATCHDOG_PID", "1");
   EXPECT_EQ(statusOfChild(), 1) << "and nothing else";
}

TEST_F(WatchdogTest, managerThatDoesNotReadHoldsNothingUp) {
   TestVariable const interval("WATCHDOG_USEC", "2000000");
   Process::Watchdog const watchdog;
   testing::internal::CaptureStderr();
   advance(10000); // more than any queue of datagrams takes
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
   EXPECT_NE(told(), "");
   advance(1);
   EXPECT_EQ(told(), "WATCHDOG=1") << "as soon as it reads again";
}

} // namespace
