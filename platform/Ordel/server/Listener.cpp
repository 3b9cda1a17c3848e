#include "Ordel/server/Listener.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace Ordel {

namespace {

Kem::TraceFacility listenerTrace("OrdelListener");

constexpr size_t turnBytes = 256u << 10;  // of one client in one turn
constexpr size_t writeBytes = 1u << 20;   // the same
constexpr int acceptCount = 64;           // in one turn
constexpr int sendBufferBytes = 1u << 20; // of a socket; the kernel may allow less

int unixSocket() {
   return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

sockaddr_un addressOf(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size());
   return address;
}

// Locks against another database that starts at the same time. Anybody who can read the folder can lock it too,
// so there is a limit to it.
bool lockWithin(int descriptor, int milliseconds) {
   constexpr int stepMilliseconds = 20;
   for (int waited = 0; flock(descriptor, LOCK_EX | LOCK_NB) < 0; waited += stepMilliseconds) {
      if (waited >= milliseconds)
         return false;
      poll(nullptr, 0, stepMilliseconds);
   }
   return true;
}

// Whether somebody takes connections at the path.
bool isListening(std::string const& path) {
   int const probe = unixSocket();
   sockaddr_un const address = addressOf(path);
   bool const isTaken = connect(probe, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 ||
                        errno == EAGAIN || errno == EINPROGRESS;
   close(probe);
   return isTaken;
}

} // namespace

// --- The socket that is listened on

bool Listener::listen(std::string const& path, std::string& error) {
   path_ = path;
   // Room for the name that it has at first, too.
   if (path.empty() || path.size() + 1 >= sizeof(sockaddr_un::sun_path)) {
      error = path + ": the path of a socket has 1 to " + std::to_string(sizeof(sockaddr_un::sun_path) - 2) +
              " bytes";
      return false;
   }
   socket_ = unixSocket();
   if (socket_ < 0) {
      error = path + ": " + std::strerror(errno);
      return false;
   }
   if (!bindSafely(error)) {
      close(std::exchange(socket_, -1));
      return false;
   }
   spare_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
   descriptorIs(socket_);
   Kem::activityManager()->deliveryEndHookAdd(Kem::DeliveryEnd::send,
                                              Kem::FunctionRef<void()>::of<&Listener::onDeliveryEnd>(*this));
   return true;
}

// The socket gets its place only when it listens and has its mode, so that nobody meets it half made.
bool Listener::bindSafely(std::string& error) {
   size_t const slash = path_.rfind('/');
   std::string const folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path_.substr(0, slash);
   int const lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   if (lock < 0) {
      error = path_ + ": " + std::strerror(errno);
      return false;
   }
   if (!lockWithin(lock, lockMilliseconds)) {
      error = path_ + ": another process keeps " + folder + " locked";
      close(lock);
      return false;
   }
   std::string const firstPath = path_ + "~";
   bool const isBound = [&] {
      struct stat standing;
      if (lstat(path_.c_str(), &standing) == 0) {
         if (!S_ISSOCK(standing.st_mode)) {
            error = path_ + ": is no socket";
            return false;
         }
         if (isListening(path_)) {
            error = path_ + ": a database listens there already";
            return false;
         }
      }
      unlink(firstPath.c_str());
      sockaddr_un const address = addressOf(firstPath);
      mode_t const mask = umask(S_IXUSR | S_IXGRP | S_IRWXO);
      int const result = bind(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof address);
      int const bindError = errno;
      umask(mask);
      if (result < 0) {
         error = path_ + ": " + std::strerror(bindError);
         return false;
      }
      if (::listen(socket_, SOMAXCONN) < 0 || rename(firstPath.c_str(), path_.c_str()) < 0 ||
          lstat(path_.c_str(), &standing) < 0) {
         error = path_ + ": " + std::strerror(errno);
         unlink(firstPath.c_str());
         return false;
      }
      device_ = standing.st_dev;
      inode_ = standing.st_ino;
      return true;
   }();
   close(lock); // gives the lock back
   return isBound;
}

Listener::~Listener() {
   if (socket_ < 0)
      return;
   Kem::activityManager()->deliveryEndHookDel(Kem::FunctionRef<void()>::of<&Listener::onDeliveryEnd>(*this));
   links_.clear();
   descriptorIs(-1);
   struct stat standing;
   if (lstat(path_.c_str(), &standing) == 0 && standing.st_dev == device_ && standing.st_ino == inode_)
      unlink(path_.c_str());
   close(socket_);
   if (spare_ >= 0)
      close(spare_);
}

void Listener::onReadable() {
   for (int i = 0; i < acceptCount; ++i) {
      int const socket = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (socket >= 0) {
         links_.push_back(std::make_unique<Link>(server_, socket));
         continue;
      }
      if (errno == EMFILE || errno == ENFILE)
         refuseForWantOfDescriptors();
      if (errno != EINTR && errno != ECONNABORTED)
         return;
   }
}

// The connection would else wait in the queue, and wake this process again and again.
void Listener::refuseForWantOfDescriptors() {
   KEM_TRACE(listenerTrace, 0, "a client is turned away: " << std::strerror(errno));
   if (spare_ >= 0)
      close(spare_);
   int const socket = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
   if (socket >= 0)
      close(socket);
   spare_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
   errno = EAGAIN;
}

// A client that goes may leave answers for others behind, so links are removed before the rest is written; and
// again, because writing may be the end of one.
void Listener::onDeliveryEnd() {
   auto const isClosed = [](auto const& link) { return link->isClosed(); };
   do {
      links_.remove_if(isClosed);
      for (auto const& link : links_)
         link->flush();
   } while (std::any_of(links_.begin(), links_.end(), isClosed));
   server_.answersAreSent();
}

// --- One connection

namespace {

// Whether the other end has been closed; what it sent may still be there to be read.
bool hasHungUp(int socket) {
   pollfd state{socket, 0, 0};
   return poll(&state, 1, 0) > 0 && (state.revents & POLLHUP);
}

ServerClient::Peer peerOf(int socket) {
   ServerClient::Peer peer{-1, static_cast<uid_t>(-1), [socket] { return hasHungUp(socket); }};
   ucred credentials{};
   socklen_t size = sizeof credentials;
   if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) {
      peer.pid = credentials.pid;
      peer.uid = credentials.uid;
   }
   return peer;
}

} // namespace

Listener::Link::Link(Server& server, int socket)
    : server_(server), socket_(socket), client_(server.connect(peerOf(socket))) {
   setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
   descriptorIs(socket);
}

Listener::Link::~Link() {
   descriptorIs(-1);
   server_.disconnect(client_);
   close(socket_);
}

void Listener::Link::onReadable() {
   static std::string buffer(turnBytes, '\0');
   if (isClosed_ || !client_.wantsReading()) {
      wantsReadableIs(false);
      if (hasHungUp(socket_)) // which the loop would say again and again
         descriptorIs(-1);
      return;
   }
   ssize_t const count = recv(socket_, buffer.data(), buffer.size(), 0);
   if (count > 0)
      client_.receive(std::string_view(buffer.data(), static_cast<size_t>(count)));
   else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
      isClosed_ = true;
}

void Listener::Link::flush() {
   if (isClosed_)
      return;
   bool isBlocked = false;
   for (size_t written = 0; !isBlocked && written < writeBytes && client_.hasOutput();) {
      client_.fill();
      std::string_view const bytes = client_.output();
      if (bytes.empty())
         break;
      ssize_t const count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count >= 0) {
         client_.consumed(static_cast<size_t>(count));
         written += static_cast<size_t>(count);
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
         isBlocked = true;
      } else if (errno != EINTR) {
         // Nobody reads any more, but what was sent before is still to be read, up to its end.
         client_.discardOutput();
         break;
      }
   }
   if (descriptor() < 0 && client_.wantsReading())
      descriptorIs(socket_);
   wantsWritableIs(client_.hasOutput());
   wantsReadableIs(client_.wantsReading());
   if (client_.isRefused() && (client_.isOver() || !client_.hasOutput()))
      isClosed_ = true;
}

} // namespace Ordel
