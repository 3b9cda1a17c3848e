// ordelctl: reads, writes, watches and loads the tree of the state database.
#include "CommandLine.h"
#include "Failures.h"
#include "Kem/Printable.h"
#include "Kem/StandardStreams.h"
#include "treejson/Error.h"

#include <csignal>
#include <cstdio>
#include <string>

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
   std::fprintf(stderr, "ordelctl: %s\n", Kem::printable(error.what()).c_str());
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
      return Ordelctl::runCommandLine(argc, argv);
   } catch (TreeJson::Absent const& error) {
      return fail(error, exitNo);
   } catch (TreeJson::SyntaxError const& error) {
      return fail(error, exitUsage);
   } catch (Ordelctl::UsageError const& error) {
      return fail(error, exitUsage);
   } catch (TreeJson::Refusal const& error) {
      return fail(error, exitRefused);
   } catch (Ordelctl::Unreachable const& error) {
      return fail(error, exitUnreachable);
   }
}
