// Watches one file descriptor in the event loop. It does not own the descriptor: destroy the watch before
// closing it. Level triggered; an error or a hang-up counts as readable, so that the next read shows it. The
// descriptor must be one that can be polled: a plain file is an assertion failure.
#pragma once

#include <cstdint>

namespace Kem {

class FileDescriptorWatch {
  public:
   FileDescriptorWatch() = default;
   virtual ~FileDescriptorWatch();
   FileDescriptorWatch(FileDescriptorWatch const&) = delete;
   FileDescriptorWatch& operator=(FileDescriptorWatch const&) = delete;

   int descriptor() const { return descriptor_; }
   // -1 ends the watch; from then on the wants below are without effect. A new descriptor starts with
   // readable wanted and writable not.
   void descriptorIs(int descriptor);
   void wantsReadableIs(bool wants);
   void wantsWritableIs(bool wants);
   bool wantsWritable() const { return wantsWritable_; }

   // May destroy the watch.
   virtual void onReadable() {}
   virtual void onWritable() {}

  private:
   friend class ActivityManager;
   void apply();

   int descriptor_ = -1;
   bool wantsReadable_ = false;
   bool wantsWritable_ = false;
   bool isAdded_ = false; // to the epoll set
   uint32_t serial_ = 0;  // of this watch on this descriptor; an event of an older one is not for it
};

} // namespace Kem
