// Mounts: which part of the state tree a process works with, and how.
//
//    auto group = entityManager.getMountGroup(mounter);
//    group->doMount(Ordel::Mount("w", "Bridging::Config", "bridging/config"));
//    group->doClose(false, "", 0.0);                 // from here on nothing is added; the mounter is called
//    when all are done
//
// A mode is a run of letters:
//    r  read only: the process never changes what it gets      w  the process writes; created where it is absent
//    i  a directory whose children come and go, each with all that is below it
//    c  created where it is absent
//    f  local to this supervisor: created where it is absent, since each supervisor has its own
// What can't be mounted, because nothing is there or another type does, is told in the trace, and
// getEntity gives null for it; the group is done all the same.
#pragma once

#include "Kem/Entity.h"
#include "Kem/Ptr.h"
#include "Kem/Time.h"

#include <string>
#include <vector>

namespace Ordel {

class EntityManager;

struct Mount {
   // A letter that is none of the above, neither r nor w, or both raise a range exception.
   Mount(std::string mode, std::string type, std::string path);

   std::string mode;
   std::string type;
   std::string path;

   bool isWritable() const { return mode.find('w') != std::string::npos; }
   bool isCreating() const { return mode.find_first_of("wcf") != std::string::npos; }
};

// How the mounts of a group ended.
struct MountStatus {
   unsigned done = 0;
   unsigned failed = 0; // nothing there, or another type
   bool isTimedOut = false;
};

// Whoever mounts: the agent's base class.
class Mounter : public Kem::Entity {
  public:
   // All mounts of a group are done. Called once for each group, from the event loop.
   virtual void doMountsComplete(MountStatus const& mountStatus, EntityManager& entityManager) = 0;
   // A mount was done or failed; `mountStatus` counts those so far.
   virtual void handleMountStatus(MountStatus const& mountStatus) {}

  protected:
   using Entity::Entity;
};

class MountGroup final : public Kem::PtrInterface {
  public:
   MountGroup(EntityManager& entityManager, Mounter& mounter);
   ~MountGroup() override;

   // After doClose it is an assertion failure.
   void doMount(Mount mount);
   // Closes the group and sends the mounts. The mounter is called when all are done, or after `timeout`
   // seconds (0: no limit) with what there is. `isOptional` leaves failed mounts out of the trace; `text`
   // names the group in it.
   void doClose(bool isOptional, std::string const& text, Kem::Seconds timeout);

   std::vector<Mount> const& mounts() const { return mounts_; }
   Mounter const& mounter() const { return *mounter_; }

  private:
   friend class EntityManager;
   class Timer;
   void mountEnded(bool isDone, Mount const& mount, std::string const& reason);
   void complete();

   EntityManager& entityManager_;
   Mounter* mounter_;
   std::vector<Mount> mounts_;
   MountStatus status_;
   std::string text_;
   std::unique_ptr<Timer> timer_;
   bool isOptional_ = false;
   bool isClosed_ = false;
   bool isComplete_ = false;
};

} // namespace Ordel
