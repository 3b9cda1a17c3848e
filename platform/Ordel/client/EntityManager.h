// The typed client of the state database: mounts, the entities behind them, and the
// log of what the process writes.
//
//    made ──connect──► connected ──groups are closed──► their mounters' doMountsComplete
//         ──► running ──► onClosed
//
// One connection, driven by the event loop. It does not connect again: a process whose database goes away
// ends, and is started again on the tree as it is. Entities stay alive for those who hold them; from the
// end of the connection on their changes go nowhere.
//
// What was mounted may be deleted by somebody else all the same; the trace names it. What the process writes is
// put back, with all that it holds. What it reads is back at its defaults until it exists again.
//
// At start the log can be held (holdLog): what the process writes until it has settled is compared with what
// is in the database, and only the differences are sent.
#pragma once

#include "Kem/Activity.h"
#include "Ordel/client/Connection.h"
#include "Ordel/client/Mount.h"
#include "Ordel/client/NboAttrLog.h"
#include "Ordel/client/TypedTree.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Ordel {

class EntityManager final : public Kem::PtrInterface, private Connection, private Kem::NboAttrLog::Link {
  public:
   // `name` is how the database knows the process, and the name of its output in the attribute log.
   EntityManager(Records::Schema const& schema, Kem::TypeFinder types, std::string name, Role role);
   ~EntityManager() override;

   std::string const& name() const { return name_; }
   // Name of the switch's system, as the database tells it; empty before the connection.
   std::string const& systemName() const { return systemName_; }

   // Connects and waits so many seconds for the database's answer; with 0 the loop takes the answer in, and a
   // refusal comes through the closed hook. Empty, or the reason: "path: reason".
   std::string connect(std::string const& socketPath, Kem::Seconds timeout);
   using Connection::isConnected;
   using Connection::isRefused;
   // Called once, from the event loop, when the connection has ended.
   void closedHookIs(std::function<void(std::string const& reason)> hook) { closedHook_ = std::move(hook); }

   // A new group; it lives until it is complete.
   Kem::Ptr<MountGroup> getMountGroup(Mounter& mounter);
   // The mounted entity at a path; null for what is not mounted, not there, or of
   // another type than the mount's.
   Kem::Ptr<Kem::Entity> getEntity(std::string_view path) const;
   template <class T>
   Kem::Ptr<T> entity(std::string_view path) const {
      return Kem::ptrCast<T>(getEntity(path));
   }
   // Called after the mounter of a group has been.
   void groupCompleteHookIs(std::function<void(MountGroup const&)> hook) {
      groupCompleteHook_ = std::move(hook);
   }

   // Called for each change by somebody else in what this process writes, once it is in the tree. It writes
   // nothing.
   void foreignChangeHookIs(std::function<void(Kem::Entity const&)> hook) {
      tree_.foreignChangeHookIs(std::move(hook));
   }

   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> const& attributeLog() const { return log_; }
   // Holds the log now. It flows again once the process has settled after releaseLogWhenSettled(), `limit`
   // seconds from now at the latest.
   void holdLog(Kem::Seconds limit);
   void releaseLogWhenSettled();

   // Takes away the references in what this process writes whose targets aren't there; it doesn't see them, so it
   // can't delete them one by one. For a process that has become the one that decides about them.
   void danglingReferencesDel() { tree_.danglingReferencesDel(); }
   // Nodes of the database that the client remembers.
   size_t nodeCount() const { return tree_.nodeCount(); }

  private:
   friend class MountGroup;
   class HoldTimer;
   // A mount that the database knows of.
   struct SentMount {
      Mount mount;
      Kem::Ptr<MountGroup> group; // null once the group has counted it
      bool isMounted = false;     // something is there, of a type that has a class
      bool isPutBack = false;     // it was lost, and its contents are sent when it is there again
   };
   // What is being put back isn't in the database yet.
   struct PutBack final : Kem::DeferredWork {
      bool hasWork() const override { return count > 0; }
      size_t count = 0;
   };

   // Connection.
   void onWelcome(std::string_view systemName) override;
   void onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) override;
   void onMountDone(uint32_t mount) override;
   void onMountFailed(uint32_t mount, Status status, std::string_view reason) override;
   void onUnmounted(uint32_t mount) override;
   void onChanges(uint64_t sequence, std::string_view operations) override;
   void onReply(uint32_t request, Status status, std::string_view text) override;
   void onProbe(uint32_t probe) override;
   void onClosed(std::string_view reason) override;

   // The log's link.
   int socketFd() const override { return descriptor(); }
   void writeOperations(std::string_view operations) override;
   size_t unsentBytes() const override { return Connection::unsentBytes(); }
   uint64_t sequence() const override { return Connection::sequence(); }

   void sendMounts(MountGroup& group);
   void sendMount(SentMount mount, uint8_t flags);
   void releaseLog();
   void handleDeliveryEnd();
   Kem::FunctionRef<void()> deliveryEndHook() {
      return Kem::FunctionRef<void()>::of<&EntityManager::handleDeliveryEnd>(*this);
   }

   std::string const name_;
   std::string systemName_;
   TypedTree tree_;
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log_;
   std::map<uint32_t, SentMount> sentMounts_;               // by the number of the mount
   std::map<std::string, Mount, std::less<>> mountedPaths_; // what getEntity answers for
   std::vector<Kem::Ptr<MountGroup>> groups_;               // closed and not yet complete
   std::vector<uint32_t> probes_;                           // unanswered
   std::function<void(std::string const&)> closedHook_;
   std::function<void(MountGroup const&)> groupCompleteHook_;
   std::unique_ptr<HoldTimer> holdTimer_;
   PutBack putBack_;
   uint32_t lastMount_ = 0;
   bool isReleaseWanted_ = false;
   uint32_t lastRequest_ = 0;
};

} // namespace Ordel
