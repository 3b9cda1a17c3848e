// How full the attribute log's socket is, for the deferred stages: they ask isAttrLogReady() before each
// item, and stop for the moment when more than half of the kernel's buffer is taken.
//
// Measuring is a system call, so it is done at every 25th call while there is room, and at every call while
// there is none; the other calls cost a decrement and two tests. Nothing waits here: usage falls in the
// kernel, and the stages come back through the event loop.
#pragma once

#include "Ordel/client/NboAttrLog.h"

#include <cstdint>

namespace Vorn {

class AttrLogCheck {
  public:
   static constexpr int32_t maxIterUntilBufferCheck = 25; // calls from one measurement to the next

   // The output to measure; null for none, which is always ready.
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> const& nboAttrLogOutSm() const { return nboAttrLogOutSm_; }
   void nboAttrLogOutSmIs(Kem::Ptr<Kem::NboAttrLog::SocketOutSm> out);
   // Takes the socket from the output.
   void attrLogCodefInit();

   // Whether state machines may write more now.
   bool isAttrLogReady();

   // The socket; -1 for none. A new one has its buffer measured.
   int32_t attrLogSockFd() const { return attrLogSockFd_; }
   void attrLogSockFdIs(int32_t fd);
   // SO_SNDBUF of the socket in bytes, as the kernel reports it; -1 where it can't be read.
   int32_t attrLogKernBufferSize() const { return attrLogKernBufferSize_; }
   // Half of that; -1 where it can't be read, and then any usage is above it.
   int32_t attrLogKernBufferThreshold() const { return attrLogKernBufferThreshold_; }
   // Bytes that were queued at the last measurement; -1 without a socket.
   int32_t attrLogKernBufferUsage() const { return attrLogKernBufferUsage_; }
   // Measurements that came out above the threshold, since the start.
   uint32_t attrLogAboveThresholdCount() const { return attrLogAboveThresholdCount_; }
   // Calls left until the next measurement.
   int32_t iterUntilBufferCheck() const { return iterUntilBufferCheck_; }

  private:
   void handleAttrLogSockFd();
   int32_t getAttrLogKernBufferUsage() const;

   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> nboAttrLogOutSm_;
   int32_t attrLogSockFd_ = -1;
   int32_t attrLogKernBufferSize_ = -1;
   int32_t attrLogKernBufferThreshold_ = -1;
   int32_t attrLogKernBufferUsage_ = -1;
   uint32_t attrLogAboveThresholdCount_ = 0;
   int32_t iterUntilBufferCheck_ = 1;
};

} // namespace Vorn
