#include "Ordel/server/LargeBlock.h"

#include "Kem/Activity.h"

#include <utility>

namespace Ordel {

LargeBlock::LargeBlock() {
   timer_.notifierIs(Kem::ActivityFacility::clock());
}

void LargeBlock::add(ServerClient const& client, std::string_view operations) {
   auto const [at, isFirst] = failures_.try_emplace(&client);
   if (isFirst && client_)
      at->second = "another large write is coming in; try again";
   if (!at->second.empty())
      return;
   client_ = &client;
   if (operations.size() > maxBytes - operations_.size()) {
      drop("a write may have " + std::to_string(maxBytes >> 20) + " MiB, in all its parts");
      return;
   }
   operations_ += operations;
   timer_.timeMinIs(Kem::now() + timeLimit);
}

void LargeBlock::drop(std::string const& reason) {
   failures_[client_] = reason;
   client_ = nullptr;
   std::string().swap(operations_);
   timer_.timeMinIs(Kem::never);
}

std::string LargeBlock::end(ServerClient const& client, std::string& operations) {
   if (client_ == &client) {
      operations = std::move(operations_);
      drop({});
   }
   return std::move(failures_.extract(&client).mapped());
}

void LargeBlock::clientGone(ServerClient const& client) {
   if (client_ == &client)
      drop({});
   failures_.erase(&client);
}

} // namespace Ordel
