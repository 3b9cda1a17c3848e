#include "Process/StopSignals.h"

#include "Kem/Assert.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace Process {

namespace {

constexpr int stopSignals[] = {SIGTERM, SIGINT};

void endAtOnce(int) {
   _exit(0); // a signal handler may call little else
}

} // namespace

void stopEndsProcess() {
   for (int const signal : stopSignals)
      std::signal(signal, endAtOnce);
}

StopSignals::StopSignals(std::function<void(int)> onStop) : onStop_(std::move(onStop)) {
   sigset_t set;
   sigemptyset(&set);
   for (int const signal : stopSignals)
      sigaddset(&set, signal);
   sigprocmask(SIG_BLOCK, &set, nullptr);
   int const fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
   KEM_ASSERT(fd >= 0);
   descriptorIs(fd);
}

StopSignals::~StopSignals() {
   int const fd = descriptor();
   descriptorIs(-1);
   close(fd);
}

void StopSignals::onReadable() {
   signalfd_siginfo info{};
   if (read(descriptor(), &info, sizeof info) == sizeof info)
      onStop_(static_cast<int>(info.ssi_signo));
}

} // namespace Process
