#include "Session.h"
#include "Failures.h"
#include "View.h"
#include "treejson/Error.h"

#include <algorithm>
#include <cmath>

namespace Ordelctl {

namespace {

constexpr Kem::Seconds connectTimeout = 5;
constexpr Kem::Seconds longestWait = 3600; // at a time
constexpr Kem::Seconds settleGrace = 1;    // behind the time limit, for the database's own answer

} // namespace

Session::Session(std::string const& socketPath)
    : Connection(Records::schema(), "ordelctl", Ordel::Role::tool), socketPath_(socketPath) {
   std::string error;
   if (!connectAndWait(socketPath, connectTimeout, error))
      throw Unreachable(error);
}

Session::~Session() = default;

bool Session::waitUntil(std::function<bool()> const& condition, Kem::Seconds deadline) {
   while (!condition()) {
      if (!isConnected())
         throw Unreachable(socketPath_ + ": " + failure_);
      Kem::Seconds const left = deadline - Kem::now();
      if (left <= 0)
         return false;
      wait(std::min(left, longestWait));
   }
   return true;
}

Session::Reply Session::reply(Kem::Seconds deadline) {
   isReplied_ = false;
   if (!waitUntil([this] { return isReplied_; }, deadline))
      return {Ordel::Status::absent, "the database doesn't answer"};
   if (reply_.status == Ordel::Status::refused)
      throw TreeJson::Refusal(reply_.text);
   return std::move(reply_);
}

Session::Reply Session::write(std::string_view operations) {
   constexpr size_t partBytes = 16u << 20; // of what doesn't fit a frame
   ++lastRequest_;
   for (; operations.size() > partBytes; operations.remove_prefix(partBytes))
      Connection::write(lastRequest_, sequence(), Ordel::writeContinues, operations.substr(0, partBytes));
   Connection::write(lastRequest_, sequence(), Ordel::writeStrict, operations);
   return reply();
}

Session::Reply Session::settle(std::string_view agent, Kem::Seconds timeout) {
   Kem::Seconds const deadline = timeout > 0 ? Kem::now() + timeout + settleGrace : Kem::never;
   Connection::settle(++lastRequest_, static_cast<uint32_t>(std::ceil(timeout * 1000)), agent);
   return reply(deadline);
}

Session::Reply Session::clients() {
   Connection::clients(++lastRequest_);
   return reply();
}

Session::Reply Session::snapshot() {
   Connection::snapshot(++lastRequest_);
   return reply();
}

void Session::onMounted(uint32_t mount, uint32_t node, uint16_t type, std::string_view path) {
   if (view_)
      view_->mounted(mount, node, type, path);
}

void Session::onMountDone(uint32_t mount) {
   if (view_)
      view_->mountDone(mount);
}

void Session::onMountFailed(uint32_t mount, Ordel::Status status, std::string_view reason) {
   if (view_)
      view_->mountFailed(mount, status, reason);
}

void Session::onUnmounted(uint32_t mount) {
   if (view_)
      view_->unmounted(mount);
}

void Session::onChanges(uint64_t, std::string_view operations) {
   if (view_)
      view_->changes(operations);
}

void Session::onReply(uint32_t request, Ordel::Status status, std::string_view text) {
   if (request != lastRequest_)
      return;
   reply_ = {status, std::string(text)};
   isReplied_ = true;
}

void Session::onClosed(std::string_view reason) {
   failure_ = reason;
}

} // namespace Ordelctl
