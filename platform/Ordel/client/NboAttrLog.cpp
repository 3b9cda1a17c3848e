#include "Ordel/client/NboAttrLog.h"

#include "Kem/Activity.h"
#include "Kem/Dir.h"
#include "Ordel/client/HeldChanges.h"
#include "Ordel/wire/Protocol.h"

namespace Kem {

namespace {

// A block goes out when it has grown to this, though the turn goes on: the
// database works while the agent writes.
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
      held_ = std::make_unique<Ordel::HeldChanges>(*this);
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
}

bool NboAttrLog::SocketOutSm::beginOperation(Entity const& entity) {
   if (at_.ptr() == &entity)
      return true;
   address_.clear();
   if (!entity.encodeAddress(address_))
      return false;
   operations_.u8(static_cast<uint8_t>(Ordel::Op::at));
   operations_.raw(address_.data(), address_.size());
   at_ = Ptr<Entity const>(&entity);
   return true;
}

void NboAttrLog::SocketOutSm::endOperation() {
   ++operationsWritten_;
   if (operations_.size() >= blockBytes)
      flush();
}

void NboAttrLog::SocketOutSm::scalarChanging(Entity const& entity, AttrId id) {
   held_->scalarChanging(entity, id);
}

void NboAttrLog::SocketOutSm::memberChanging(Entity const& entity, AttrId id, void const* key) {
   held_->memberChanging(entity, id, key);
}

void NboAttrLog::SocketOutSm::scalarChanged(Entity const& entity, AttrId id) {
   if (isHeld_ || !beginOperation(entity))
      return;
   operations_.u8(static_cast<uint8_t>(Ordel::Op::set));
   operations_.u8(id);
   entity.encodeScalar(id, operations_);
   // No block ends here: the constructor inputs of a new entity are taken only together with its creation.
   ++operationsWritten_;
}

void NboAttrLog::SocketOutSm::memberChanged(Entity const& entity, AttrId id, void const* key) {
   if (isHeld_ || !beginOperation(entity))
      return;
   size_t const start = operations_.size();
   operations_.u8(static_cast<uint8_t>(Ordel::Op::put));
   operations_.u8(id);
   if (!entity.encodeMember(id, key, operations_)) {
      operations_.truncate(start);
      operations_.u8(static_cast<uint8_t>(Ordel::Op::erase));
      operations_.u8(id);
      entity.encodeMemberKey(id, key, operations_);
   }
   endOperation();
}

void NboAttrLog::SocketOutSm::childAdded(Entity const& parent, AttrId id, Entity const& child) {
   if (isHeld_) {
      held_->childAdded(parent, id, child);
      return;
   }
   if (!beginOperation(parent))
      return;
   operations_.u8(static_cast<uint8_t>(Ordel::Op::create));
   operations_.u8(id);
   child.encodeKey(operations_);
   operations_.u16(child.typeInfo().id);
   if (parent.typeInfo().id == Dir::typeInfo_.id)
      operations_.u32(0);
   ++operationsWritten_;
   child.encodeContents(*this);
}

void NboAttrLog::SocketOutSm::childRemoved(Entity const& parent, AttrId id, void const* key,
                                           Ptr<Entity> const& child) {
   if (isHeld_) {
      held_->childRemoved(parent, id, key, child);
      return;
   }
   if (!beginOperation(parent))
      return;
   operations_.u8(static_cast<uint8_t>(Ordel::Op::erase));
   operations_.u8(id);
   parent.encodeMemberKey(id, key, operations_);
   endOperation();
   // Its address is gone: a new entity in its memory must not be taken for it.
   at_ = nullptr;
}

} // namespace Kem
