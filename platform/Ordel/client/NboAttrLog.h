// The attribute log: the stream by which writes to mounted entities reach the state database.
//
//    Kem::NboAttrLog::top()->outManagerSm()->socketOutSm(name)      the output of one connection
//
// A SocketOutSm is the sink of every entity that its connection has mounted. Each change becomes an operation
// at once, with the value as it stands; what a turn of the loop wrote leaves at its end, or earlier when a
// piece is full. So another process sees the changes of one handler together.
//
//    flowing   changes become operations
//    held      changes are only remembered, each with what was there before it; isHeldIs(true) at a start.
//              On the way back to flowing, only what differs from before is sent: an agent that rebuilds at
//              its start what the database holds already, sends nothing.
//
// While held, memory grows with the number of different things changed; whoever
// holds the log bounds the time.
#pragma once

#include "Kem/Entity.h"
#include "Kem/PtrInterface.h"

#include <map>
#include <memory>
#include <string>

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

     protected:
      ~Link() = default;
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
   // The connection ends: what is written from now on goes nowhere.
   void linkDel();

   void scalarChanging(Entity const& entity, AttrId id) override;
   void memberChanging(Entity const& entity, AttrId id, void const* key) override;
   void scalarChanged(Entity const& entity, AttrId id) override;
   void memberChanged(Entity const& entity, AttrId id, void const* key) override;
   void childAdded(Entity const& parent, AttrId id, Entity const& child) override;
   void childRemoved(Entity const& parent, AttrId id, void const* key, Ptr<Entity> const& child) override;

  private:
   bool beginOperation(Entity const& entity); // false when the entity has no place in the database
   void endOperation();

   Link* link_;
   Wire::Writer operations_;
   Ptr<Entity const> at_; // whom the last `at` named, null for none
   Wire::Writer address_; // that `at`: the entity may since have moved
   bool isHeld_ = false;
   std::unique_ptr<Ordel::HeldChanges> held_;
   uint64_t operationsWritten_ = 0;
   uint64_t bytesWritten_ = 0;
};

} // namespace Kem
