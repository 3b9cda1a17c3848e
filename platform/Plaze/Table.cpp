#include "Plaze/Table.h"

#include "Kem/Trace.h"

namespace Plaze {

namespace {
Kem::TraceFacility tableTrace("Plaze::Table");

std::string hexadecimal(std::string_view bytes) {
   std::string text = "0x";
   for (unsigned char const c : bytes)
      text += "0123456789abcdef"[c >> 4], text += "0123456789abcdef"[c & 15];
   return text;
}
} // namespace

Table::Table(Kem::Name name, TableType const& type, std::string filePath)
    : Entity(std::move(name)), type_(type), reader_(std::move(filePath), type.shape()) {}

Table::~Table() = default;

void Table::follow() {
   look();
   watch_.emplace(reader_.path(), [this] { return look(); });
}

bool Table::look() {
   auto const outcome =
       shadow_.pass(reader_, [this](std::string_view key, KeyShadow::Change) { handleKey(key); });
   tellState();
   if (outcome.unreadable == 0) {
      unreadableLooks_ = 0;
   } else if (++unreadableLooks_ == maxQuickLooks) {
      KEM_TRACE(tableTrace, 0,
                reader_.path() << ": " << outcome.unreadable
                               << " entries can't be read: torn, or damaged. Last written by process "
                               << reader_.file().writerPid().load(std::memory_order_relaxed));
   }
   return outcome.changes > 0 || (outcome.unreadable > 0 && unreadableLooks_ < maxQuickLooks);
}

void Table::tellState() {
   if (reader_.state() == toldState_ && reader_.reason() == toldReason_)
      return;
   toldState_ = reader_.state();
   toldReason_ = reader_.reason();
   switch (toldState_) {
   case Reader::State::good:
      KEM_TRACE(tableTrace, 3,
                reader_.path() << " is there, of " << reader_.capacity() << " entries at most");
      break;
   case Reader::State::absent:
      KEM_TRACE(tableTrace, 1, reader_.path() << " is gone");
      break;
   case Reader::State::refused:
      KEM_TRACE(tableTrace, 0, toldReason_ << "; taken as empty");
      break;
   }
}

std::string const* Table::valueAt(KeyShadow::Slots::const_iterator at) const {
   // The file stays mapped as long as the shadow has keys.
   uint64_t sequence;
   switch (reader_.read(at->second, entry_, sequence)) {
   case Reader::Result::entry:
      // Another key may have taken the slot since the last look.
      return entry_.key == at->first ? &entry_.value : nullptr;
   case Reader::Result::free:
      return nullptr;
   case Reader::Result::torn:
   case Reader::Result::damaged:
      corruptionDetected_ = true;
   }
   return nullptr;
}

void Table::refuseRow(std::string_view key) const {
   corruptionDetected_ = true;
   KEM_TRACE(tableTrace, 0,
             reader_.path() << ": entry " << hexadecimal(key) << " is no row of " << type_.name);
}

} // namespace Plaze
