// An attribute log that a test can fill and drain, for the deferred stages: they ask it for room.
//
//    TestAttrLog log;
//    bridge.attrLogCheck = &log.check;
//    log.fill();         // from now on there is no room
//    log.roomFor(3);     // for so many questions, and then none
//    log.drain();
//
// The log is one end of a socket pair that nobody reads.
#pragma once

#include "Vorn/Pacing/AttrLogCheck.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace Vorn {

class TestAttrLog final : public Kem::NboAttrLog::Link {
  public:
   TestAttrLog() {
      EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds_), 0);
      check.nboAttrLogOutSmIs(out_);
      check.attrLogCodefInit();
   }
   ~TestAttrLog() {
      check.nboAttrLogOutSmIs(nullptr);
      out_ = nullptr;
      close(fds_[0]);
      close(fds_[1]);
   }
   void fill() {
      std::string const piece(4096, 'x');
      while (write(fds_[0], piece.data(), piece.size()) > 0) {
      }
      // The log is measured at some of the questions only, and at each of them while it is full.
      while (check.isAttrLogReady()) {
      }
   }
   // The log is full, and the measurement that notices it comes after that many questions.
   void roomFor(int questions) {
      drain();
      while (check.iterUntilBufferCheck() != questions + 1)
         EXPECT_TRUE(check.isAttrLogReady());
      std::string const piece(4096, 'x');
      while (write(fds_[0], piece.data(), piece.size()) > 0) {
      }
   }
   void drain() {
      char buffer[65536];
      while (read(fds_[1], buffer, sizeof buffer) > 0) {
      }
   }

   AttrLogCheck check;

  private:
   int socketFd() const override { return fds_[0]; }
   void writeOperations(std::string_view) override {}
   size_t unsentBytes() const override { return 0; }

   int fds_[2];
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> out_ = Kem::makePtr<Kem::NboAttrLog::SocketOutSm>(*this);
};

} // namespace Vorn
