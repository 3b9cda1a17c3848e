// ordeld: the state database as a process.
#include "Kem/Activity.h"
#include "Kem/StandardStreams.h"
#include "Ordel/client/Connection.h"
#include "Ordel/server/Listener.h"
#include "Ordel/server/Server.h"
#include "Ordel/store/Snapshot.h"
#include "Ordel/store/Tree.h"
#include "records/Schema.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

enum ExitStatus { stopped = 0, badUsage = 2, badSnapshot = 3, noSocket = 4, snapshotNotWritten = 5 };

constexpr unsigned cell = 1; // of the supervisor that the database runs on

constexpr char usage[] =
    "usage: ordeld [--socket PATH] [--snapshot FILE]\n"
    "\n"
    "The state database of the switch. Runs until SIGTERM or SIGINT.\n"
    "\n"
    "  --socket PATH     where clients connect; by default $ORDEL_SOCKET, else /run/vorn/ordel.sock\n"
    "  --snapshot FILE   read at start when it is there, written at the end and on request\n"
    "  --help            this text\n"
    "  --version         the version\n"
    "\n"
    "Exit status: 0 stopped by a signal; 2 usage; 3 the snapshot can't be used (the file is left alone);\n"
    "4 the socket can't be had; 5 the snapshot could not be written at the end.\n";

struct Options {
   std::string socketPath = Ordel::Connection::defaultSocketPath();
   std::string snapshotFile;
};

// Ends the process for --help, --version and what can't be read.
Options optionsOf(int argc, char** argv) {
   static option const longOptions[] = {{"socket", required_argument, nullptr, 's'},
                                        {"snapshot", required_argument, nullptr, 'f'},
                                        {"help", no_argument, nullptr, 'h'},
                                        {"version", no_argument, nullptr, 'v'},
                                        {nullptr, 0, nullptr, 0}};
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
      std::fprintf(stderr, "ordeld: %s: no such argument\n", argv[optind]);
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
            std::fprintf(stderr, "ordeld: %s\n", error.c_str());
         return tree;
      }
   }
   return std::make_unique<Ordel::Tree>(Records::schema(), cell);
}

// Tells the service manager, where there is one, by the protocol of sd_notify(3).
void notifyServiceManager(char const* state) {
   char const* const path = std::getenv("NOTIFY_SOCKET");
   sockaddr_un address{};
   if (!path || (path[0] != '/' && path[0] != '@') || std::strlen(path) >= sizeof address.sun_path)
      return;
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path, std::strlen(path));
   if (path[0] == '@') // an abstract name
      address.sun_path[0] = '\0';
   int const socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
   if (socket < 0 || sendto(socket, state, std::strlen(state), MSG_NOSIGNAL,
                            reinterpret_cast<sockaddr const*>(&address), size) < 0)
      std::fprintf(stderr, "ordeld: %s: %s\n", path, std::strerror(errno));
   if (socket >= 0)
      close(socket);
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

// SIGTERM and SIGINT end the event loop.
class StopSignals final : public Kem::FileDescriptorWatch {
  public:
   StopSignals() {
      sigset_t signals;
      sigemptyset(&signals);
      sigaddset(&signals, SIGTERM);
      sigaddset(&signals, SIGINT);
      sigprocmask(SIG_BLOCK, &signals, nullptr);
      descriptorIs(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
   }
   void onReadable() override {
      signalfd_siginfo info;
      if (read(descriptor(), &info, sizeof info) == sizeof info)
         Kem::activityManager()->stop();
   }
};

} // namespace

int main(int argc, char** argv) {
   if (!Kem::openStandardStreams())
      return EXIT_FAILURE;
   Options const options = optionsOf(argc, argv);
   std::signal(SIGPIPE, SIG_IGN);
   raiseDescriptorLimit();
   StopSignals stopSignals;

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

   int status = stopped;
   {
      Ordel::Listener listener(server);
      std::string error;
      if (!listener.listen(options.socketPath, error)) {
         std::fprintf(stderr, "ordeld: %s\n", error.c_str());
         return noSocket;
      }
      std::fprintf(stderr, "ordeld: ready on %s\n", options.socketPath.c_str());
      notifyServiceManager("READY=1");
      Kem::activityManager()->run();
      notifyServiceManager("STOPPING=1");
   }
   if (!options.snapshotFile.empty()) {
      if (std::string const error = writeSnapshot(); !error.empty()) {
         std::fprintf(stderr, "ordeld: %s\n", error.c_str());
         status = snapshotNotWritten;
      }
   }
   return status;
}
