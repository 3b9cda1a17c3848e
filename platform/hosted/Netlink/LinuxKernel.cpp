#include "Netlink/LinuxKernel.h"

#include "Netlink/Socket.h"
#include "Sulvi/SocketAt.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Netlink {

namespace {

LinuxKernel linuxKernel;
Kernel* inUse = &linuxKernel;

} // namespace

Kernel& kernel() {
   return *inUse;
}

void kernelIs(Kernel* kernel) {
   inUse = kernel ? kernel : &linuxKernel;
}

ssize_t LinuxKernel::sendmsg(int fd, msghdr const* message, int flags) {
   return ::sendmsg(fd, message, flags);
}

ssize_t LinuxKernel::recvmsg(int fd, msghdr* message, int flags) {
   return ::recvmsg(fd, message, flags);
}

int LinuxKernel::ioctl(int fd, unsigned long request, void* argument) {
   return ::ioctl(fd, request, argument);
}

unsigned LinuxKernel::ifNametoindex(char const* name, int fd) {
   ifreq request{};
   size_t const length = std::strlen(name);
   if (length >= sizeof request.ifr_name) {
      errno = ENODEV;
      return 0;
   }
   std::memcpy(request.ifr_name, name, length);
   return ::ioctl(fd, SIOCGIFINDEX, &request) < 0 ? 0 : static_cast<unsigned>(request.ifr_ifindex);
}

int LinuxKernel::socketAt(int family, int type, int protocol, Sulvi::NamespaceName const& netNs) {
   return Sulvi::socketAt(family, type, protocol, netNs);
}

int LinuxKernel::getnsByName(Sulvi::NamespaceName const& netNs, int nsType) {
   return Sulvi::getnsByName(netNs, nsType);
}

int LinuxKernel::close(int fd) {
   return ::close(fd);
}

uint64_t LinuxKernel::netNsInode(Sulvi::NamespaceName const& netNs) {
   int const fd = Sulvi::getnsByName(netNs, CLONE_NEWNET);
   if (fd < 0)
      return 0;
   struct stat status {};
   uint64_t const inode = fstat(fd, &status) == 0 ? status.st_ino : 0;
   ::close(fd);
   return inode;
}

std::string Kernel::namespaceFolder() const {
   return Sulvi::namespaceFolder;
}

void Kernel::exitProcess(int status) {
   std::exit(status);
}

std::unique_ptr<Channel> LinuxKernel::channel(Sulvi::NamespaceName const& netNs, uint32_t groups) {
   auto socket = std::make_unique<Socket>(netNs, groups);
   if (socket->isOpen())
      return socket;
   errno = socket->error();
   return nullptr;
}

} // namespace Netlink
