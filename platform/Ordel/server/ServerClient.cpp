#include "Ordel/server/ServerClient.h"
#include "Kem/Printable.h"

#include "Kem/Activity.h"
#include "Ordel/server/Server.h"
#include "Ordel/wire/Messages.h"

#include <algorithm>

namespace Ordel {

namespace {

constexpr size_t pieceBytes = 64u << 10; // of one frame of these
constexpr size_t changesHeaderBytes = frameHeaderBytes + sizeof(uint64_t);

} // namespace

ServerClient::ServerClient(Server& server, uint32_t serial, Peer peer)
    : server_(server), serial_(serial), peer_(peer), timer_(*this),
      pending_(server.tree(), &server.madeMarks()) {
   input_.limitIs(maxHelloBytes);
   timer_.notifierIs(Kem::ActivityFacility::clock());
   timer_.timeMinIs(Kem::now() + helloTimeout);
}

ServerClient::~ServerClient() {
   server_.turns().forget(*this);
   server_.largeFrames().end(*this);
   output_.clear();
   account();
}

void ServerClient::Timer::onTime() {
   if (client.isRefused())
      client.isOver_ = true;
   else
      client.refuse(client.isWelcome() ? "the rest of a large frame did not come in time"
                                       : "no hello came in time");
   client.input_.clear();
}

std::string ServerClient::label() const {
   return (name_.empty() ? "client without a name" : Kem::printable(name_)) + " (pid " +
          std::to_string(peer_.pid) + ", uid " + std::to_string(peer_.uid) + ")";
}

size_t ServerClient::mountTextBytes() const {
   size_t bytes = 0;
   for (auto const& [number, mount] : mounts_)
      bytes += mount->text.size() + mount->type.size();
   return bytes;
}

// --- Coming in

bool ServerClient::hasRoom() const {
   size_t const most =
       server_.outputBytes() > allOutputLimit ? fillBytes : changesLimit + bonus_ + answersRoom;
   return output_.size() < most && (pending_.strayCount() < straysLimit || output_.size() < fillBytes);
}

bool ServerClient::wantsReading() const {
   return !isRefused_ && !input_.isHeld() && large_ != Large::waits && hasRoom();
}

void ServerClient::receive(std::string_view bytes) {
   receivedBytes_ += bytes.size();
   if (isRefused_)
      return;
   constexpr unsigned framesBetween = 32; // two looks at the time, where they are quick
   Kem::Seconds const end = server_.turns().begin();
   unsigned count = 0;
   isAnswerLarge_ = true;
   bool const isGood = input_.read(
       bytes,
       [&] {
          if (!hasRoom())
             return false;
          return (!isAnswerLarge_ && ++count % framesBetween != 0) || Kem::now() < end;
       },
       [&](Frame frame, std::string_view payload) { return takeFrame(frame, payload) && !isRefused_; });
   if (!isGood)
      refuse("a frame is empty or larger than the limit of " +
             std::to_string(isWelcome_ ? maxFrameBytes : maxHelloBytes) + " bytes");
   if (isRefused_)
      input_.clear();
   goOnIfHeld();
   followLargeFrame();
}

void ServerClient::goOnIfHeld() {
   if (input_.isHeld() && hasRoom())
      server_.turns().wait(*this);
}

void ServerClient::followLargeFrame() {
   bool const isLarge = isWelcome_ && input_.partialBytes() > LargeFrames::largeBytes;
   if (isLarge == (large_ != Large::none))
      return;
   if (isLarge) {
      large_ = Large::waits;
      server_.largeFrames().begin(*this);
      return;
   }
   large_ = Large::none;
   timer_.timeMinIs(Kem::never);
   server_.largeFrames().end(*this);
}

void ServerClient::largeFrameBegins() {
   large_ = Large::goesOn;
   timer_.timeMinIs(Kem::now() + LargeFrames::timeLimit);
}

// False when the connection ends.
bool ServerClient::takeFrame(Frame frame, std::string_view payload) {
   if (!isWelcome_) {
      if (frame == Frame::hello)
         return takeHello(payload);
      refuse("the first frame has to be a hello");
      return false;
   }
   constexpr size_t quickBytes = 4096;
   isAnswerLarge_ = frame != Frame::write || payload.size() > quickBytes;
   bool isRead = false;
   switch (frame) {
   case Frame::mount:
      if (Message::Mount mount; (isRead = decode(payload, mount)))
         server_.mount(*this, mount.mount, mount.selector, mount.type, mount.flags);
      break;
   case Frame::unmount:
      if (Message::Unmount unmount; (isRead = decode(payload, unmount)))
         server_.unmount(*this, unmount.number);
      break;
   case Frame::write:
      if (Message::Write write; (isRead = decode(payload, write)))
         server_.write(*this, write.request, write.seen, write.flags, write.operations.bytes);
      break;
   case Frame::settle:
      if (Message::Settle settle; (isRead = decode(payload, settle)))
         server_.settle(*this, settle.request, settle.milliseconds, settle.agent);
      break;
   case Frame::settled:
      if (Message::Settled settled; (isRead = decode(payload, settled)))
         server_.settled(*this, settled.number);
      break;
   case Frame::clients:
      if (Message::Clients clients; (isRead = decode(payload, clients)))
         server_.clientsReport(*this, clients.number);
      break;
   case Frame::snapshot:
      if (Message::Snapshot snapshot; (isRead = decode(payload, snapshot)))
         server_.snapshot(*this, snapshot.number);
      break;
   case Frame::hello:
      refuse("a second hello");
      return false;
   default:
      refuse("there is no frame of type " + std::to_string(static_cast<unsigned>(frame)));
      return false;
   }
   if (!isRead)
      refuse("a frame of type " + std::to_string(static_cast<unsigned>(frame)) + " can't be read");
   return isRead;
}

bool ServerClient::takeHello(std::string_view payload) {
   Message::HelloHead head;
   if (!decode(payload, head) || head.magic != protocolMagic) {
      refuse("this is no client of the state database");
      return false;
   }
   if (head.version != protocolVersion) {
      refuse("the client speaks version " + std::to_string(head.version) + " of the protocol, the database " +
             std::to_string(protocolVersion));
      return false;
   }
   Message::Hello hello;
   if (!decode(payload, hello)) {
      refuse("the hello can't be read");
      return false;
   }
   if (hello.fingerprint != server_.tree().schema().fingerprint) {
      refuse("the client was built with other records than the database");
      return false;
   }
   if (hello.name.empty() || hello.name.size() > maxNameBytes) {
      refuse("a client's name has 1 to " + std::to_string(maxNameBytes) + " bytes");
      return false;
   }
   if (hello.role > Role::agent) {
      refuse("there is no role of number " + std::to_string(static_cast<unsigned>(hello.role)));
      return false;
   }
   if (server_.isNameOfAgent(hello.name)) {
      refuse("an agent of the name " + Kem::printable(hello.name) + " is connected");
      return false;
   }
   name_ = hello.name;
   role_ = hello.role;
   isWelcome_ = true;
   timer_.timeMinIs(Kem::never);
   input_.limitIs(maxFrameBytes);
   welcome(server_.systemName());
   server_.welcomed(*this);
   return true;
}

// --- Going out

void ServerClient::account() {
   server_.outputBytesChanged(accountedBytes_, output_.size());
   accountedBytes_ = output_.size();
}

void ServerClient::blockBegins(uint64_t block, size_t bytes) {
   account();
   size_t const most = server_.outputBytes() > allOutputLimit ? fillBytes : changesLimit + bonus_;
   block_ = block;
   isBehind_ = !pending_.empty() || output_.size() + bytes > most;
}

void ServerClient::changesBegin() {
   encodeOpen(output_, Message::Changes{}); // the sequence is set at the end
   lastAtBytes_ = 0;
   lastAt_ = 0;
}

// `isWanted`: also without operations, for its sequence.
void ServerClient::changesEnd(uint64_t sequence, bool isWanted) {
   size_t const start = output_.frameStart();
   Wire::Writer& out = output_.writer();
   if (out.size() - start == changesHeaderBytes && !isWanted) {
      output_.abandon();
      return;
   }
   out.patchU32(start + frameHeaderBytes, static_cast<uint32_t>(sequence));
   out.patchU32(start + frameHeaderBytes + sizeof(uint32_t), static_cast<uint32_t>(sequence >> 32));
   sentBytes_ += out.size() - start;
   output_.end();
}

template <class M>
void ServerClient::send(M const& message) {
   if (output_.isOpen())
      changesEnd(server_.sequence());
   size_t const before = output_.size();
   encode(output_, message);
   sentBytes_ += output_.size() - before;
}

void ServerClient::fill() {
   if (wasOffered_ && !hasTaken_)
      bonus_ -= bonus_ / 8;
   hasTaken_ = false;
   if (output_.isOpen())
      changesEnd(server_.sequence());
   if (output_.size() > outputLimit && !isRefused_) {
      giveUp("it takes nothing in, and " + std::to_string(output_.size()) + " bytes wait for it");
      return;
   }
   sendLater();
   while (!pending_.empty() && output_.size() < fillBytes) {
      changesBegin();
      drained_.clear();
      pending_.drain(output_.writer(), pieceBytes, drained_);
      // A client that has been told that nothing is there must not get its own writes back for that.
      changesEnd(server_.drained(*this, drained_), !drained_.empty());
      sendLater();
   }
   wasOffered_ = output_.size() > 0;
   account();
   goOnIfHeld(); // there may be room for strays again
}

void ServerClient::forgetDone(uint32_t mount) {
   std::erase_if(later_, [&](Later const& waiting) { return !waiting.isProbe && waiting.number == mount; });
}

void ServerClient::later(bool isProbe, uint32_t number) {
   later_.push_back({pending_.ticket(), isProbe, number});
   sendLater();
}

void ServerClient::sendLater() {
   while (!later_.empty() && pending_.isSent(later_.front().ticket)) {
      if (later_.front().isProbe)
         send(Message::Probe{later_.front().number});
      else
         send(Message::MountDone{later_.front().number});
      later_.pop_front();
   }
}

void ServerClient::welcome(std::string_view systemName) {
   send(Message::Welcome{.fingerprint = server_.tree().schema().fingerprint, .systemName = systemName});
}

void ServerClient::mounted(ServerMount const& mount, Entity const* entity) {
   send(Message::Mounted{mount.number, entity ? entity->node() : 0, entity ? entity->type().id : uint16_t{0},
                         mount.selector.path});
}

void ServerClient::mountFailed(uint32_t mount, Status status, std::string_view reason) {
   send(Message::MountFailed{mount, status, reason.substr(0, maxReasonBytes)});
}

void ServerClient::unmounted(uint32_t mount) {
   forgetDone(mount);
   send(Message::Unmounted{mount});
}

void ServerClient::reply(uint32_t request, Status status, std::string_view text) {
   send(Message::Reply{request, status, status == Status::done ? text : text.substr(0, maxReasonBytes)});
}

void ServerClient::giveUp(std::string const& reason) {
   refuse(reason);
   isOver_ = true;
   input_.clear();
   discardOutput();
}

void ServerClient::refuse(std::string_view reason) {
   if (isRefused_)
      return;
   send(Message::Refused{reason});
   isRefused_ = true;
   large_ = Large::none;
   server_.largeFrames().end(*this);
   timer_.timeMinIs(Kem::now() + refusedTimeout);
   server_.refused(*this, reason);
}

} // namespace Ordel
