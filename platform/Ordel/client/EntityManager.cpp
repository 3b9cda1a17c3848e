#include "Ordel/client/EntityManager.h"

#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "Kem/Trace.h"

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
   for (auto const& mount : group.mounts()) {
      uint32_t const number = ++lastMount_;
      pendingMounts_.emplace(number, PendingMount{mount, self});
      uint8_t const flags = static_cast<uint8_t>((mount.isWritable() ? mountWrite : 0) |
                                                 (mount.isCreating() ? mountCreate : 0));
      Connection::mount(number, mount.path, mount.type, flags);
   }
   // Not left to the end of a turn: a process may close its first group before
   // its loop runs, which then waits.
   Connection::flush();
}

void EntityManager::onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) {
   auto const at = pendingMounts_.find(mount);
   bool const isWritable = at != pendingMounts_.end() && at->second.mount.isWritable();
   if (!tree_.mount(node, type, path, isWritable)) {
      KEM_TRACE(clientTrace, 0, path << " is of a type that this program doesn't have");
      return;
   }
   mountedNodes_[node] = path;
   if (at != pendingMounts_.end()) {
      at->second.isMounted = true;
      mountedPaths_.emplace(std::string(path), at->second.mount);
   }
}

void EntityManager::onMountDone(uint32_t mount) {
   auto const at = pendingMounts_.find(mount);
   if (at == pendingMounts_.end())
      return;
   auto const pending = std::move(at->second);
   pendingMounts_.erase(at);
   pending.group->mountEnded(pending.isMounted, pending.mount, "its type has no class");
}

void EntityManager::onMountFailed(uint32_t mount, Status, std::string_view reason) {
   auto const at = pendingMounts_.find(mount);
   if (at == pendingMounts_.end())
      return;
   auto const pending = std::move(at->second);
   pendingMounts_.erase(at);
   pending.group->mountEnded(false, pending.mount, std::string(reason));
}

void EntityManager::onUnmounted(uint32_t) {
   // What was mounted by its own path has been deleted by another client: its state
   // machines keep the last values.
   KEM_TRACE(clientTrace, 0, "a mounted entity was deleted from the state database");
}

// --- Changes.

void EntityManager::onChanges(uint64_t, std::string_view operations) {
   std::string const error = tree_.apply(operations);
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
   write(0, sequence(), 0, operations);
   Connection::flush();
}

void EntityManager::onReply(uint32_t request, Status status, std::string_view text) {
   if (request == 0 && status != Status::done)
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
   // The timer may be the one that calls.
   holdTimer_->timeMinIs(Kem::never);
}

void EntityManager::handleDeliveryEnd() {
   bool const isHeld = log_->isHeld();
   if ((!isHeld || !isReleaseWanted_) && probes_.empty())
      return;
   if (!Kem::activityManager()->isSettled())
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
