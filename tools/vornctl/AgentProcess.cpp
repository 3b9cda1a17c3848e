#include "AgentProcess.h"

#include "Kem/Assert.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vornctl {

namespace {

constexpr char ownNetNs[] = "/proc/thread-self/ns/net";
constexpr char fabricVariable[] = "FABRIC_DEVICE_NAME";
constexpr char usualFabric[] = "fabric"; // where the agent's environment has no other

bool isSameFile(int a, int b) {
   struct stat one {
   }, other{};
   return fstat(a, &one) == 0 && fstat(b, &other) == 0 && one.st_dev == other.st_dev &&
          one.st_ino == other.st_ino;
}

// The file's variables are separated by zero bytes.
std::string fabricDeviceIn(std::string const& environFile) {
   std::string const wanted = std::string(fabricVariable) + '=';
   std::ifstream file(environFile, std::ios::binary);
   for (std::string variable; std::getline(file, variable, '\0');)
      if (variable.compare(0, wanted.size(), wanted) == 0)
         return variable.substr(wanted.size());
   return usualFabric;
}

} // namespace

AgentProcess::AgentProcess() {
   char const* const fabric = std::getenv(fabricVariable);
   fabricDeviceName_ = fabric ? fabric : usualFabric;
}

AgentProcess::AgentProcess(uint32_t pid, std::string const& procFolder) : AgentProcess() {
   std::string const folder = procFolder + '/' + std::to_string(pid);
   int const fd = open((folder + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      remark_ = "The network namespace of the agent, process " + std::to_string(pid) +
                ", can't be found out (" + std::strerror(errno) + "): devices are those of vornctl's own.";
      return;
   }
   std::shared_ptr<int const> netNs(new int(fd), [](int const* held) {
      close(*held);
      delete held;
   });
   int const own = open(ownNetNs, O_RDONLY | O_CLOEXEC);
   if (own < 0 || !isSameFile(own, fd))
      otherNetNs_ = std::move(netNs);
   if (own >= 0)
      close(own);
   fabricDeviceName_ = fabricDeviceIn(folder + "/environ");
}

AgentProcess::Visit::Visit(AgentProcess const& agent) {
   if (!agent.otherNetNs_)
      return;
   back_ = open(ownNetNs, O_RDONLY | O_CLOEXEC);
   if (back_ >= 0 && setns(*agent.otherNetNs_, CLONE_NEWNET) == 0)
      return;
   error_ = errno;
   if (back_ >= 0)
      close(back_);
   back_ = -1;
}

AgentProcess::Visit::~Visit() {
   if (back_ < 0)
      return;
   // Whatever is done afterwards would be done in the wrong place.
   bool const isBack = setns(back_, CLONE_NEWNET) == 0;
   KEM_ASSERT(isBack);
   close(back_);
}

} // namespace Vornctl
