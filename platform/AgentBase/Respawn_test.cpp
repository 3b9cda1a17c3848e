#include "AgentBase/Respawn.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

namespace {

// A fork that fails twice, and then works; with it comes the wish to end, so that the runner ends with the
// status of that process.
pid_t forkThatFailsTwice() {
   static int count = 0;
   if (++count <= 2) {
      errno = EAGAIN;
      return -1;
   }
   pid_t const pid = fork();
   if (pid > 0)
      raise(SIGTERM);
   return pid;
}

// Runs until it is asked to end.
int stay(void*) {
   sigset_t set;
   sigemptyset(&set);
   sigaddset(&set, SIGTERM);
   sigprocmask(SIG_BLOCK, &set, nullptr);
   int signal = 0;
   sigwait(&set, &signal);
   return 7;
}

// A process of its own in which SIGTERM waits from the beginning, so that none is lost.
[[noreturn]] void respawnAndExit() {
   sigset_t set;
   sigemptyset(&set);
   sigaddset(&set, SIGTERM);
   sigprocmask(SIG_BLOCK, &set, nullptr);
   _exit(AgentBase::respawn(stay, nullptr, forkThatFailsTwice));
}

TEST(RespawnTest, startThatTheKernelRefusesIsTriedAgain) {
   EXPECT_EXIT(respawnAndExit(), testing::ExitedWithCode(7),
               "fork: .*; next start in 0.1 s\n.*fork: .*; next start in 0.2 s");
}

} // namespace
