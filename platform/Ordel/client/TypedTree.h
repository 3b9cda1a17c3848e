// The state tree as the agent sees it: entities of the generated classes, kept as the state database tells.
//
// Holds what was mounted, with local directories on the way to it. Changes from the database are applied
// whole, with the log muted, so that they don't go back; reactors only queue. One rule makes two steps of
// one: when a new entity comes into a directory that is followed, it first appears with its defaults, and the
// queue is run before what it holds is set. Bytes that don't fit the schema end the taking-in with an error;
// the database sends none.
#pragma once

#include "Kem/Dir.h"
#include "Ordel/client/NboAttrLog.h"
#include "Ordel/client/References.h"
#include "Ordel/wire/Protocol.h"
#include "records/Schema.h"

#include <string>
#include <unordered_map>

namespace Ordel {

class TypedTree {
  public:
   // `types` finds the generated class of a type number.
   TypedTree(Records::Schema const& schema, Kem::TypeFinder types);
   ~TypedTree();

   Kem::Dir& root() { return *root_; }
   // The entity at a path; null when nothing stands there here.
   Kem::Ptr<Kem::Entity> find(std::string_view path) const;
   // The entity that a selector names; null when it is none, or names an attribute that is no owned entity.
   Kem::Ptr<Kem::Entity> findSelected(std::string const& selector) const;

   // Where the changes of mounted entities go. Set before the first mount.
   void logIs(Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log) { log_ = std::move(log); }

   // A mount begins: the entity of that number and type stands at the path from now on. What stood there
   // before with another type is removed. Null when the type has no class here.
   Kem::Ptr<Kem::Entity> mount(uint32_t node, uint16_t type, std::string_view path, bool isWritable);
   void unmount(uint32_t node);

   // Takes in the operations of one `changes` frame. Empty, or what is wrong with them.
   std::string apply(std::string_view operations);

   // Off until the first group of mounts is complete: what is mounted then is a
   // state, not a series of changes.
   void runsQueueOnCreationIs(bool runs) { runsQueueOnCreation_ = runs; }

  private:
   struct Node {
      Kem::Ptr<Kem::Entity> entity; // null once it was removed here; what still comes for it is skipped
      Records::EntityType const* type;
      bool isWritable; // as mounted; what is created below it is too
   };
   struct Cursor {
      Kem::Ptr<Kem::Entity> entity; // null: skip
      Records::EntityType const* type = nullptr;
   };

   bool applyAt(Wire::Reader& in, Cursor& at);
   bool applySet(Wire::Reader& in, Cursor& at);
   bool applyPut(Wire::Reader& in, Cursor& at);
   bool applyErase(Wire::Reader& in, Cursor& at);
   bool applyCreate(Wire::Reader& in, Cursor& at);
   Records::Attribute const* attribute(Cursor const& at, uint8_t id) const;
   Kem::Dir& directoryFor(std::string_view path); // the one above it, made where it is absent
   void nodeIs(uint32_t number, Kem::Ptr<Kem::Entity> const& entity, Records::EntityType const& type,
               bool isWritable);
   void forgetRemoved();
   void runQueue();

   Records::Schema const& schema_;
   Kem::TypeFinder types_;
   Kem::Ptr<Kem::Dir> root_;
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log_;
   std::unordered_map<uint32_t, Node> nodes_;
   std::unordered_map<uint32_t, Kem::Ptr<Kem::Entity>>
       writable_; // mounted for writing: kept so inside a directory that is not
   References references_;
   bool runsQueueOnCreation_ = false;
   bool hasStructureChanged_ = false; // since references were last resolved
};

} // namespace Ordel
