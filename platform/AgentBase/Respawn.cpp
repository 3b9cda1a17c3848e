#include "AgentBase/Respawn.h"

#include "Kem/Time.h"
#include "Process/Failure.h"
#include "Process/ServiceNotify.h"
#include "Process/Watchdog.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace AgentBase {

namespace {

constexpr Kem::Seconds firstPause = 0.1;
constexpr Kem::Seconds longestPause = 10.0;
constexpr Kem::Seconds stableAfter = 30.0;

// Waits for one of the signals in the set, at most so long; 0 when none came.
int waitSignal(sigset_t const& set, Kem::Seconds limit) {
   timespec const time{static_cast<time_t>(limit),
                       static_cast<long>((limit - static_cast<double>(static_cast<time_t>(limit))) * 1e9)};
   int const signal = sigtimedwait(&set, nullptr, &time);
   return signal < 0 ? 0 : signal;
}

// Waits for the child; passes a wish to end on to it. Returns its wait status.
int superviseOnce(pid_t pid, sigset_t const& set, bool& isEnding) {
   for (;;) {
      int status = 0;
      pid_t const ended = waitpid(pid, &status, WNOHANG);
      if (ended == pid || (ended < 0 && errno != EINTR))
         return status;
      int const signal = waitSignal(set, 3600);
      if (signal == SIGTERM || signal == SIGINT) {
         isEnding = true;
         Process::serviceNotify("STOPPING=1");
         kill(pid, SIGTERM);
      }
   }
}

// Waits so long, and feeds the watchdog meanwhile. Whether a wish to end came.
bool isStoppedWithin(Kem::Seconds pause, sigset_t const& set) {
   Kem::Seconds const interval = Process::watchdogInterval();
   Kem::Seconds const longestWait = interval > 0 ? interval / 2 : pause;
   for (Kem::Seconds const until = Kem::now() + pause; Kem::now() < until;) {
      Process::feedWatchdog();
      int const signal = waitSignal(set, std::clamp(until - Kem::now(), 0.0, longestWait));
      if (signal == SIGTERM || signal == SIGINT)
         return true;
   }
   return false;
}

void describeEnd(int status, Kem::Seconds pause) {
   std::string what;
   if (WIFSIGNALED(status))
      what = "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
             ")";
   else
      what = "ended with status " + std::to_string(WEXITSTATUS(status));
   char when[32];
   std::snprintf(when, sizeof when, "; next start in %.1f s", pause);
   Process::sayWithPid("agent-runner", "the agent " + what + when);
}

} // namespace

int respawn(int (*child)(void*), void* context, pid_t (*fork)()) {
   sigset_t set, before;
   sigemptyset(&set);
   for (int signal : {SIGTERM, SIGINT, SIGCHLD})
      sigaddset(&set, signal);
   sigprocmask(SIG_BLOCK, &set, &before);
   Kem::Seconds pause = firstPause;
   for (bool isEnding = false;;) {
      Kem::Seconds const started = Kem::now();
      pid_t const pid = fork();
      if (pid == 0) {
         // A child whose parent is killed must not go on beside the next one.
         prctl(PR_SET_PDEATHSIG, SIGTERM);
         Process::inheritWatchdog();
         sigprocmask(SIG_SETMASK, &before, nullptr);
         _exit(child(context));
      }
      if (pid < 0) {
         std::fprintf(stderr, "agent-runner[%d]: fork: %s; next start in %.1f s\n", getpid(),
                      std::strerror(errno), pause);
      } else {
         int const status = superviseOnce(pid, set, isEnding);
         if (isEnding)
            return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
         if (Kem::now() - started >= stableAfter)
            pause = firstPause;
         describeEnd(status, pause);
      }
      if (isStoppedWithin(pause, set)) {
         Process::serviceNotify("STOPPING=1");
         return 0;
      }
      pause = std::min(pause * 2, longestPause);
   }
}

} // namespace AgentBase
