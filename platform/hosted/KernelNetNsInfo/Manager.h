// Keeps KernelNetNsInfo::Root current with the named network namespaces of the system: the files of one
// folder (Netlink/Kernel.h). It makes and removes none.
//
// Each change in the folder is followed by a look at the whole of it. While there is no such folder,
// which is so on a system that never had a namespace, there are no namespaces, and the nearest
// folder above it is watched until the next one on the way comes. Where watching isn't possible at
// all, it looks each pollInterval.
//
// A file counts from the moment it is made, a little before it leads to its namespace; whoever opens it may
// find it not ready, or left behind by a namespace that is gone. The entry's inode is 0 as long, and it is
// looked at again a little later. A namespace that is made again under its name has another inode. Names of more than 150 bytes can be no
// namespace here; they are left out, and each is traced once. The default namespace has no file and no entry.
//
// The first look is in the constructor. It is the only writer of Root; dropping
// the manager leaves the record.
#pragma once

#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/FolderWatch.h"
#include "Kem/StateMachine.h"
#include "Netlink/Kernel.h"
#include "records/KernelNetNsInfo/NetNs.h"
#include "records/KernelNetNsInfo/Root.h"

#include <set>
#include <string>

namespace KernelNetNsInfo {

// Whether the entry of the open folder is a folder itself, and so no namespace. `type` is what readdir says,
// which on some file systems is DT_UNKNOWN for all; then the file system is asked once more.
bool isFolder(int folder, char const* name, unsigned char type);

class Manager final : public Kem::StateMachine {
  public:
   // Time between two looks where the folder can't be watched.
   static constexpr Kem::Seconds pollInterval = 1.0;
   // Time to the next look while a file leads to no namespace; doubled each time.
   static constexpr Kem::Seconds minReadyInterval = 0.1;
   static constexpr Kem::Seconds maxReadyInterval = 1.0;

   // `folder` is an absolute path; other than the system's own in tests.
   Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root,
           std::string folder = Netlink::kernel().namespaceFolder());
   ~Manager() override;

   // Looks at the folder now. Run by the constructor; may be run again at any time.
   void handleInitialized() override;

  private:
   // --- Reactions.
   struct Bell final : Kem::FileDescriptorWatch {
      explicit Bell(Manager& o) : owner(o) {}
      void onReadable() override { owner.handleBell(); }
      Manager& owner;
   };
   struct KemClock final : Kem::Clock::NotifieeConst {
      KemClock(Manager& o, Kem::Ptr<Kem::Clock const> clock) : NotifieeConst(std::move(clock)), owner(o) {}
      void onTime() override { owner.handleInitialized(); }
      Manager& owner;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(clock_); }
   void handleBell();

   // --- Helpers.
   std::set<std::string> names();
   void lookAgainIf(bool isAnyUnready);

   Kem::Ptr<Root> const root_;
   std::string const folder_;
   Kem::FolderWatch watch_;
   std::set<std::string> leftOut_; // too long, and traced
   Kem::Seconds readyInterval_ = minReadyInterval;
   Bell bell_{*this};
   KemClock clock_;
};

} // namespace KernelNetNsInfo
