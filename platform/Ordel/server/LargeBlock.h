// A block of operations that comes in several writes, because it is larger than a frame may be: gathered until the
// last of them, and then applied as one. So a document of any size that the tree can take is in it whole or not
// at all.
//
// One client at a time, so many bytes, and so long between two parts: it costs the database bounded memory.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace Ordel {

class ServerClient;

class LargeBlock {
  public:
   static constexpr size_t maxBytes = 128u << 20;
   static constexpr Kem::Seconds timeLimit = 5; // between two parts

   LargeBlock();

   // Some parts of a block of the client have come, the last one hasn't.
   bool isOpen(ServerClient const& client) const { return failures_.contains(&client); }
   // Another part of the client's block, or its first. What is wrong with it is said by `end`.
   void add(ServerClient const& client, std::string_view operations);
   // The last part has been added. The whole block is in `operations`, or the reason why there is none comes back.
   std::string end(ServerClient const& client, std::string& operations);
   void clientGone(ServerClient const& client);

  private:
   struct Timer final : Kem::Clock::NotifieeConst {
      explicit Timer(LargeBlock& ofOwner) : owner(ofOwner) {}
      void onTime() override { owner.drop("the rest of a large write did not come in time"); }
      LargeBlock& owner;
   };
   void drop(std::string const& reason);

   std::map<ServerClient const*, std::string> failures_; // by client with an open block; "" where all is well
   ServerClient const* client_ = nullptr;                // whose parts are gathered
   std::string operations_;
   Timer timer_{*this};
};

} // namespace Ordel
