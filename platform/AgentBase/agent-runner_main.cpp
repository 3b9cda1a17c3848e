// Loads an agent module and runs it on the state database.
#include "AgentBase/Respawn.h"
#include "AgentBase/Runner.h"
#include "Kem/StandardStreams.h"
#include "Process/StopSignals.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <string>
#include <unistd.h>

namespace {

char const usageText[] =
    "Usage: agent-runner [--socket PATH] [--module FILE] [--name NAME] [--cell NUMBER] [--respawn]\n"
    "\n"
    "Loads an agent module and runs it on the state database, in the foreground, until SIGTERM.\n"
    "\n"
    "  --socket PATH   socket of the state database (default: ORDEL_SOCKET, else /run/vorn/ordel.sock)\n"
    "  --module FILE   the module (default: libVorn.so in ../lib beside this program)\n"
    "  --name NAME     name of the agent (default: Vorn)\n"
    "  --cell NUMBER   the supervisor that it runs on, from 1 (default: 1); beyond 1 the agent is known to "
    "the\n"
    "                  database as NAME@NUMBER\n"
    "  --respawn       start the agent again when it ends, after a pause that grows from 0.1 to 10 seconds\n"
    "  --help          print this\n"
    "  --version       print the version\n"
    "\n"
    "Environment:\n"
    "  KEM_TRACE            what is traced, such as Vorn*/0-5,Ordel*/0-3 (facility pattern/levels)\n"
    "  KEM_TRACE_FILE       what the trace file gets besides (default: */0-5)\n"
    "  ZIVLOG_DISABLE       set: no trace file\n"
    "  ZIVLOGDIR            folder of the trace file\n"
    "  FABRIC_DEVICE_NAME   kernel device below VLAN interfaces (default: fabric)\n"
    "\n"
    "Exit status:\n"
    "  0  stopped by SIGTERM or SIGINT, or the agent asks to be started anew\n"
    "  1  the agent gave up on a failure that it names\n"
    "  2  usage\n"
    "  3  the module can't be loaded\n"
    "  4  the state database can't be reached, refused the connection, or has no such cell\n"
    "  5  the connection to the state database ended\n"
    "  6  an exception reached no catcher\n"
    "  134  (SIGABRT) an assertion failed\n";

// libVorn.so in the lib folder beside the folder of this program.
std::string defaultModule() {
   char path[4096];
   ssize_t const size = readlink("/proc/self/exe", path, sizeof path);
   if (size <= 0)
      return "libVorn.so";
   std::string const program(path, static_cast<size_t>(size));
   return program.substr(0, program.rfind('/')) + "/../lib/libVorn.so";
}

// A whole number from 1 to 65535, or 0 when the text is none.
uint32_t cellFromText(char const* text) {
   char* end = nullptr;
   errno = 0;
   unsigned long const number = std::strtoul(text, &end, 10);
   bool const isNumber = errno == 0 && *text >= '0' && *text <= '9' && !*end && number <= 65535;
   return isNumber ? static_cast<uint32_t>(number) : 0;
}

int runOnce(void* options) {
   return AgentBase::Runner(*static_cast<AgentBase::RunnerOptions*>(options)).run();
}

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return EXIT_FAILURE;
   AgentBase::RunnerOptions options;
   options.socketPath = Ordel::Connection::defaultSocketPath();
   options.module = defaultModule();
   option const longOptions[] = {
       {"socket", required_argument, nullptr, 's'}, {"module", required_argument, nullptr, 'm'},
       {"name", required_argument, nullptr, 'n'},   {"cell", required_argument, nullptr, 'c'},
       {"respawn", no_argument, nullptr, 'r'},      {"help", no_argument, nullptr, 'h'},
       {"version", no_argument, nullptr, 'v'},      {nullptr, 0, nullptr, 0}};
   for (int letter; (letter = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
      switch (letter) {
      case 's':
         options.socketPath = optarg;
         break;
      case 'm':
         options.module = optarg;
         break;
      case 'n':
         options.name = optarg;
         break;
      case 'c':
         options.cell = cellFromText(optarg);
         break;
      case 'r':
         options.isRespawning = true;
         break;
      case 'h':
         std::fputs(usageText, stdout);
         return AgentBase::ExitStatus::stopped;
      case 'v':
         std::puts("agent-runner " VORN_VERSION);
         return AgentBase::ExitStatus::stopped;
      default:
         std::fputs("Try agent-runner --help.\n", stderr);
         return AgentBase::ExitStatus::usage;
      }
   }
   if (optind < argc) {
      std::fprintf(stderr, "agent-runner: unexpected argument \"%s\"\n", argv[optind]);
      return AgentBase::ExitStatus::usage;
   }
   if (options.cell == 0) {
      std::fputs("agent-runner: --cell: expected a number from 1 to 65535\n", stderr);
      return AgentBase::ExitStatus::usage;
   }
   if (options.name.empty() || options.name.find_first_of("/.[]") != std::string::npos) {
      std::fputs("agent-runner: --name: expected a name without / . [ ]\n", stderr);
      return AgentBase::ExitStatus::usage;
   }
   signal(SIGPIPE, SIG_IGN);
   // Until the agent's loop looks at the signals itself, and beside that in the process that starts it again.
   Process::stopEndsProcess();
   return options.isRespawning ? AgentBase::respawn(runOnce, &options) : runOnce(&options);
}
