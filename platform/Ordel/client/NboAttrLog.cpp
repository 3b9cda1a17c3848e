#include "Ordel/client/NboAttrLog.h"

#include "Kem/Activity.h"
#include "Kem/Dir.h"
#include "Ordel/client/HeldChanges.h"
#include "Ordel/wire/OperationWriter.h"

namespace Kem {

namespace {

// A block goes out when it has grown to this, though the turn goes on: the
// database works while the agent writes. One operation may be larger.
constexpr size_t blockBytes = 64u << 10;

} // namespace

NboAttrLog::NboAttrLog() : outManagerSm_(std::make_unique<OutManagerSm>()) {}

NboAttrLog* NboAttrLog::top() {
   static NboAttrLog* const root = new NboAttrLog;
   return root;
}

Ptr<NboAttrLog::SocketOutSm> NboAttrLog::OutManagerSm::socketOutSm(std::string const& name) const {
   auto const at = socketOutSm_.find(name);
   return at == socketOutSm_.end() ? nullptr : at->second;
}

void NboAttrLog::OutManagerSm::socketOutSmIs(std::string const& name, Ptr<SocketOutSm> out) {
   socketOutSm_[name] = std::move(out);
}

void NboAttrLog::OutManagerSm::socketOutSmDel(std::string const& name) {
   socketOutSm_.erase(name);
}

NboAttrLog::SocketOutSm::SocketOutSm(Link& link) : link_(&link) {
   activityManager()->deliveryEndHookAdd(DeliveryEnd::encode,
                                         FunctionRef<void()>::of<&SocketOutSm::flush>(*this));
}

NboAttrLog::SocketOutSm::~SocketOutSm() {
   activityManager()->deliveryEndHookDel(FunctionRef<void()>::of<&SocketOutSm::flush>(*this));
}

void NboAttrLog::SocketOutSm::linkDel() {
   link_ = nullptr;
   operations_.clear();
}

void NboAttrLog::SocketOutSm::isHeldIs(bool isHeld) {
   if (isHeld == isHeld_)
      return;
   isHeld_ = isHeld;
   wantsBefore_ = isHeld;
   if (isHeld) {
      held_ = std::make_unique<Ordel::HeldChanges>(*this, [this](Entity& before, Entity& now) {
         if (watcher_)
            watcher_->ownChildReplaced(before, now);
      });
      return;
   }
   auto const held = std::move(held_);
   held->release();
   flush();
}

size_t NboAttrLog::SocketOutSm::heldCount() const {
   return held_ ? held_->count() : 0;
}

void NboAttrLog::SocketOutSm::flush() {
   if (operations_.empty())
      return;
   bytesWritten_ += operations_.size();
   if (link_)
      link_->writeOperations(operations_.view());
   operations_.clear();
   at_ = nullptr;
   created_ = nullptr;
}

// Called before an operation that the one before it doesn't need in its block.
void NboAttrLog::SocketOutSm::cutIfFull() {
   if (operations_.size() >= blockBytes)
      flush();
}

bool NboAttrLog::SocketOutSm::beginOperation(Entity const& entity) {
   if (at_.ptr() == &entity)
      return true;
   address_.clear();
   if (!entity.encodeAddress(address_))
      return false;
   if (operations_.empty())
      seen_ = link_ ? link_->sequence() : 0;
   operations_.u8(static_cast<uint8_t>(Ordel::Op::at));
   operations_.raw(address_.data(), address_.size());
   at_ = Ptr<Entity const>(&entity);
   return true;
}

// --- Before a change, while the log is held.

std::optional<std::string> NboAttrLog::SocketOutSm::valueInDatabase(Entity const& entity, AttrId id,
                                                                    void const* key) {
   return wantsPlaces_ ? watcher_->ownPlaceChanging(entity, id, key) : std::nullopt;
}

void NboAttrLog::SocketOutSm::scalarChanging(Entity const& entity, AttrId id) {
   if (auto value = valueInDatabase(entity, id, nullptr))
      held_->isInDatabase(entity, id, {}, std::move(*value));
   held_->scalarChanging(entity, id);
}

void NboAttrLog::SocketOutSm::memberChanging(Entity const& entity, AttrId id, void const* key) {
   if (auto value = valueInDatabase(entity, id, key))
      held_->isInDatabase(entity, id, Ordel::HeldChanges::keyBytes(entity, id, key), std::move(*value));
   held_->memberChanging(entity, id, key);
}

void NboAttrLog::SocketOutSm::foreignChange(Entity const& entity, AttrId id, std::string_view key) {
   if (held_ && !held_->empty())
      held_->foreignChange(entity, id, key);
}

void NboAttrLog::SocketOutSm::foreignChangeIn(Entity const& removed) {
   if (held_ && !held_->empty())
      held_->foreignChangeIn(removed);
}

void NboAttrLog::SocketOutSm::foreignChangeOfAll() {
   if (held_)
      held_->foreignChangeOfAll();
}

Ptr<Entity> NboAttrLog::SocketOutSm::removedWhileHeld(Entity const& parent, AttrId id,
                                                      std::string_view key) const {
   return held_ ? held_->removed(parent, id, key) : nullptr;
}

void NboAttrLog::SocketOutSm::takeAway(Entity const& entity, AttrId id, std::string const& key,
                                       std::string value) {
   if (isHeld_) {
      held_->isInDatabase(entity, id, key, std::move(value));
      return;
   }
   if (key.empty())
      scalarChanged(entity, id);
   else
      Ordel::HeldChanges::withKey(entity, id, key, [&](void const* k) { memberChanged(entity, id, k); });
}

void NboAttrLog::SocketOutSm::contentsIs(Entity const& entity) {
   isPassing_ = true;
   entity.encodeContents(*this);
   isPassing_ = false;
}

// --- Changes.

void NboAttrLog::SocketOutSm::scalarChanged(Entity const& entity, AttrId id) {
   if (isKept())
      return;
   if (wantsPlaces_ && !isHeld_)
      watcher_->ownPlaceChanging(entity, id, nullptr);
   // The constructor inputs of a new entity are taken only together with its creation.
   if (&entity != created_)
      cutIfFull();
   if (!beginOperation(entity))
      return;
   Ordel::OperationWriter(operations_).begin(Ordel::Op::set, id);
   entity.encodeScalar(id, operations_);
   ++operationsWritten_;
}

void NboAttrLog::SocketOutSm::memberChanged(Entity const& entity, AttrId id, void const* key) {
   if (isKept())
      return;
   if (wantsPlaces_ && !isHeld_)
      watcher_->ownPlaceChanging(entity, id, key);
   cutIfFull();
   if (!beginOperation(entity))
      return;
   size_t const start = operations_.size();
   Ordel::OperationWriter(operations_).begin(Ordel::Op::put, id);
   if (!entity.encodeMember(id, key, operations_)) {
      operations_.truncate(start);
      Ordel::OperationWriter(operations_).begin(Ordel::Op::erase, id);
      entity.encodeMemberKey(id, key, operations_);
   }
   ++operationsWritten_;
}

void NboAttrLog::SocketOutSm::childAdded(Entity const& parent, AttrId id, Entity const& child) {
   if (isKept()) {
      held_->childAdded(parent, id, child);
      if (watcher_)
         watcher_->ownChildAdded(child);
      return;
   }
   if (watcher_)
      watcher_->ownChildAdded(child);
   cutIfFull();
   if (!beginOperation(parent))
      return;
   Ordel::OperationWriter(operations_).begin(Ordel::Op::create, id);
   child.encodeKey(operations_);
   operations_.u16(child.typeInfo().id);
   if (parent.typeInfo().id == Dir::typeInfo_.id)
      operations_.u32(0);
   ++operationsWritten_;
   created_ = &child;
   child.encodeContents(*this);
   created_ = nullptr;
}

void NboAttrLog::SocketOutSm::childRemoved(Entity const& parent, AttrId id, void const* key,
                                           Ptr<Entity> const& child) {
   if (isKept()) {
      held_->childRemoved(parent, id, key, child);
      if (watcher_)
         watcher_->ownChildRemoved(parent, child, true);
      return;
   }
   cutIfFull();
   bool const hasPlace = beginOperation(parent);
   if (watcher_)
      watcher_->ownChildRemoved(parent, child, false);
   if (!hasPlace)
      return;
   Ordel::OperationWriter(operations_).begin(Ordel::Op::erase, id);
   parent.encodeMemberKey(id, key, operations_);
   ++operationsWritten_;
   // Its address is gone: a new entity in its memory must not be taken for it.
   at_ = nullptr;
}

} // namespace Kem
