// vornctl: shows what the bridging agent resolved, and why.
#include "CommandLine.h"
#include "Failures.h"

#include "Kem/Printable.h"
#include "Kem/StandardStreams.h"

#include <csignal>
#include <cstdio>

namespace {

enum ExitStatus {
   exitNo = 1,
   exitUsage = 2,
   exitRefused = 3,
   exitUnreachable = 4,
};

// One line, whatever names are in it.
int fail(std::exception const& error, ExitStatus status) {
   std::fflush(stdout);
   std::fprintf(stderr, "vornctl: %s\n", Kem::printable(error.what()).c_str());
   return status;
}

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return exitUsage;
   // Whoever reads the output may go; like other tools of its kind this one then ends without a word, also
   // where it was started with the signal ignored.
   std::signal(SIGPIPE, SIG_DFL);
   try {
      return Vornctl::runCommandLine(argc, argv);
   } catch (Vornctl::Absent const& error) {
      return fail(error, exitNo);
   } catch (Vornctl::UsageError const& error) {
      return fail(error, exitUsage);
   } catch (Vornctl::Refused const& error) {
      return fail(error, exitRefused);
   } catch (Vornctl::Unreachable const& error) {
      return fail(error, exitUnreachable);
   }
}
