// The attribute log: the stream by which writes to mounted entities reach the state database.
//
//    Kem::NboAttrLog::top()->outManagerSm()->socketOutSm(name)      the output of one connection
//
// A SocketOutSm is the sink of every entity that its connection has mounted. Each change becomes an operation
// at once, with its present value; what a turn of the loop wrote leaves at its end, or earlier when 64 KiB have
// been gathered. So another process sees the changes of one handler together, unless they are many.
//
// A block of operations says which changes of others the process had taken in when it wrote the first of them
// (`seen`). Where others wrote the same meanwhile, the database needs it to bring both sides to one value.
//
//    flowing   changes become operations
//    held      changes are only remembered, each with what was there before it; isHeldIs(true) at a start.
//              On the way back to flowing, only what differs from before is sent: an agent that rebuilds at
//              its start what the database holds already, sends nothing. What somebody else changed meanwhile
//              is sent in any case.
//
// While held, memory grows with the number of different things changed; whoever
// holds the log bounds the time.
#pragma once

#include "Kem/Entity.h"
#include "Kem/PtrInterface.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Ordel {
class HeldChanges;
}

namespace Kem {

class NboAttrLog {
  public:
   class OutManagerSm;
   class SocketOutSm;

   // The connection under a SocketOutSm.
   class Link {
     public:
      // The connected socket, or a negative number.
      virtual int socketFd() const = 0;
      // Sends one block of operations; keeps what the socket does not take.
      virtual void writeOperations(std::string_view operations) = 0;
      // Bytes that the socket has not taken yet.
      virtual size_t unsentBytes() const = 0;
      // The last changes of others that the process has taken in.
      virtual uint64_t sequence() const { return 0; }

     protected:
      ~Link() = default;
   };

   // Whoever keeps what the database told of the entities, and has to know what the process does to them.
   class Watcher {
     public:
      // The process is about to write the place, for which it may have another value than the database. Only
      // called while wantsPlaces. Key null for a scalar. While the log is held the answer is what the database
      // has there, in wire form with its key; nothing where it has what the process has.
      virtual std::optional<std::string> ownPlaceChanging(Entity const& entity, AttrId id,
                                                          void const* key) = 0;
      virtual void ownChildAdded(Entity const& child) = 0;
      // `isHeld`: the database isn't told yet.
      virtual void ownChildRemoved(Entity const& parent, Ptr<Entity> const& child, bool isHeld) = 0;
      // An entity that was removed while the log was held, and another of its kind put in its place: for the
      // database they are one.
      virtual void ownChildReplaced(Entity& before, Entity& now) = 0;

     protected:
      ~Watcher() = default;
   };

   static NboAttrLog* top();
   OutManagerSm* outManagerSm() const { return outManagerSm_.get(); }

  private:
   NboAttrLog();
   std::unique_ptr<OutManagerSm> outManagerSm_;
};

// The outputs of this process by the name of their connection.
class NboAttrLog::OutManagerSm {
  public:
   // Null when there is no connection of that name.
   Ptr<SocketOutSm> socketOutSm(std::string const& name) const;
   void socketOutSmIs(std::string const& name, Ptr<SocketOutSm> out);
   void socketOutSmDel(std::string const& name);

  private:
   std::map<std::string, Ptr<SocketOutSm>> socketOutSm_;
};

class NboAttrLog::SocketOutSm final : public PtrInterface, public AttributeSink {
  public:
   explicit SocketOutSm(Link& link);
   ~SocketOutSm() override;

   // The socket that the log is written to, for measuring how full it is; negative without a connection.
   int socketFd() const { return link_ ? link_->socketFd() : -1; }
   size_t unsentBytes() const { return link_ ? link_->unsentBytes() : 0; }

   bool isHeld() const { return isHeld_; }
   // false sends what differs and lets changes flow.
   void isHeldIs(bool isHeld);
   // Different things that the held log remembers.
   size_t heldCount() const;

   // Operations since the start, and bytes handed to the connection.
   uint64_t operationsWritten() const { return operationsWritten_; }
   uint64_t bytesWritten() const { return bytesWritten_; }

   // Hands what has been gathered to the connection.
   void flush();
   // Of the block that is handed over, or gathered.
   uint64_t seen() const { return seen_; }
   // The connection ends: what is written from now on goes nowhere.
   void linkDel();

   void watcherIs(Watcher* watcher) { watcher_ = watcher; }
   void wantsPlacesIs(bool wants) { wantsPlaces_ = wants; }
   // Somebody else changed the place in the database. Key in wire form, empty for a scalar.
   void foreignChange(Entity const& entity, AttrId id, std::string_view key);
   // The same of anything in the entity, which has left its place in this process.
   void foreignChangeIn(Entity const& removed);
   // The same of everything.
   void foreignChangeOfAll();
   // The entity that the process removed from there while the log is held; null when there is none.
   Ptr<Entity> removedWhileHeld(Entity const& parent, AttrId id, std::string_view key) const;
   // The database has something at a place where the process has nothing: takes it away. `key` and `value` in
   // wire form, the value with its key.
   void takeAway(Entity const& entity, AttrId id, std::string const& key, std::string value);
   // Sends all that the entity holds, also while the log is held.
   void contentsIs(Entity const& entity);

   void scalarChanging(Entity const& entity, AttrId id) override;
   void memberChanging(Entity const& entity, AttrId id, void const* key) override;
   void scalarChanged(Entity const& entity, AttrId id) override;
   void memberChanged(Entity const& entity, AttrId id, void const* key) override;
   void childAdded(Entity const& parent, AttrId id, Entity const& child) override;
   void childRemoved(Entity const& parent, AttrId id, void const* key, Ptr<Entity> const& child) override;

  private:
   bool beginOperation(Entity const& entity); // false when the entity has no place in the database
   void cutIfFull();
   bool isKept() const { return isHeld_ && !isPassing_; } // changes are only remembered
   std::optional<std::string> valueInDatabase(Entity const& entity, AttrId id, void const* key);

   Link* link_;
   Watcher* watcher_ = nullptr;
   bool wantsPlaces_ = false;
   Wire::Writer operations_;
   Ptr<Entity const> at_;            // whom the last `at` named, null for none
   Wire::Writer address_;            // that `at`: the entity may since have moved
   Entity const* created_ = nullptr; // whose creation was written last: its inputs belong to the same block
   uint64_t seen_ = 0;
   bool isHeld_ = false;
   bool isPassing_ = false; // contentsIs runs
   std::unique_ptr<Ordel::HeldChanges> held_;
   uint64_t operationsWritten_ = 0;
   uint64_t bytesWritten_ = 0;
};

} // namespace Kem
