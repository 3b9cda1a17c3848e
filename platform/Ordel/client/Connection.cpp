#include "Ordel/client/Connection.h"

#include "Kem/Activity.h"
#include "Kem/Assert.h"
#include "Ordel/wire/Messages.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace Ordel {

namespace {

constexpr size_t readBytes = 256u << 10;

} // namespace

Connection::Connection(Records::Schema const& schema, std::string name, Role role)
    : schema_(schema), name_(std::move(name)), role_(role) {}

Connection::~Connection() {
   isWatchedIs(false);
   close();
}

std::string Connection::defaultSocketPath() {
   char const* const path = std::getenv("ORDEL_SOCKET");
   return path && *path ? path : "/run/vorn/ordel.sock";
}

// --- Connecting

bool Connection::connect(std::string const& socketPath, std::string& error) {
   KEM_ASSERT(!isConnected());
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (socketPath.empty() || socketPath.size() >= sizeof address.sun_path) {
      error =
          socketPath + ": a socket's path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes";
      return false;
   }
   std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
   int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (socket < 0 || ::connect(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0) {
      error = socketPath + ": " + std::strerror(errno);
      if (socket >= 0)
         ::close(socket);
      return false;
   }

   socket_ = socket;
   ++link_;
   isWelcome_ = false;
   isRefused_ = false;
   sendError_ = 0;
   sequence_ = 0;
   encode(output_, Message::Hello{.fingerprint = schema_.fingerprint, .name = name_, .role = role_});
   if (isWatched_)
      descriptorIs(socket_);
   return true;
}

bool Connection::connectAndWait(std::string const& socketPath, Kem::Seconds timeout, std::string& error) {
   if (!connect(socketPath, error))
      return false;
   isConnecting_ = true;
   endReason_.clear();
   uint32_t const link = link_;
   Kem::Seconds const end = Kem::now() + timeout;
   while (isConnected() && !isWelcome_ && link == link_) {
      Kem::Seconds const left = end - Kem::now();
      if (left <= 0)
         break;
      wait(left);
   }
   isConnecting_ = false;
   if (isWelcome_)
      return true;
   error = socketPath + ": " + (endReason_.empty() ? "no answer" : endReason_);
   close();
   return false;
}

void Connection::close() {
   if (socket_ < 0)
      return;
   descriptorIs(-1);
   ::close(std::exchange(socket_, -1));
   isWelcome_ = false;
   output_.clear();
   input_.clear();
}

void Connection::end(std::string const& reason) {
   // It may stand in the buffers.
   std::string const kept = reason; // NOLINT(performance-unnecessary-copy-initialization)
   close();
   if (isConnecting_)
      endReason_ = kept;
   else
      onClosed(kept);
}

// --- Driving

void Connection::isWatchedIs(bool isWatched) {
   if (isWatched == isWatched_)
      return;
   isWatched_ = isWatched;
   descriptorIs(isWatched ? socket_ : -1);
   auto const hook = Kem::FunctionRef<void()>::of<&Connection::onDeliveryEnd>(*this);
   if (isWatched)
      Kem::activityManager()->deliveryEndHookAdd(Kem::DeliveryEnd::send, hook);
   else
      Kem::activityManager()->deliveryEndHookDel(hook);
}

void Connection::onReadable() {
   receive();
}

void Connection::onWritable() {
   flush();
}

void Connection::onDeliveryEnd() {
   flush();
}

bool Connection::wait(Kem::Seconds timeout) {
   flush();
   uint64_t const framesBefore = frameCount_;
   uint32_t const link = link_;
   Kem::Seconds const end = Kem::now() + timeout;
   while (isConnected() && link == link_) {
      pollfd poll{socket_, static_cast<short>(output_.size() > 0 ? POLLIN | POLLOUT : POLLIN), 0};
      double const milliseconds = std::ceil(std::clamp(end - Kem::now(), 0.0, 1e6) * 1000);
      int const ready = ::poll(&poll, 1, static_cast<int>(milliseconds));
      if (ready > 0 && (poll.revents & POLLOUT))
         flush();
      if (ready > 0 && (poll.revents & ~POLLOUT) && !receive())
         return false;
      if (frameCount_ != framesBefore)
         break;
      flush();
      if (Kem::now() >= end)
         break;
   }
   return frameCount_ != framesBefore;
}

bool Connection::flush() {
   while (isConnected() && sendError_ == 0 && output_.size() > 0) {
      std::string_view const bytes = output_.view();
      ssize_t const count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count >= 0) {
         output_.consumed(static_cast<size_t>(count));
         continue;
      }
      if (errno == EINTR)
         continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK)
         break;
      // The database may have said why before it closed; what it sent can still be read, but not from here: the
      // caller may be a handler.
      sendError_ = errno;
      if (isWatched_)
         wantsWritableIs(false);
   }
   if (sendError_ != 0)
      output_.clear();
   if (isConnected() && isWatched_)
      wantsWritableIs(output_.size() > 0);
   return isConnected() && sendError_ == 0;
}

bool Connection::receive() {
   static thread_local std::string buffer(readBytes, '\0');
   if (!isConnected())
      return false;
   // Taken out while it is in use: a handler may wait for something on this or another connection.
   std::string bytes = std::move(buffer);
   bytes.resize(readBytes);
   uint32_t const link = link_;
   ssize_t const count = recv(socket_, bytes.data(), bytes.size(), 0);
   int const receiveError = errno;
   if (count > 0) {
      std::string_view const got(bytes.data(), static_cast<size_t>(count));
      bool const isGood = input_.read(got, [&](Frame frame, std::string_view payload) {
         ++frameCount_;
         return takeFrame(frame, payload) && isConnected() && link == link_;
      });
      if (!isGood && isConnected() && link == link_)
         end("the database sent a frame of a size that can't be");
   } else if (count == 0) {
      end(sendError_ != 0 ? std::strerror(sendError_) : "the database closed the connection");
   } else if (receiveError != EAGAIN && receiveError != EWOULDBLOCK && receiveError != EINTR) {
      end(std::strerror(receiveError));
   }
   buffer = std::move(bytes);
   return isConnected();
}

// Calls the handler of one frame. False when no more are to be taken.
bool Connection::takeFrame(Frame frame, std::string_view payload) {
   switch (frame) {
   case Frame::welcome: {
      Message::Welcome welcome;
      if (!decode(payload, welcome))
         break;
      if (welcome.version != protocolVersion || welcome.fingerprint != schema_.fingerprint) {
         isRefused_ = true;
         end("the database is of another version");
         return false;
      }
      isWelcome_ = true;
      onWelcome(welcome.systemName);
      return true;
   }
   case Frame::refused: {
      Message::Refused refused;
      isRefused_ = true;
      end(decode(payload, refused) && !refused.reason.empty() ? std::string(refused.reason) : "refused");
      return false;
   }
   case Frame::mounted: {
      Message::Mounted mounted;
      if (!decode(payload, mounted) || mounted.type >= schema_.entities.size())
         break;
      onMounted(mounted.mount, mounted.node, mounted.type, mounted.path);
      return true;
   }
   case Frame::mountDone: {
      Message::MountDone done;
      if (!decode(payload, done))
         break;
      onMountDone(done.number);
      return true;
   }
   case Frame::mountFailed: {
      Message::MountFailed failed;
      if (!decode(payload, failed))
         break;
      onMountFailed(failed.mount, failed.status, failed.reason);
      return true;
   }
   case Frame::unmounted: {
      Message::Unmounted unmounted;
      if (!decode(payload, unmounted))
         break;
      onUnmounted(unmounted.number);
      return true;
   }
   case Frame::changes: {
      Message::Changes changes;
      if (!decode(payload, changes))
         break;
      uint32_t const link = link_;
      onChanges(changes.sequence, changes.operations.bytes);
      if (link == link_)
         sequence_ = changes.sequence;
      return true;
   }
   case Frame::reply: {
      Message::Reply reply;
      if (!decode(payload, reply))
         break;
      onReply(reply.request, reply.status, reply.text);
      return true;
   }
   case Frame::probe: {
      Message::Probe probe;
      if (!decode(payload, probe))
         break;
      onProbe(probe.number);
      return true;
   }
   default:
      break;
   }
   end("the database sent a frame that can't be read, of type " +
       std::to_string(static_cast<unsigned>(frame)));
   return false;
}

// --- Frames out

template <class M>
void Connection::sendFrame(M const& message) {
   if (isConnected())
      encode(output_, message);
}

void Connection::mount(uint32_t mount, std::string_view selector, std::string_view type, uint8_t flags) {
   sendFrame(Message::Mount{mount, selector, type, flags});
}

void Connection::unmount(uint32_t mount) {
   sendFrame(Message::Unmount{mount});
}

void Connection::write(uint32_t request, uint64_t seen, uint8_t flags, std::string_view operations) {
   writeBegin(request, seen, flags).raw(operations.data(), operations.size());
   writeEnd();
}

Wire::Writer& Connection::writeBegin(uint32_t request, uint64_t seen, uint8_t flags) {
   return encodeOpen(output_, Message::Write{request, seen, flags, {}});
}

void Connection::writeEnd() {
   if (isConnected())
      output_.end();
   else
      output_.abandon();
}

void Connection::settle(uint32_t request, uint32_t milliseconds, std::string_view agent) {
   sendFrame(Message::Settle{request, milliseconds, agent});
}

void Connection::settled(uint32_t probe) {
   sendFrame(Message::Settled{probe});
}

void Connection::clients(uint32_t request) {
   sendFrame(Message::Clients{request});
}

void Connection::snapshot(uint32_t request) {
   sendFrame(Message::Snapshot{request});
}

} // namespace Ordel
