// ordeld: the state database as a process.
#include "Kem/Activity.h"
#include "Kem/StandardStreams.h"
#include "Ordel/client/Connection.h"
#include "Ordel/server/Listener.h"
#include "Ordel/server/Server.h"
#include "Ordel/store/Snapshot.h"
#include "Ordel/store/Tree.h"
#include "Process/Failure.h"
#include "Process/ServiceNotify.h"
#include "Process/StopSignals.h"
#include "records/Schema.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace {

enum ExitStatus { stopped = 0, badUsage = 2, badSnapshot = 3, noSocket = 4, snapshotNotWritten = 5 };

constexpr unsigned cell = 1; // of the supervisor that the database runs on

constexpr char usage[] =
    "usage: ordeld [--socket PATH] [--snapshot FILE] [--tree-limit MIB]\n"
    "\n"
    "The state database of the switch. Runs until SIGTERM or SIGINT.\n"
    "\n"
    "  --socket PATH     where clients connect; by default $ORDEL_SOCKET, else /run/vorn/ordel.sock\n"
    "  --snapshot FILE   read at start when it is there, written at the end and on request\n"
    "  --tree-limit MIB  refuse what would make the tree larger, 1 to 1000000; 512 unless given\n"
    "  --help            this text\n"
    "  --version         the version\n"
    "\n"
    "Exit status: 0 stopped by a signal; 2 usage; 3 the snapshot can't be used (the file is left alone);\n"
    "4 the socket can't be had; 5 the snapshot could not be written at the end.\n";

struct Options {
   std::string socketPath = Ordel::Connection::defaultSocketPath();
   std::string snapshotFile;
   size_t treeLimit = Ordel::Server::defaultTreeLimit; // bytes
};

// Ends the process for what is no limit.
size_t treeLimitOf(std::string_view text) {
   constexpr size_t most = 1'000'000;
   size_t mebibytes = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), mebibytes);
   if (error != std::errc() || end != text.data() + text.size() || mebibytes < 1 || mebibytes > most) {
      Process::say("ordeld", "--tree-limit " + std::string(text) + ": expected 1 to 1000000 MiB");
      std::exit(badUsage);
   }
   return mebibytes << 20;
}

// Ends the process for --help, --version and what can't be read.
Options optionsOf(int argc, char** argv) {
   static option const longOptions[] = {
       {"socket", required_argument, nullptr, 's'},     {"snapshot", required_argument, nullptr, 'f'},
       {"tree-limit", required_argument, nullptr, 'l'}, {"help", no_argument, nullptr, 'h'},
       {"version", no_argument, nullptr, 'v'},          {nullptr, 0, nullptr, 0}};
   Options options;
   int letter;
   while ((letter = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
      switch (letter) {
      case 's':
         options.socketPath = optarg;
         break;
      case 'f':
         options.snapshotFile = optarg;
         break;
      case 'l':
         options.treeLimit = treeLimitOf(optarg);
         break;
      case 'h':
         std::fputs(usage, stdout);
         std::exit(stopped);
      case 'v':
         std::puts("ordeld " VORN_VERSION);
         std::exit(stopped);
      default: // getopt has said why
         std::exit(badUsage);
      }
   }
   if (optind < argc) {
      Process::say("ordeld", std::string(argv[optind]) + ": no such argument");
      std::exit(badUsage);
   }
   return options;
}

// Null, with the reason told, when there is a snapshot that can't be used.
std::unique_ptr<Ordel::Tree> treeAtStart(std::string const& snapshotFile) {
   if (!snapshotFile.empty()) {
      std::string error;
      bool isAbsent = false;
      auto tree = Ordel::Snapshot::read(Records::schema(), snapshotFile, error, isAbsent);
      if (tree || !isAbsent) {
         if (!tree)
            Process::say("ordeld", error);
         return tree;
      }
   }
   return std::make_unique<Ordel::Tree>(Records::schema(), cell);
}

// A descriptor for each client, and some for itself.
void raiseDescriptorLimit() {
   rlimit limit;
   rlim_t const wanted = Ordel::maxClients + 64;
   if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < wanted) {
      limit.rlim_cur = limit.rlim_max < wanted ? limit.rlim_max : wanted;
      setrlimit(RLIMIT_NOFILE, &limit);
   }
}

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return EXIT_FAILURE;
   Options const options = optionsOf(argc, argv);
   std::signal(SIGPIPE, SIG_IGN);
   Process::stopEndsProcess();
   raiseDescriptorLimit();

   std::unique_ptr<Ordel::Tree> tree = treeAtStart(options.snapshotFile);
   if (!tree)
      return badSnapshot;
   char systemName[256] = "";
   gethostname(systemName, sizeof systemName - 1);
   Ordel::Tree const& standing = *tree;
   auto const writeSnapshot = [&] {
      std::string error;
      Ordel::Snapshot::write(standing, options.snapshotFile, error);
      return error;
   };
   Ordel::Server server(std::move(tree), systemName,
                        options.snapshotFile.empty() ? Ordel::Server::WriteSnapshot() : writeSnapshot);
   server.treeLimitIs(options.treeLimit);

   int status = stopped;
   {
      Ordel::Listener listener(server);
      std::string error;
      if (!listener.listen(options.socketPath, error)) {
         Process::say("ordeld", error);
         return noSocket;
      }
      Process::StopSignals const stopSignals([](int) { Kem::activityManager()->stop(); });
      Process::say("ordeld", "ready on " + options.socketPath);
      Process::serviceNotify("READY=1");
      Kem::activityManager()->run();
      Process::serviceNotify("STOPPING=1");
   }
   if (!options.snapshotFile.empty()) {
      if (std::string const error = writeSnapshot(); !error.empty()) {
         Process::say("ordeld", error);
         status = snapshotNotWritten;
      }
   }
   return status;
}
