#include "Ordel/server/SnapshotRequests.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"
#include "Ordel/server/ServerClient.h"

#include <algorithm>
#include <utility>

namespace Ordel {

namespace {

Kem::TraceFacility snapshotTrace("OrdelSnapshot");

} // namespace

SnapshotRequests::SnapshotRequests(Write write) : write_(std::move(write)) {
   timer_.notifierIs(Kem::ActivityFacility::clock());
}

void SnapshotRequests::begin(ServerClient& client, uint32_t request) {
   if (!write_) {
      client.reply(request, Status::refused, "the database runs without a snapshot file");
      return;
   }
   auto const isOfClient = [&](Request const& other) { return &other.client == &client; };
   if (std::count_if(requests_.begin(), requests_.end(), isOfClient) >=
       static_cast<std::ptrdiff_t>(maxQuestionsPerClient)) {
      client.reply(request, Status::refused,
                   "more than " + std::to_string(maxQuestionsPerClient) + " open requests for a snapshot");
      return;
   }
   requests_.push_back({client, request});
   if (Kem::now() >= earliest_)
      writeAndReply();
   else
      timer_.timeMinIs(earliest_);
}

void SnapshotRequests::writeAndReply() {
   timer_.timeMinIs(Kem::never);
   if (requests_.empty()) // those who asked have gone
      return;
   Kem::Seconds const begin = Kem::now();
   std::string const error = write_();
   Kem::Seconds const end = Kem::now();
   earliest_ = end + std::max(shortestPause, pauseFactor * (end - begin));
   if (!error.empty())
      KEM_TRACE(snapshotTrace, 0, "snapshot: " << error);
   for (Request const& request : std::exchange(requests_, {}))
      request.client.reply(request.number, error.empty() ? Status::done : Status::refused, error);
}

void SnapshotRequests::clientGone(ServerClient const& client) {
   std::erase_if(requests_, [&](Request const& request) { return &request.client == &client; });
}

} // namespace Ordel
