// One client's link to the state database: frames out, frames in, and nothing of what they mean.
//
// The typed client of the agents and the tools build on it. It keeps no tree and no list of mounts, and does
// not connect again by itself. Frames out are gathered in a buffer without limit, in the order of the calls,
// and leave with flush(); frames in come one by one as calls of the virtual handlers, in the order in which
// they were sent. A handler may call everything here but must not destroy the connection.
//
// Driven in one of two ways: by wait(), for programs that have nothing else to do meanwhile; or
// by the event loop after isWatchedIs(true), where each delivery of a turn is followed by a
// flush. The socket never blocks.
#pragma once

#include "Kem/FileDescriptor.h"
#include "Kem/Time.h"
#include "Kem/Wire.h"
#include "Ordel/wire/Frames.h"
#include "Ordel/wire/Protocol.h"
#include "records/Schema.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Ordel {

class Connection : private Kem::FileDescriptorWatch {
  public:
   // `name` is what `clients` shows, 1 to maxNameBytes bytes.
   Connection(Records::Schema const& schema, std::string name, Role role);
   ~Connection() override;

   // From the environment variable ORDEL_SOCKET, else "/run/vorn/ordel.sock".
   static std::string defaultSocketPath();

   // Connects and says hello, without waiting for the answer. False with "path: reason" in `error` when
   // nobody listens there now. Not while it is connected.
   bool connect(std::string const& socketPath, std::string& error);
   // The same, and waits until the database has answered. On false nothing is
   // connected; onClosed isn't called.
   bool connectAndWait(std::string const& socketPath, Kem::Seconds timeout, std::string& error);
   // Drops the link and what is unsent; onClosed isn't called. Nothing happens when it is closed already.
   void close();

   bool isConnected() const { return socket_ >= 0; }
   bool isWelcome() const { return isWelcome_; } // the database has answered
   // The last link ended because the two don't fit together, or the database said no: trying again at once is
   // of no use.
   bool isRefused() const { return isRefused_; }
   int descriptor() const { return socket_; } // -1 while not connected
   // Bytes gathered here that the kernel hasn't taken yet.
   size_t unsentBytes() const { return output_.size(); }
   // The sequence of the changes that were taken in last: what `seen` of a write made now is.
   uint64_t sequence() const { return sequence_; }

   // Driven by the event loop from now on, or no longer.
   void isWatchedIs(bool isWatched);
   // Waits until something comes, at most so long; sends and takes in what there is. Returns whether a frame
   // came. False also when the connection has ended.
   bool wait(Kem::Seconds timeout);
   // Sends what the kernel takes now; calls no handler. False when nothing can be sent any more: the connection
   // has ended, or its end is found by the next receive(), behind what the database sent before.
   bool flush();
   // Takes in what has come, a bounded amount. False when the connection has ended.
   bool receive();

   // Frames out. Without effect while not connected.
   void mount(uint32_t mount, std::string_view selector, std::string_view type, uint8_t flags);
   void unmount(uint32_t mount);
   void write(uint32_t request, uint64_t seen, uint8_t flags, std::string_view operations);
   // The same without a copy: put the operations into the writer that comes back,
   // and nothing else, then end it.
   Wire::Writer& writeBegin(uint32_t request, uint64_t seen, uint8_t flags);
   void writeEnd();
   void settle(uint32_t request, uint32_t milliseconds, std::string_view agent); // "": all that are connected
   void settled(uint32_t probe);
   void clients(uint32_t request);
   void snapshot(uint32_t request);

  protected:
   virtual void onWelcome(std::string_view systemName) {}
   virtual void onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) {}
   virtual void onMountDone(uint32_t mount) {}
   virtual void onMountFailed(uint32_t mount, Status status, std::string_view reason) {}
   virtual void onUnmounted(uint32_t mount) {}
   virtual void onChanges(uint64_t sequence, std::string_view operations) {}
   virtual void onReply(uint32_t request, Status status, std::string_view text) {}
   virtual void onProbe(uint32_t probe) {}
   // The connection has ended, by the other side or by bytes that make no sense. It
   // can be connected again from here.
   virtual void onClosed(std::string_view reason) {}

  private:
   void onReadable() override;
   void onWritable() override;
   void onDeliveryEnd();

   template <class M>
   void sendFrame(M const& message); // one of Messages.h
   bool takeFrame(Frame frame, std::string_view payload);
   void end(std::string const& reason);

   Records::Schema const& schema_;
   std::string const name_;
   Role const role_;

   int socket_ = -1;
   bool isWelcome_ = false;
   bool isRefused_ = false;
   bool isWatched_ = false;
   bool isConnecting_ = false; // connectAndWait runs
   int sendError_ = 0;         // sending has failed: what is left to do is to read what came before
   uint32_t link_ = 0;         // counts the connections made: a handler may have ended one
   uint64_t frameCount_ = 0;   // taken in
   uint64_t sequence_ = 0;
   FrameBuffer output_;
   FrameReader input_;
   std::string endReason_; // why connectAndWait failed
};

} // namespace Ordel
