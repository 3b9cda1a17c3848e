// The server's side of one connection: what comes in is cut into frames and handed to the server, what goes
// out is gathered and bounded. It has no socket; whoever has hands it bytes and takes bytes.
//
// What goes out is a buffer of frames, and a pending tree (PendingTree.h) of what is put into frames later.
// Changes are appended to the buffer while it is below a limit and nothing is pending; else they are marked
// in the pending tree. So a client that doesn't read costs the buffer and the marks.
//
// Frames that come in are worked on while their answers have room in the buffer and it is the client's turn
// (Turns.h); else they wait, and nothing more is read. So a client that asks and doesn't read costs the buffer
// and what one `receive` brought. A large frame needs leave to go on (LargeFrames.h).
//
// Made and ended by the server.
#pragma once

#include "Kem/Clock.h"
#include "Kem/Time.h"
#include "Ordel/server/PendingTree.h"
#include "Ordel/server/Subscriptions.h"
#include "Ordel/wire/Frames.h"
#include "Ordel/wire/Protocol.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace Ordel {

class Server;

class ServerClient {
  public:
   // Bytes that wait to be sent: above it, changes are marked and no longer appended.
   static constexpr size_t changesLimit = 4u << 20;
   // A client that takes bytes, or has just come, may have so many more waiting: appending is cheaper than
   // marking. It loses this while it takes nothing.
   static constexpr size_t readerBonus = 20u << 20;
   // Bytes that wait for all clients: while there are more, each may have only fillBytes.
   static constexpr size_t allOutputLimit = 256u << 20;
   // A client with more ends: it takes nothing, and what is told of its mounts comes whether it does or not.
   static constexpr size_t outputLimit = 64u << 20;
   // The longest text of a reply that says why something is refused; the rest is left out.
   static constexpr size_t maxReasonBytes = 16u << 10;
   // Bytes beyond these at which the client's frames have to wait, because their
   // answers add to what it doesn't read.
   static constexpr size_t answersRoom = 4u << 20;
   // Below it, more is made of what is pending.
   static constexpr size_t fillBytes = 256u << 10;
   // Of the marks that a client causes by writing while it doesn't read.
   static constexpr size_t straysLimit = 100'000;
   static constexpr Kem::Seconds helloTimeout = 10;
   static constexpr Kem::Seconds refusedTimeout = 2; // to take the reason

   struct Peer {
      pid_t pid = 0;
      uid_t uid = 0;
      // Whether the other end has been closed, though what it sent may not have been read yet. Empty: never.
      std::function<bool()> hasHungUp = {};
   };

   ServerClient(Server& server, uint32_t serial, Peer peer);
   ~ServerClient();
   ServerClient(ServerClient const&) = delete;
   ServerClient& operator=(ServerClient const&) = delete;

   // --- For the one that has the socket.

   // Works on the frames that wait, and on those that have come with these bytes.
   void receive(std::string_view bytes);
   // Whether more may be received now.
   bool wantsReading() const;
   // Ends the open frame, and makes frames of what is pending while few bytes wait. Call before output().
   void fill();
   std::string_view output() const { return output_.view(); }
   void consumed(size_t count) {
      output_.consumed(count);
      bonus_ = std::min(bonus_ + count, readerBonus);
      hasTaken_ = true;
      account();
      goOnIfHeld();
   }
   // Nobody reads any more.
   void discardOutput() {
      output_.clear();
      account();
      goOnIfHeld();
   }
   bool hasOutput() const { return output_.size() > 0 || !pending_.empty() || !later_.empty(); }
   // It has been refused: close when the output has been sent, or at once when isOver.
   bool isRefused() const { return isRefused_; }
   bool isOver() const { return isOver_; }

   // --- For the server.

   uint32_t serial() const { return serial_; } // never 0, never used again
   Peer const& peer() const { return peer_; }
   bool isWelcome() const { return isWelcome_; }
   bool isInFrame() const { return !isRefused_ && input_.partialBytes() > 0; } // one has come in part
   size_t partialBytes() const { return input_.partialBytes(); }
   void largeFrameBegins(); // it may go on
   std::string const& name() const { return name_; }
   Role role() const { return role_; }
   std::map<uint32_t, std::unique_ptr<ServerMount>>& mounts() { return mounts_; } // by the client's numbers
   std::map<uint32_t, std::unique_ptr<ServerMount>> const& mounts() const { return mounts_; }
   size_t mountTextBytes() const; // of the selectors and types of its mounts
   PendingTree& pending() { return pending_; }
   PendingTree const& pending() const { return pending_; }
   size_t pendingBytes() const { return output_.size(); }
   uint64_t receivedBytes() const { return receivedBytes_; }
   uint64_t sentBytes() const { return sentBytes_; }                   // given to the output
   uint64_t receivedOperations() const { return receivedOperations_; } // those that took effect
   void receivedOperationsInc(size_t count) { receivedOperations_ += count; }
   uint64_t refusedWrites() const { return refusedWrites_; }
   void refusedWritesInc() { ++refusedWrites_; }
   std::string label() const; // "name (pid 12, uid 0)", for messages

   // Whether the changes of the block are to be marked; the answer is the same for all of one block.
   bool isBehind(uint64_t block, size_t bytes) {
      if (block_ != block)
         blockBegins(block, bytes);
      return isBehind_;
   }
   void appendChanges(std::string_view at, std::string_view operations) {
      if (!output_.isOpen())
         changesBegin();
      Wire::Writer& out = output_.writer();
      // Said once for what follows one another.
      if (out.view().substr(lastAt_, lastAtBytes_) != at) {
         lastAt_ = out.size();
         lastAtBytes_ = at.size();
         out.raw(at.data(), at.size());
      }
      out.raw(operations.data(), operations.size());
   }

   void welcome(std::string_view systemName);
   void mounted(ServerMount const& mount, Entity const* entity);
   // When all that waits now has been sent.
   void mountDone(uint32_t mount) { later(false, mount); }
   void forgetDone(uint32_t mount); // where it hasn't been told yet
   void probe(uint32_t number) { later(true, number); }
   void mountFailed(uint32_t mount, Status status, std::string_view reason);
   void unmounted(uint32_t mount);
   void reply(uint32_t request, Status status, std::string_view text);
   // Tells the reason and takes nothing in any more.
   void refuse(std::string_view reason);
   // The same, at once, of a client that doesn't read.
   void giveUp(std::string const& reason);

  private:
   // Ends the client when it hasn't said hello, hasn't sent the rest of a large frame, or hasn't taken the
   // reason of its refusal.
   struct Timer final : Kem::Clock::NotifieeConst {
      explicit Timer(ServerClient& owner) : client(owner) {}
      void onTime() override;
      ServerClient& client;
   };
   // A frame that is sent once the pending tree has been sent up to the ticket.
   struct Later {
      uint64_t ticket;
      bool isProbe; // else a `mountDone`
      uint32_t number;
   };

   enum class Large : uint8_t { none, waits, goesOn }; // the frame that has come in part

   bool hasRoom() const; // for answers
   void goOnIfHeld();
   void followLargeFrame();
   bool takeFrame(Frame frame, std::string_view payload);
   bool takeHello(std::string_view payload);
   void blockBegins(uint64_t block, size_t bytes);
   void account();
   void changesBegin();
   void changesEnd(uint64_t sequence, bool isWanted = false);
   // A whole frame, behind the open one; M is one of Messages.h.
   template <class M>
   void send(M const& message);
   void later(bool isProbe, uint32_t number);
   void sendLater();

   Server& server_;
   uint32_t const serial_;
   Peer const peer_;
   std::string name_;
   Role role_ = Role::tool;
   bool isWelcome_ = false;
   bool isRefused_ = false;
   bool isOver_ = false;
   Timer timer_;
   std::map<uint32_t, std::unique_ptr<ServerMount>> mounts_;

   // Coming in.
   FrameReader input_;
   uint64_t receivedBytes_ = 0;
   uint64_t receivedOperations_ = 0;
   uint64_t refusedWrites_ = 0;
   Large large_ = Large::none;
   bool isAnswerLarge_ = false; // the frame taken last may have cost much time

   // Going out. The only frame that stays open is `changes`.
   FrameBuffer output_;
   size_t lastAt_ = 0; // in the buffer, of the open frame
   size_t lastAtBytes_ = 0;
   uint64_t block_ = 0;
   bool isBehind_ = false; // in that block
   size_t bonus_ = readerBonus;
   bool hasTaken_ = false;   // since the last `fill`
   bool wasOffered_ = false; // there was something to take then
   PendingTree pending_;
   std::deque<Later> later_;
   std::vector<uint32_t> drained_; // kept for its memory
   uint64_t sentBytes_ = 0;
   size_t accountedBytes_ = 0; // of the output, in the server's sum
};

} // namespace Ordel
