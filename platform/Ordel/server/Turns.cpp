#include "Ordel/server/Turns.h"

#include "Kem/Activity.h"
#include "Ordel/server/ServerClient.h"

#include <algorithm>

namespace Ordel {

Turns::Turns() {
   timer_.notifierIs(Kem::ActivityFacility::clock());
}

Kem::Seconds Turns::begin() {
   Kem::Seconds const now = Kem::now();
   if (end_ == 0)
      end_ = now + ofAll;
   return std::min(now + ofClient, end_);
}

void Turns::wait(ServerClient& client) {
   if (std::find(waiting_.begin(), waiting_.end(), &client) != waiting_.end())
      return;
   waiting_.push_back(&client);
   timer_.timeMinIs(Kem::now());
}

void Turns::forget(ServerClient& client) {
   std::erase(waiting_, &client);
}

void Turns::serve() {
   // Each once; who still has frames then is behind the others again.
   for (size_t count = waiting_.size(); count > 0 && !waiting_.empty() && begin() > Kem::now(); --count) {
      ServerClient& client = *waiting_.front();
      waiting_.pop_front();
      client.receive({});
   }
   if (!waiting_.empty())
      timer_.timeMinIs(Kem::now());
}

} // namespace Ordel
