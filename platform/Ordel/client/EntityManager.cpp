#include "Ordel/client/EntityManager.h"

#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "Kem/Trace.h"

#include <malloc.h>
#include <tuple>
#include <utility>

namespace Ordel {

namespace {
Kem::TraceFacility clientTrace("OrdelClient");
}

// Ends the hold of the log when the process does not settle.
class EntityManager::HoldTimer final : public Kem::Clock::NotifieeConst {
  public:
   explicit HoldTimer(EntityManager& m) : NotifieeConst(Kem::ActivityFacility::clock()), manager(m) {}
   void onTime() override {
      KEM_TRACE(clientTrace, 0, "not settled in time: the attribute log is released as it is");
      manager.releaseLog();
   }
   EntityManager& manager;
};

EntityManager::EntityManager(Records::Schema const& schema, Kem::TypeFinder types, std::string name,
                             Role role)
    : Connection(schema, name, role), name_(std::move(name)), tree_(schema, types),
      log_(Kem::makePtr<Kem::NboAttrLog::SocketOutSm>(static_cast<Kem::NboAttrLog::Link&>(*this))) {
   tree_.logIs(log_);
   Kem::NboAttrLog::top()->outManagerSm()->socketOutSmIs(name_, log_);
   Kem::activityManager()->deliveryEndHookAdd(Kem::DeliveryEnd::settle, deliveryEndHook());
}

EntityManager::~EntityManager() {
   Kem::activityManager()->deliveryEndHookDel(deliveryEndHook());
   Kem::NboAttrLog::top()->outManagerSm()->socketOutSmDel(name_);
   log_->linkDel();
}

std::string EntityManager::connect(std::string const& socketPath, Kem::Seconds timeout) {
   std::string error;
   bool const isConnected =
       timeout > 0 ? connectAndWait(socketPath, timeout, error) : Connection::connect(socketPath, error);
   if (!isConnected)
      return error;
   isWatchedIs(true);
   return {};
}

void EntityManager::onWelcome(std::string_view systemName) {
   systemName_ = systemName;
}

// --- Mounts.

Kem::Ptr<MountGroup> EntityManager::getMountGroup(Mounter& mounter) {
   return Kem::makePtr<MountGroup>(*this, mounter);
}

Kem::Ptr<Kem::Entity> EntityManager::getEntity(std::string_view path) const {
   if (mountedPaths_.contains(path))
      return tree_.find(path);
   // Below a mounted directory everything is mounted.
   for (size_t slash = path.rfind('/'); slash != std::string_view::npos && slash > 0;
        slash = path.rfind('/', slash - 1)) {
      auto const at = mountedPaths_.find(path.substr(0, slash));
      if (at != mountedPaths_.end())
         return tree_.find(path);
   }
   return nullptr;
}

void EntityManager::sendMounts(MountGroup& group) {
   Kem::Ptr<MountGroup> const self(&group);
   groups_.push_back(self);
   // What was written before must be in the database when it tells what is there.
   log_->flush();
   for (auto const& mount : group.mounts())
      sendMount({mount, self}, mount.isCreating() ? mountCreate : 0);
   // Not left to the end of a turn: a process may close its first group before
   // its loop runs, which then waits.
   Connection::flush();
}

void EntityManager::sendMount(SentMount mount, uint8_t flags) {
   uint32_t const number = ++lastMount_;
   auto const& [path, type] = std::tie(mount.mount.path, mount.mount.type);
   Connection::mount(number, path, type,
                     static_cast<uint8_t>(flags | (mount.mount.isWritable() ? mountWrite : 0)));
   sentMounts_.emplace(number, std::move(mount));
}

void EntityManager::onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) {
   auto const at = sentMounts_.find(mount);
   if (at == sentMounts_.end() || node == 0) // 0: it waits for what was lost
      return;
   if (!tree_.mount(node, type, path, at->second.mount.isWritable())) {
      KEM_TRACE(clientTrace, 0, path << " is of a type that this program doesn't have");
      return;
   }
   at->second.isMounted = true;
   mountedPaths_.emplace(std::string(path), at->second.mount);
}

void EntityManager::onMountDone(uint32_t mount) {
   auto const at = sentMounts_.find(mount);
   if (at == sentMounts_.end())
      return;
   auto& sent = at->second;
   if (sent.isPutBack && sent.isMounted) {
      sent.isPutBack = false;
      --putBack_.count;
      if (auto const entity = tree_.find(sent.mount.path))
         log_->contentsIs(*entity);
   }
   if (auto const group = std::exchange(sent.group, nullptr))
      group->mountEnded(sent.isMounted, sent.mount, "its type has no class");
}

void EntityManager::onMountFailed(uint32_t mount, Status, std::string_view reason) {
   auto const at = sentMounts_.find(mount);
   if (at == sentMounts_.end())
      return;
   auto const sent = std::move(at->second);
   sentMounts_.erase(at);
   putBack_.count -= sent.isPutBack;
   if (sent.group)
      sent.group->mountEnded(false, sent.mount, std::string(reason));
   else
      KEM_TRACE(clientTrace, 0, sent.mount.path << " can't be mounted again: " << reason);
}

void EntityManager::onUnmounted(uint32_t mount) {
   auto const at = sentMounts_.find(mount);
   if (at == sentMounts_.end())
      return;
   auto sent = std::move(at->second);
   sentMounts_.erase(at);
   putBack_.count -= sent.isPutBack;
   bool const isPutBack = sent.mount.isWritable();
   KEM_TRACE(clientTrace, 0,
             sent.mount.path << ", which is mounted, was deleted from the state database: "
                             << (isPutBack ? "it is put back as it was"
                                           : "it is taken as empty until it exists again"));
   tree_.lost(sent.mount.path);
   sent.isMounted = false;
   sent.isPutBack = isPutBack;
   putBack_.count += isPutBack;
   sendMount(std::move(sent), isPutBack ? mountCreate : mountAwait);
}

// --- Changes.

void EntityManager::onChanges(uint64_t, std::string_view operations) {
   std::string const error = tree_.apply(operations);
   // What handlers wrote while it was taken in was written before the rest of it was known.
   log_->flush();
   if (error.empty())
      return;
   // The database checks what it sends by the same schema; going on would leave
   // this process with another tree.
   KEM_TRACE(clientTrace, 0, "changes can't be taken in: " << error);
   close();
   onClosed("changes can't be taken in: " + error);
}

void EntityManager::writeOperations(std::string_view operations) {
   if (!isConnected())
      return;
   // The answer says that the nodes which the block removes won't be mentioned any more.
   uint32_t const request = tree_.hasUnsentRemovals() ? ++lastRequest_ : 0;
   if (request != 0)
      tree_.removalsSent(request);
   write(request, log_->seen(), 0, operations);
   Connection::flush();
}

void EntityManager::onReply(uint32_t request, Status status, std::string_view text) {
   if (request != 0)
      tree_.removalsDone(request, status == Status::done);
   if (status != Status::done)
      KEM_TRACE(clientTrace, 0, "the state database refused a write: " << text);
}

void EntityManager::onClosed(std::string_view reason) {
   log_->linkDel();
   if (auto const hook = std::exchange(closedHook_, nullptr))
      hook(std::string(reason));
}

// --- Settling.

void EntityManager::onProbe(uint32_t probe) {
   probes_.push_back(probe);
}

void EntityManager::holdLog(Kem::Seconds limit) {
   log_->isHeldIs(true);
   isReleaseWanted_ = false;
   holdTimer_ = std::make_unique<HoldTimer>(*this);
   holdTimer_->timeMinIs(Kem::now() + limit);
}

void EntityManager::releaseLogWhenSettled() {
   isReleaseWanted_ = true;
}

void EntityManager::releaseLog() {
   log_->isHeldIs(false);
   // What was held were whole records beside those that replaced them. They lie in between in memory, which the
   // allocator gives back only when it is told to.
   malloc_trim(0);
   // The timer may be the one that calls.
   holdTimer_->timeMinIs(Kem::never);
}

void EntityManager::handleDeliveryEnd() {
   tree_.resolveReferences();
   bool const isHeld = log_->isHeld();
   if ((!isHeld || !isReleaseWanted_) && probes_.empty())
      return;
   // What it asked for hasn't come: it has nothing to work on yet.
   if (!groups_.empty() || !Kem::activityManager()->isSettled())
      return;
   if (isHeld) {
      if (!isReleaseWanted_)
         return;
      releaseLog();
   }
   log_->flush();
   for (uint32_t const probe : std::exchange(probes_, {}))
      Connection::settled(probe);
   Connection::flush();
}

} // namespace Ordel
