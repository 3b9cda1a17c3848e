#include "KernelNetworkInfo/Manager.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"
#include "KernelNetworkInfo/LinkMessages.h"
#include "Netlink/Kernel.h"
#include "Netlink/Message.h"

#include <cerrno>
#include <cstring>

namespace KernelNetworkInfo {

namespace {

Kem::TraceFacility managerTrace("KernelNetworkInfo");

// Datagrams in one turn of the loop, so that a storm of them doesn't keep everything else waiting. They are some
// milliseconds, and the news of the devices that one slice of evaluations made.
constexpr int maxDatagramsPerTurn = 1024;
constexpr int maxLosses = 16; // one after the other, before the socket counts as failed

} // namespace

Manager::Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root, std::nullptr_t,
                 std::nullptr_t, Sulvi::NamespaceName const& netNs)
    : netNs_(netNs), devices_(std::move(root)), clock_(*this, kemFwkActivity->clock()) {
   handleInitialized();
}

Manager::Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root,
                 std::unique_ptr<Netlink::Channel> channel)
    : channel_(std::move(channel)), devices_(std::move(root)), clock_(*this, kemFwkActivity->clock()) {
   handleInitialized();
}

void Manager::handleInitialized() {
   if (!channel_ && !openChannel())
      return;
   bell_.descriptorIs(channel_->descriptor()); // again, after a failure
   if (state_ == State::idle)
      dumpBegin();
   // The kernel puts more of a dump in line as it is read, and is never waited for.
   while (readOne()) {
   }
}

bool Manager::openChannel() {
   channel_ = Netlink::kernel().channel(netNs_, RTMGRP_LINK);
   if (channel_)
      return true;
   if (openError_ != errno)
      KEM_TRACE(managerTrace, 0,
                "devices of namespace \"" << netNs_ << "\" can't be read: " << strerror(errno));
   openError_ = errno;
   // Another one may be gone for good; its owner knows.
   if (netNs_.isDefault())
      clock_.timeMinIs(Kem::now() + retryInterval);
   return false;
}

void Manager::handleReadable() {
   if (isZombie()) {
      bell_.descriptorIs(-1); // for good: what is left unread would ring again and again
      return;
   }
   for (int count = 0; (count < maxDatagramsPerTurn || channel_->hasMore()) && readOne(); ++count) {
   }
}

bool Manager::readOne() {
   auto const received = channel_->receive();
   switch (received.kind) {
   case Netlink::Received::datagram:
      losses_ = 0;
      take(received.bytes);
      return true;
   case Netlink::Received::lost:
      if (received.isFailure() || ++losses_ > maxLosses) {
         // The descriptor would go on ringing, so it isn't listened to until the next try.
         losses_ = 0;
         bell_.descriptorIs(-1);
         dumpFailed("the socket fails", received.error);
         return false;
      }
      handleLost(received.error);
      return true;
   case Netlink::Received::nothing:
      break;
   }
   return false;
}

void Manager::take(std::string_view datagram) {
   std::vector<LinkEvent> events;
   bool const isWhole = readLinkEvents(datagram, events);
   bool isInterrupted = false;
   for (auto const& event : events) {
      isInterrupted |= event.isInterrupted;
      switch (event.kind) {
      case LinkEvent::present:
         devices_.deviceIs(event.index, event.name, event.flags, event.mtu);
         break;
      case LinkEvent::gone:
         devices_.deviceDel(event.index);
         break;
      case LinkEvent::dumpEnd:
         if (state_ != State::dumping || event.sequence != dumpSequence_)
            break; // of a dump that was given up
         if (event.error != 0) {
            dumpFailed("the kernel refuses", event.error);
         } else if (isInterrupted) {
            dumpFailed("devices changed meanwhile", 0);
         } else if (wantsAnotherDump_) {
            dumpBegin();
         } else {
            devices_.roundEnd();
            state_ = State::following;
         }
      }
   }
   if (!isWhole)
      dumpFailed("a message can't be read", 0);
   else if (isInterrupted && state_ == State::dumping)
      dumpFailed("devices changed meanwhile", 0);
}

void Manager::handleLost(int error) {
   KEM_TRACE(managerTrace, 1, "messages were lost: " << strerror(error));
   if (state_ == State::following)
      dumpBegin();
   else if (state_ == State::dumping)
      wantsAnotherDump_ = true;
}

void Manager::dumpBegin() {
   wantsAnotherDump_ = false;
   devices_.roundBegin();
   Netlink::MessageBuilder request(RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, ifinfomsg{});
   request.sequenceIs(++dumpSequence_);
   state_ = State::dumping;
   if (int const error = channel_->send(request.bytes()))
      dumpFailed("no request can be sent", error);
}

void Manager::dumpFailed(char const* reason, int error) {
   KEM_TRACE(managerTrace, 1,
             "list of devices, to be asked for again: " << reason << " " << (error ? strerror(error) : ""));
   state_ = State::idle;
   clock_.timeMinIs(Kem::now() + retryInterval);
}

} // namespace KernelNetworkInfo
