// Keeps KernelNetworkInfo::Root current with the kernel's network devices of one namespace: their names,
// numbers, flags and MTUs. It changes no device.
//
//                          ┌───────── notifications were lost ─────────┐
//                          ▼                                           │
//    made ──► dumping ── complete ──► following ── a notification ──► Root
//               ▲  │ failed, interrupted by changes, or unreadable
//               └──┴── retryInterval later
//
// A dump lists all devices; after it each change comes as a notification, on the same socket and in order.
// The kernel drops notifications when the process doesn't come to read them, and says so: then a new dump
// shows what is different. While one runs, notifications are taken as well. An entry is removed when the
// device is, when a renamed device leaves that name, or when a whole dump doesn't list it.
//
// The first dump is read in the constructor, without going through the event loop, so that the record is full
// from the beginning. Where no socket can be had, that is traced and the record stays as it is. In the default
// namespace it is tried again each retryInterval; for another one, its owner makes another manager when there
// is such a namespace. Dropping the manager leaves the record.
#pragma once

#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/StateMachine.h"
#include "KernelNetworkInfo/DeviceTable.h"
#include "Netlink/Channel.h"
#include "Sulvi/NamespaceName.h"

#include <memory>

namespace KernelNetworkInfo {

class Manager final : public Kem::StateMachine {
  public:
   // Time from a dump that failed to the next one.
   static constexpr Kem::Seconds retryInterval = 0.1;

   // Neighbours are not watched, so their two inputs take nothing but null.
   Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root,
           std::nullptr_t neighborDirByDeviceName, std::nullptr_t arpNeighborSharedData,
           Sulvi::NamespaceName const& netNs);
   // On another channel than one of its own.
   Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root,
           std::unique_ptr<Netlink::Channel> channel);

   // Brings the record up to what the kernel has said by now: the first dump, or what came since. Run by the
   // constructor; may be run again at any time.
   void handleInitialized() override;

   // Whether a whole dump has been taken and nothing was lost since.
   bool isFollowing() const { return state_ == State::following; }

  private:
   enum class State {
      idle, // no dump yet, or one failed; the timer runs, or there is no channel
      dumping,
      following,
   };

   // --- Reactions.
   struct Bell final : Kem::FileDescriptorWatch {
      explicit Bell(Manager& o) : owner(o) {}
      void onReadable() override { owner.handleReadable(); }
      Manager& owner;
   };
   struct KemClock final : Kem::Clock::NotifieeConst {
      KemClock(Manager& o, Kem::Ptr<Kem::Clock const> clock) : NotifieeConst(std::move(clock)), owner(o) {}
      void onTime() override { owner.handleInitialized(); }
      Manager& owner;
   };
   void handleReadable();

   void forEachPart(Kem::PartVisitor const& visit) override { visit(clock_); }
   // --- Helpers.
   bool openChannel();
   bool readOne();
   void take(std::string_view datagram);
   void handleLost(int error);
   void dumpBegin();
   void dumpFailed(char const* reason, int error);

   Sulvi::NamespaceName const netNs_;
   std::unique_ptr<Netlink::Channel> channel_; // null while it can't be opened
   int openError_ = 0;                         // traced; errno
   DeviceTable devices_;
   State state_ = State::idle;
   bool wantsAnotherDump_ = false; // something was lost while this one runs
   uint32_t dumpSequence_ = 0;
   int losses_ = 0; // one after the other, without a datagram between them
   Bell bell_{*this};
   KemClock clock_;
};

} // namespace KernelNetworkInfo
