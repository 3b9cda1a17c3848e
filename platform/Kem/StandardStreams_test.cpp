#include "Kem/StandardStreams.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The exit status of a child that closes these descriptors, opens the streams, and finds all three open and
// /dev/null on those that were closed, and the next file above them.
int statusWithout(std::initializer_list<int> closed) {
   pid_t const child = fork();
   if (child == 0) {
      struct stat null, status;
      stat("/dev/null", &null);
      for (int const fd : closed)
         close(fd);
      if (!Kem::openStandardStreams())
         _exit(1);
      for (int fd = 0; fd < 3; ++fd)
         if (fstat(fd, &status) != 0)
            _exit(2);
      for (int const fd : closed)
         if (fstat(fd, &status) != 0 || status.st_rdev != null.st_rdev)
            _exit(3);
      _exit(dup(0) > 2 ? 0 : 4);
   }
   int status = -1;
   waitpid(child, &status, 0);
   return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StandardStreamsTest, closedOnesAreOpened) {
   EXPECT_EQ(statusWithout({}), 0);
   EXPECT_EQ(statusWithout({1}), 0);
   EXPECT_EQ(statusWithout({0, 1, 2}), 0);
   EXPECT_EQ(statusWithout({2, 0}), 0);
}

} // namespace
