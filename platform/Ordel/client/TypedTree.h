// The state tree as the agent sees it: entities of the generated classes, kept as the state database tells.
//
// Holds what was mounted, with local directories on the way to it. Changes from the database are applied
// whole, with the log muted, so that they don't go back; reactors only queue. One rule makes two steps of
// one: when a new entity comes into a directory that is followed, it first appears with its defaults, and the
// queue is run before what it holds is set. Bytes that don't fit the schema end the taking-in with an error;
// the database sends none.
//
// An entity that was mounted by its own path is one object as long as the process runs, whatever others do to
// it in the database: lost() says what becomes of it while it isn't there.
//
// The number of a node is forgotten when the database can't mention it any more: with the word that it was
// erased, or, of one that the process removed, once the database has taken that in.
#pragma once

#include "Kem/Dir.h"
#include "Ordel/client/NboAttrLog.h"
#include "Ordel/client/References.h"
#include "Ordel/wire/Protocol.h"
#include "records/Schema.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

namespace Ordel {

class TypedTree final : private Kem::NboAttrLog::Watcher {
  public:
   // `types` finds the generated class of a type number.
   TypedTree(Records::Schema const& schema, Kem::TypeFinder types);
   ~TypedTree();

   Kem::Dir& root() { return *root_; }
   // The entity at a path; null when nothing is there here.
   Kem::Ptr<Kem::Entity> find(std::string_view path) const;
   // The entity that a selector names; null when it is none, or names an attribute that is no owned entity.
   Kem::Ptr<Kem::Entity> findSelected(std::string const& selector) const;

   // Where the changes of mounted entities go. Set before the first mount.
   void logIs(Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log);

   // A mount begins: the entity of that number and type is at the path from now on. What was there
   // before with another type is removed. Null when the type has no class here.
   Kem::Ptr<Kem::Entity> mount(uint32_t node, uint16_t type, std::string_view path, bool isWritable);
   // The entity that was mounted by that path has been deleted by somebody else. One that the process writes
   // keeps what it holds and stays in the tree; it waits for the next mount of the path, after which its
   // contents have to be sent. One that the process reads goes back to its defaults, for its state machines
   // still follow it; the next mount, or its directory, brings the same object back. Returns the entity; null
   // where the path was not mounted.
   Kem::Ptr<Kem::Entity> lost(std::string_view path);

   // Takes in the operations of one `changes` frame. Empty, or what is wrong with them.
   std::string apply(std::string_view operations);

   // Gives references their targets where the process itself made or removed entities since.
   void resolveReferences();
   // Takes away, in the database, the references in what the process writes whose targets aren't there. The
   // process doesn't see them, so it can't take them away itself.
   void danglingReferencesDel();
   References const& references() const { return references_; }

   // Nodes that the process removed: some are named in operations that haven't been sent; those have been sent
   // with the write of that request; that write has been answered.
   bool hasUnsentRemovals() const { return !removed_.empty() && removed_.back().request == 0; }
   void removalsSent(uint32_t request);
   void removalsDone(uint32_t request, bool wereTaken);
   // Numbers that are known, those of removed nodes included.
   size_t nodeCount() const { return nodes_.size(); }

   // Called for each change by somebody else in an entity that the process writes, and in what such an entity
   // owns, once the change is in the tree: for a process that remembers what it wrote. Writes nothing.
   void foreignChangeHookIs(std::function<void(Kem::Entity const&)> hook) {
      foreignChangeHook_ = std::move(hook);
   }

   // Off until the first group of mounts is complete: what is mounted then is a
   // state, not a series of changes.
   void runsQueueOnCreationIs(bool runs) { runsQueueOnCreation_ = runs; }

  private:
   struct Node {
      Kem::Ptr<Kem::Entity> entity; // null once it was removed here; what still comes for it is skipped
      Records::EntityType const* type;
   };
   struct Mounted {
      Kem::Ptr<Kem::Entity> entity;
      bool isWritable;
   };
   struct Removal {
      uint32_t request; // of the write that tells it; 0 while it hasn't been sent
      uint32_t node;
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
   void place(std::string_view path, Kem::Ptr<Kem::Entity> const& entity);
   void nodeIs(uint32_t number, Kem::Ptr<Kem::Entity> const& entity, Records::EntityType const& type);
   void erased(Kem::Ptr<Kem::Entity> const& entity); // by the database
   void forgetNumbers(Kem::Entity& entity);          // the database has said that they are gone
   void keepWritable();
   Kem::Ptr<Kem::Entity> lostOne(Kem::Entity const& directory, std::string_view key,
                                 Kem::TypeInfo const& type);
   void runQueue();
   void wantsPlacesUpdate() { log_->wantsPlacesIs(references_.hasDangling()); }

   // Watcher.
   std::optional<std::string> ownPlaceChanging(Kem::Entity const& entity, Kem::AttrId id,
                                               void const* key) override;
   void ownChildAdded(Kem::Entity const& child) override;
   void ownChildRemoved(Kem::Entity const& parent, Kem::Ptr<Kem::Entity> const& child, bool isHeld) override;
   void ownChildReplaced(Kem::Entity& before, Kem::Entity& now) override;

   Records::Schema const& schema_;
   Kem::TypeFinder types_;
   Kem::Ptr<Kem::Dir> root_;
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log_;
   std::unordered_map<uint32_t, Node> nodes_;
   std::deque<Removal> removed_; // in the order of their requests, the unsent ones last
   std::map<std::string, Mounted, std::less<>> mounted_; // by path
   References references_;
   bool runsQueueOnCreation_ = false;
   std::function<void(Kem::Entity const&)> foreignChangeHook_;
};

} // namespace Ordel
