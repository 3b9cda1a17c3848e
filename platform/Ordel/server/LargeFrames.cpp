#include "Ordel/server/LargeFrames.h"

#include "Ordel/server/ServerClient.h"

namespace Ordel {

void LargeFrames::begin(ServerClient& client) {
   if (sending_.size() >= maxAtOnce) {
      waiting_.push_back(&client);
      return;
   }
   sending_.push_back(&client);
   client.largeFrameBegins();
}

void LargeFrames::end(ServerClient& client) {
   std::erase(waiting_, &client);
   std::erase(sending_, &client);
   while (!waiting_.empty() && sending_.size() < maxAtOnce) {
      ServerClient& next = *waiting_.front();
      waiting_.pop_front();
      sending_.push_back(&next);
      next.largeFrameBegins();
   }
}

} // namespace Ordel
