#include "Ordel/client/Mount.h"

#include "Kem/Assert.h"
#include "Kem/Clock.h"
#include "Kem/Exception.h"
#include "Kem/Trace.h"
#include "Ordel/client/EntityManager.h"

namespace Ordel {

namespace {
Kem::TraceFacility mountTrace("OrdelMount");
}

Mount::Mount(std::string m, std::string t, std::string p)
    : mode(std::move(m)), type(std::move(t)), path(std::move(p)) {
   bool const reads = mode.find('r') != std::string::npos, writes = mode.find('w') != std::string::npos;
   if (mode.find_first_not_of("rwicf") != std::string::npos || reads == writes)
      Kem::throwRange("mount mode \"" + mode + "\" of " + path + ": expected r or w, and any of i, c, f");
}

// Ends the wait for mounts that don't come.
class MountGroup::Timer final : public Kem::Clock::NotifieeConst {
  public:
   explicit Timer(MountGroup& g) : NotifieeConst(Kem::ActivityFacility::clock()), group(g) {}
   void onTime() override {
      group.status_.isTimedOut = true;
      group.complete();
   }
   MountGroup& group;
};

MountGroup::MountGroup(EntityManager& entityManager, Mounter& mounter)
    : entityManager_(entityManager), mounter_(&mounter) {}

MountGroup::~MountGroup() = default;

void MountGroup::doMount(Mount mount) {
   KEM_ASSERT(!isClosed_);
   mounts_.push_back(std::move(mount));
}

void MountGroup::doClose(bool isOptional, std::string const& text, Kem::Seconds timeout) {
   KEM_ASSERT(!isClosed_);
   isClosed_ = true;
   isOptional_ = isOptional;
   text_ = text;
   timer_ = std::make_unique<Timer>(*this);
   // With nothing to wait for it is complete in the next turn, not here.
   if (mounts_.empty())
      timer_->timeMinIs(0.0);
   else if (timeout > 0)
      timer_->timeMinIs(Kem::now() + timeout);
   entityManager_.sendMounts(*this);
}

void MountGroup::mountEnded(bool isDone, Mount const& mount, std::string const& reason) {
   if (isComplete_)
      return;
   ++(isDone ? status_.done : status_.failed);
   if (!isDone && !isOptional_)
      KEM_TRACE(mountTrace, 0, "mount of " << mount.path << " as " << mount.type << " failed: " << reason);
   mounter_->handleMountStatus(status_);
   if (status_.done + status_.failed == mounts_.size())
      complete();
}

void MountGroup::complete() {
   if (isComplete_)
      return;
   isComplete_ = true;
   if (mounts_.empty())
      status_.isTimedOut = false;
   timer_->timeMinIs(Kem::never);
   KEM_TRACE(mountTrace, 3,
             "mounts " << text_ << " complete: " << status_.done << " done, " << status_.failed << " failed");
   Kem::Ptr<MountGroup> const self(this);
   std::erase(entityManager_.groups_, self);
   mounter_->doMountsComplete(status_, entityManager_);
   entityManager_.tree_.runsQueueOnCreationIs(true);
   if (entityManager_.groupCompleteHook_)
      entityManager_.groupCompleteHook_(*this);
}

} // namespace Ordel
