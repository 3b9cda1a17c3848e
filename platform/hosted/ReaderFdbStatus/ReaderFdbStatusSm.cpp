#include "ReaderFdbStatus/ReaderFdbStatusSm.h"

#include "Kem/Trace.h"

namespace Bridging {

namespace {
Kem::TraceFacility theTrace("ReaderFdbStatus");
}

ReaderFdbStatusSm::ReaderFdbStatusSm(Kem::Ptr<Status> status, Kem::Ptr<Plaze::Bridging::Status> plazeStatus)
    : status_(std::move(status)), plazeStatus_(std::move(plazeStatus)) {
   kemPlazeStatus_.notifierIs(plazeStatus_);
}

std::vector<ReaderFdbStatusSm::Row> ReaderFdbStatusSm::readRows() {
   std::vector<Row> rows;
   for (unsigned read = 1;; ++read) {
      rows.clear();
      rows.reserve(plazeStatus_->size());
      plazeStatus_->corruptionDetectedIs(false);
      plazeStatus_->forEachLearnedHost([&](HostKey const& key, LearnedHost const& host) {
         rows.push_back({key, host});
         rows.back().host.addr = key.addr; // whatever the row says: another process wrote it
      });
      if (!plazeStatus_->corruptionDetected())
         return rows;
      KEM_TRACE(theTrace, 5, "read " << read << " of the table was torn");
      if (read == maxReads)
         break;
   }
   // What is in `rows` was read whole, each row by itself.
   KEM_TRACE(theTrace, 1, plazeStatus_->size() - rows.size() << " rows can't be read and stay as they were");
   return rows;
}

void ReaderFdbStatusSm::handlePlazeFdbStatuses() {
   // Before anything is written, so that a torn read leaves nothing behind.
   auto const rows = readRows();
   KEM_TRACE(theTrace, 8, "handlePlazeFdbStatuses " << rows.size() << " rows");

   // New and changed ones first: a host that moved to another filtering database is never nowhere.
   for (auto const& [key, host] : rows)
      status_->fdbStatusIs(key.fid)->learnedHostIs(key.addr, host);

   // Gone are those that the table has no key for; an unreadable row still has its key.
   for (auto const& [fid, fdb] : status_->fdbStatus()) {
      for (auto const& [addr, host] : fdb->learnedHost()) {
         HostKey key;
         key.fid = fid;
         key.addr = addr;
         if (!plazeStatus_->hasLearnedHost(key))
            fdb->learnedHostDel(addr);
      }
      if (fdb->learnedHost().empty())
         status_->fdbStatusDel(fid);
   }
}

} // namespace Bridging
