// How a process gets at the shared-memory tables of its system: the counterpart of
// mounting paths of the state tree.
//
//    KemPlaze::Mount mount(entityManager);
//    auto hosts = Kem::ptrCast<Plaze::Bridging::Status>(
//        mount.doMount("bridging/status", "Plaze::Bridging::Status",
//        KemPlaze::MountInfo(KemPlaze::keyShadow)));
//
// There is no group and nothing to wait for: a mount is complete on return, with the rows that are in the
// memory at that moment. Where the table's file isn't there yet, the entity is empty and fills when the
// writer comes. A mounted entity lives as long as somebody holds it, also beyond the mount.
#pragma once

#include "Kem/Entity.h"
#include "Plaze/TablePath.h"

#include <map>
#include <string>

namespace KemPlaze {

// How a table is read. The numbers are those of the platform; a key shadow is the one way that is served: the
// process remembers which keys it has seen and is notified which of them changed.
enum Mode : int { keyShadow = 3 };

struct MountInfo {
   explicit MountInfo(int theMode) : mode(theMode) {}
   int mode;
};

class Mount final : public Kem::PtrInterface {
  public:
   // The tables of the system of that name below the root, an absolute path.
   explicit Mount(std::string systemName, std::string root = Plaze::defaultRoot());
   // Those of the system that the entity manager is connected to.
   template <class Manager>
   requires requires(Manager const& manager) { std::string(manager.systemName()); }
   explicit Mount(Kem::Ptr<Manager> const& manager) : Mount(std::string(manager->systemName())) {}
   ~Mount() override;

   // The entity of the table at the path; the same one again where it is mounted already. Null, with a trace
   // that says why, for a type or a mode that there isn't, a path or a system name that can't be one, and a
   // path that is mounted as another type.
   Kem::Ptr<Kem::Entity> doMount(std::string const& path, std::string const& type, MountInfo const& info);
   // Null where nothing is mounted at the path.
   Kem::Ptr<Kem::Entity> getEntity(std::string const& path) const;
   // Run once by the constructor: settles where the tables are.
   void handleInitialized();

  private:
   std::string const systemName_;
   std::string const root_;
   std::string refusal_; // why nothing can be mounted; empty where it can
   std::map<std::string, Kem::Ptr<Kem::Entity>> entities_;
};

} // namespace KemPlaze
