#include "Process/Watchdog.h"

#include "Process/ServiceNotify.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace Process {

namespace {

constexpr char intervalVariable[] = "WATCHDOG_USEC";
constexpr char processVariable[] = "WATCHDOG_PID";

// A whole number that isn't 0; 0 when the variable holds none.
unsigned long long numberIn(char const* variable) {
   char const* const text = std::getenv(variable);
   if (!text || *text < '0' || *text > '9')
      return 0;
   char* end = nullptr;
   errno = 0;
   unsigned long long const number = std::strtoull(text, &end, 10);
   return errno == 0 && !*end ? number : 0;
}

bool isMeant(pid_t pid) {
   return numberIn(processVariable) == static_cast<unsigned long long>(pid);
}

} // namespace

Kem::Seconds watchdogInterval() {
   if (std::getenv(processVariable) && !isMeant(getpid()))
      return 0;
   return static_cast<double>(numberIn(intervalVariable)) * 1e-6;
}

void inheritWatchdog() {
   if (isMeant(getppid()))
      setenv(processVariable, std::to_string(getpid()).c_str(), 1);
}

void feedWatchdog() {
   if (watchdogInterval() > 0)
      serviceNotifyIfRoom("WATCHDOG=1");
}

Watchdog::Watchdog() : NotifieeConst(Kem::ActivityFacility::clock()), interval_(watchdogInterval()) {
   if (interval_ > 0)
      onTime();
}

void Watchdog::onTime() {
   feedWatchdog();
   timeMinIs(Kem::now() + interval_ / 2);
}

} // namespace Process
