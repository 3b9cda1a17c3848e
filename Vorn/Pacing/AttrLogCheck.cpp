#include "Vorn/Pacing/AttrLogCheck.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace Vorn {

namespace {
Kem::TraceFacility attrLogTrace("VornAttrLog");
}

void AttrLogCheck::nboAttrLogOutSmIs(Kem::Ptr<Kem::NboAttrLog::SocketOutSm> out) {
   nboAttrLogOutSm_ = std::move(out);
}

void AttrLogCheck::attrLogCodefInit() {
   if (!nboAttrLogOutSm_)
      return;
   int32_t const fd = std::max(nboAttrLogOutSm_->socketFd(), -1);
   KEM_TRACE(attrLogTrace, 3, "attrLogCodefInit fd:" << fd);
   attrLogSockFdIs(fd);
}

void AttrLogCheck::attrLogSockFdIs(int32_t fd) {
   if (fd == attrLogSockFd_)
      return;
   attrLogSockFd_ = fd;
   handleAttrLogSockFd();
}

void AttrLogCheck::handleAttrLogSockFd() {
   if (attrLogSockFd_ == -1)
      return;
   int size = 0;
   socklen_t length = sizeof size;
   if (getsockopt(attrLogSockFd_, SOL_SOCKET, SO_SNDBUF, &size, &length) != 0)
      size = -1;
   // The kernel reports double the value that was set; the figure is taken as it is.
   attrLogKernBufferThreshold_ = size < 0 ? -1 : size / 2;
   KEM_TRACE(attrLogTrace, 3,
             "handleAttrLogSockFd sockFd:" << attrLogSockFd_ << ", kernBufferSize:" << size
                                           << ", kernBufferThreshold:" << attrLogKernBufferThreshold_);
   attrLogKernBufferSize_ = size;
}

int32_t AttrLogCheck::getAttrLogKernBufferUsage() const {
   if (attrLogSockFd_ == -1)
      return -1;
   int value = 0;
   if (ioctl(attrLogSockFd_, TIOCOUTQ, &value) != 0) // 21521: bytes that the peer has not taken
      KEM_ASSERT(0);
   return value;
}

bool AttrLogCheck::isAttrLogReady() {
   --iterUntilBufferCheck_;
   if (!nboAttrLogOutSm_)
      return true;
   if (iterUntilBufferCheck_ > 0)
      return true;
   attrLogKernBufferUsage_ = getAttrLogKernBufferUsage();
   if (attrLogKernBufferUsage_ > attrLogKernBufferThreshold_) {
      KEM_TRACE(attrLogTrace, 5,
                "Buffer usage:" << attrLogKernBufferUsage_
                                << " is above threshold:" << attrLogKernBufferThreshold_);
      iterUntilBufferCheck_ = 1; // the next call measures again
      ++attrLogAboveThresholdCount_;
      return false;
   }
   iterUntilBufferCheck_ = maxIterUntilBufferCheck;
   return true;
}

} // namespace Vorn
