#include "Kem/FileDescriptor.h"

#include "Kem/Activity.h"
#include "Kem/Assert.h"

#include <cmath>
#include <sys/epoll.h>

namespace Kem {

// --- The descriptors of the loop.

int ActivityManager::epollFd() {
   if (epollFd_ < 0)
      epollFd_ = epoll_create1(EPOLL_CLOEXEC);
   KEM_ASSERT(epollFd_ >= 0);
   return epollFd_;
}

// The watch that an event is for; null where an earlier one has ended it, though another may have the same
// descriptor number by now.
FileDescriptorWatch* ActivityManager::watchOf(uint64_t tag) const {
   auto const fd = static_cast<size_t>(tag & 0xffffffff);
   FileDescriptorWatch* const there = fd < watches_.size() ? watches_[fd] : nullptr;
   return there && there->serial_ == tag >> 32 ? there : nullptr;
}

// Waits at most so long; whether there was any.
bool ActivityManager::callReadyWatches(Seconds wait) {
   epoll_event events[64];
   int const count = epoll_wait(epollFd(), events, 64, static_cast<int>(std::ceil(wait * 1000)));
   for (int i = 0; i < count && !isTurnOver_; ++i) {
      uint64_t const tag = events[i].data.u64;
      if (events[i].events & EPOLLOUT)
         if (auto* const watch = watchOf(tag))
            watch->onWritable();
      if (isTurnOver_)
         break;
      if (events[i].events & ~uint32_t(EPOLLOUT))
         if (auto* const watch = watchOf(tag))
            watch->onReadable();
   }
   return count > 0;
}

// --- One watch.

FileDescriptorWatch::~FileDescriptorWatch() {
   descriptorIs(-1);
}

void FileDescriptorWatch::descriptorIs(int descriptor) {
   auto& watches = activityManager()->watches_;
   if (descriptor_ >= 0) {
      if (isAdded_)
         epoll_ctl(activityManager()->epollFd(), EPOLL_CTL_DEL, descriptor_, nullptr);
      isAdded_ = false;
      watches[static_cast<size_t>(descriptor_)] = nullptr;
   }
   descriptor_ = descriptor;
   serial_ = ++activityManager()->watchSerial_;
   wantsReadable_ = descriptor >= 0;
   wantsWritable_ = false;
   if (descriptor < 0)
      return;
   auto const index = static_cast<size_t>(descriptor);
   if (index >= watches.size())
      watches.resize(index + 1);
   KEM_ASSERT(!watches[index]);
   watches[index] = this;
   apply();
}

void FileDescriptorWatch::wantsReadableIs(bool wants) {
   if (wants == wantsReadable_)
      return;
   wantsReadable_ = wants;
   apply();
}

void FileDescriptorWatch::wantsWritableIs(bool wants) {
   if (wants == wantsWritable_)
      return;
   wantsWritable_ = wants;
   apply();
}

void FileDescriptorWatch::apply() {
   if (descriptor_ < 0)
      return;
   epoll_event event{};
   event.events = (wantsReadable_ ? uint32_t(EPOLLIN) : 0u) | (wantsWritable_ ? uint32_t(EPOLLOUT) : 0u);
   event.data.u64 = uint64_t(serial_) << 32 | static_cast<uint32_t>(descriptor_);
   // Out of the set when nothing is wanted: a hang-up would else be reported again and again.
   int const operation = !isAdded_ ? EPOLL_CTL_ADD : event.events ? EPOLL_CTL_MOD : EPOLL_CTL_DEL;
   if (operation == EPOLL_CTL_ADD && !event.events)
      return;
   int const result = epoll_ctl(activityManager()->epollFd(), operation, descriptor_, &event);
   KEM_ASSERT(result == 0);
   isAdded_ = operation != EPOLL_CTL_DEL;
}

} // namespace Kem
