// A client that can send anything: bytes on a blocking socket, with the frames of the protocol at hand but
// without any obligation to it. For tests of what the database does with bad bytes and with fast writers.
//
// Reading gives up after the limit of Processes.h and fails the test then.
#pragma once

#include "Ordel/wire/Messages.h"
#include "Ordel/wire/Protocol.h"
#include "Processes.h"
#include "records/Schema.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

namespace Scenario {

class RawClient {
  public:
   struct Answer {
      Ordel::Frame frame;
      std::string payload;
   };

   explicit RawClient(std::string const& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::memcpy(address.sun_path, path.data(), path.size());
      timeval const time{static_cast<time_t>(limit.count()), 0};
      ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
      if (::connect(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0)
         ADD_FAILURE() << path << ": " << std::strerror(errno);
   }
   ~RawClient() {
      if (socket_ >= 0)
         ::close(socket_);
   }
   RawClient(RawClient&& other)
       : socket_(std::exchange(other.socket_, -1)), input_(std::move(other.input_)) {}

   // A frame of Messages.h.
   template <class M>
   requires requires { M::frame; }
   bool send(M const& message) {
      Ordel::encode(output_, message);
      bool const isSent = send(output_.view());
      output_.clear();
      return isSent;
   }
   // A frame of any bytes: its payload goes into the writer that comes back, then `send`.
   Wire::Writer& begin(Ordel::Frame frame) { return output_.begin(frame); }
   bool send() {
      output_.end();
      bool const isSent = send(output_.view());
      output_.clear();
      return isSent;
   }
   // False when the other side has ended meanwhile.
   bool send(std::string_view bytes) {
      while (!bytes.empty()) {
         ssize_t const count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
         if (count < 0)
            return false;
         bytes.remove_prefix(static_cast<size_t>(count));
      }
      return true;
   }
   // From then on `send` returns false too when the other side takes nothing for that long.
   void sendTimeoutIs(unsigned milliseconds) {
      timeval const time{milliseconds / 1000, static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
      ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
   }
   void endSending() { ::shutdown(socket_, SHUT_WR); }

   void hello(std::string_view name, uint32_t magic = Ordel::protocolMagic,
              uint16_t version = Ordel::protocolVersion, uint64_t fingerprint = Records::schema().fingerprint,
              Ordel::Role role = Ordel::Role::tool) {
      send(Ordel::Message::Hello{magic, version, fingerprint, name, role});
   }
   // Says hello and takes the welcome.
   RawClient& welcomed(std::string_view name) {
      hello(name);
      auto const answer = read();
      EXPECT_TRUE(answer && answer->frame == Ordel::Frame::welcome) << name;
      return *this;
   }
   void mount(uint32_t number, std::string_view selector) {
      send(Ordel::Message::Mount{number, selector, "", 0});
   }
   void write(uint32_t request, std::string_view operations, uint8_t flags = 0) {
      send(Ordel::Message::Write{request, 0, flags, {operations}});
   }

   // The next frame; nothing when the other side has ended.
   std::optional<Answer> read() {
      for (;;) {
         uint32_t size;
         if (input_.size() >= Ordel::frameHeaderBytes) {
            std::memcpy(&size, input_.data(), sizeof size);
            if (input_.size() >= sizeof size + size) {
               Answer answer{static_cast<Ordel::Frame>(input_[sizeof size]),
                             input_.substr(Ordel::frameHeaderBytes, size - 1)};
               input_.erase(0, sizeof size + size);
               return answer;
            }
         }
         char piece[65536];
         ssize_t const count = ::recv(socket_, piece, sizeof piece, 0);
         if (count < 0 && errno != ECONNRESET)
            ADD_FAILURE() << "no answer: " << std::strerror(errno);
         if (count <= 0)
            return std::nullopt;
         input_.append(piece, static_cast<size_t>(count));
      }
   }
   // The next frame of that type; what comes before it is dropped.
   std::optional<Answer> read(Ordel::Frame wanted) {
      std::optional<Answer> answer;
      while ((answer = read()) && answer->frame != wanted) {
      }
      return answer;
   }
   // Reads to the end; why the database ended the connection, "" when it did not say.
   std::string refusal() {
      auto const answer = read(Ordel::Frame::refused);
      if (!answer)
         return "";
      std::string const reason(Wire::Reader(answer->payload).string());
      EXPECT_FALSE(read()) << "the connection goes on after: " << reason;
      return reason;
   }

  private:
   int socket_;
   std::string input_;
   Ordel::FrameBuffer output_;
};

} // namespace Scenario
