// Watches one file descriptor in the event loop. It does not own the descriptor: destroy the watch before closing it.
// Level triggered; an error or a hang-up counts as readable, so that the next read tells it.
#pragma once

namespace Kem {

class FileDescriptorWatch {
 public:
   FileDescriptorWatch() = default;
   virtual ~FileDescriptorWatch();
   FileDescriptorWatch(FileDescriptorWatch const&) = delete;
   FileDescriptorWatch& operator=(FileDescriptorWatch const&) = delete;

   int descriptor() const { return descriptor_; }
   // -1 ends the watch. A new descriptor starts with readable wanted and writable not.
   void descriptorIs(int descriptor);
   void wantsReadableIs(bool wants);
   void wantsWritableIs(bool wants);
   bool wantsWritable() const { return wantsWritable_; }

   // May destroy the watch.
   virtual void onReadable() {}
   virtual void onWritable() {}

 private:
   void apply();

   int descriptor_ = -1;
   bool wantsReadable_ = false;
   bool wantsWritable_ = false;
   bool isAdded_ = false; // to the epoll set
};

} // namespace Kem
