#include "Sulvi/SocketAt.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Sulvi {
namespace {

constexpr char netnsFolder[] = "/var/run/netns";

ino_t inodeOf(int fd) {
   struct stat status {};
   EXPECT_EQ(fstat(fd, &status), 0);
   return status.st_ino;
}

ino_t inodeOf(std::string const& path) {
   struct stat status {};
   EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
   return status.st_ino;
}

ino_t ownNamespace() {
   return inodeOf("/proc/thread-self/ns/net");
}

// The namespace that a socket lives in.
ino_t namespaceOf(int socketFd) {
   int const fd = ioctl(socketFd, SIOCGSKNS);
   EXPECT_GE(fd, 0);
   ino_t const inode = inodeOf(fd);
   close(fd);
   return inode;
}

bool closesOnExec(int fd) {
   return fcntl(fd, F_GETFD) & FD_CLOEXEC;
}

int openDescriptors() {
   int count = 0;
   for (int fd = 0; fd < 256; ++fd)
      count += fcntl(fd, F_GETFD) >= 0;
   return count;
}

// A second network namespace, kept by a child process and reached by a name of its own in /var/run/netns.
class SocketAt : public testing::Test {
  protected:
   void SetUp() override {
      int ready[2];
      ASSERT_EQ(pipe(ready), 0);
      child_ = fork();
      ASSERT_GE(child_, 0);
      if (child_ == 0) {
         prctl(PR_SET_PDEATHSIG, SIGKILL);
         char const isEntered = unshare(CLONE_NEWNET) == 0 ? 'y' : 'n';
         if (write(ready[1], &isEntered, 1) == 1)
            pause();
         _exit(0);
      }
      char isEntered = 'n';
      ASSERT_EQ(read(ready[0], &isEntered, 1), 1);
      close(ready[0]);
      close(ready[1]);
      if (isEntered != 'y')
         GTEST_SKIP() << "no right to make a network namespace";
      madeFolder_ = mkdir(netnsFolder, 0755) == 0;
      name_ = "sulvi-test-" + std::to_string(getpid());
      std::string const target = "/proc/" + std::to_string(child_) + "/ns/net";
      ASSERT_EQ(symlink(target.c_str(), path(name_).c_str()), 0);
      inode_ = inodeOf(target);
      ASSERT_NE(inode_, ownNamespace());
   }

   void TearDown() override {
      if (!name_.empty()) {
         unlink(path(name_).c_str());
         unlink(path(name_ + "-stale").c_str());
      }
      if (madeFolder_)
         rmdir(netnsFolder);
      if (child_ > 0) {
         kill(child_, SIGKILL);
         waitpid(child_, nullptr, 0);
      }
   }

   static std::string path(std::string const& name) { return std::string(netnsFolder) + "/" + name; }

   // A name whose namespace is gone.
   std::string staleName() {
      std::string const name = name_ + "-stale";
      int const fd = open(path(name).c_str(), O_CREAT | O_WRONLY, 0444);
      EXPECT_GE(fd, 0);
      close(fd);
      return name;
   }

   std::string name_; // of the second namespace
   ino_t inode_ = 0;  // its inode
   pid_t child_ = -1;
   bool madeFolder_ = false;
};

TEST_F(SocketAt, socketLivesInTheNamedNamespace) {
   ino_t const before = ownNamespace();
   int const descriptors = openDescriptors();
   int const fd = socketAt(AF_INET, SOCK_DGRAM, 0, name_);
   ASSERT_GE(fd, 0);
   EXPECT_EQ(namespaceOf(fd), inode_);
   EXPECT_TRUE(closesOnExec(fd));
   EXPECT_EQ(ownNamespace(), before);
   close(fd);
   EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(SocketAt, socketOfTheDefaultNamespaceLivesHere) {
   for (char const* name : {"", "default"}) {
      int const fd = socketAt(AF_INET, SOCK_DGRAM, 0, name);
      ASSERT_GE(fd, 0);
      EXPECT_EQ(namespaceOf(fd), ownNamespace());
      EXPECT_TRUE(closesOnExec(fd));
      close(fd);
   }
}

TEST_F(SocketAt, failureGivesErrnoAndComesBack) {
   ino_t const before = ownNamespace();
   int const descriptors = openDescriptors();
   struct {
      int family;
      std::string name;
      int error;
   } const cases[] = {
       {AF_INET, "sulvi-no-such-namespace", ENOENT},
       {AF_INET, staleName(), EINVAL},
       {AF_INET, "../netns/" + name_, EINVAL},
       {12345, name_, EAFNOSUPPORT},
       {12345, "", EAFNOSUPPORT},
   };
   for (auto const& [family, name, error] : cases) {
      errno = 0;
      EXPECT_EQ(socketAt(family, SOCK_DGRAM, 0, name), -1) << name;
      EXPECT_EQ(errno, error) << name;
      EXPECT_EQ(ownNamespace(), before) << name;
   }
   EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(SocketAt, getnsByNameOpensTheNamespace) {
   for (int nsType : {CLONE_NEWNET, 0}) {
      int const fd = getnsByName(name_, nsType);
      ASSERT_GE(fd, 0);
      EXPECT_EQ(inodeOf(fd), inode_);
      EXPECT_TRUE(closesOnExec(fd));
      close(fd);
   }
   int const fd = getnsByName(DEFAULT_NS, CLONE_NEWNET);
   ASSERT_GE(fd, 0);
   EXPECT_EQ(inodeOf(fd), ownNamespace());
   close(fd);
}

TEST_F(SocketAt, getnsByNameRefusesWhatIsNoNamespace) {
   int const descriptors = openDescriptors();
   std::pair<std::string, int> const cases[] = {
       {"sulvi-no-such-namespace", ENOENT},
       {staleName(), EINVAL},
       {".", EINVAL},
       {"..", EINVAL},
       {"../netns/" + name_, EINVAL},
       {std::string("a\0b", 3), EINVAL},
   };
   for (auto const& [name, error] : cases) {
      errno = 0;
      EXPECT_EQ(getnsByName(name, CLONE_NEWNET), -1) << name;
      EXPECT_EQ(errno, error) << name;
   }
   EXPECT_EQ(getnsByName(name_, CLONE_NEWUTS), -1);
   EXPECT_EQ(openDescriptors(), descriptors);
}

} // namespace
} // namespace Sulvi
