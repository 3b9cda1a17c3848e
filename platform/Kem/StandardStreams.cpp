#include "Kem/StandardStreams.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace Kem {

bool openStandardStreams() {
   // The lowest free number is given, so there is none left below 3 when one above it comes.
   for (;;) {
      int const fd = open("/dev/null", O_RDWR);
      if (fd < 0)
         return false;
      if (fd > STDERR_FILENO)
         return close(fd) == 0;
   }
}

std::string whyOutputFailed() {
   errno = 0;
   std::cout.flush();
   bool const isWritten = std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout.good();
   if (isWritten)
      return "";
   return errno ? std::strerror(errno) : "an earlier write failed";
}

} // namespace Kem
