// The one writer of a shared-memory table.
//
// It takes the table over as it is, or makes it, and keeps other writers out until it goes. Each put
// and each removal is seen by readers whole or not at all, as soon as it returns; nothing orders two
// keys. Keys and values are bytes here; what they mean is the matter of the type (Plaze/TableType.h).
// The table outlives its writer.
//
// A writer that is killed leaves at most one entry half written. Readers don't take it, and the next writer
// removes it: what it was and what it was to become are both lost, and its publisher puts it again.
//
// A full table grows to twice the entries: a new file takes the old one's name, with each entry in the same
// slot, so that readers go on where they were. The cost is a copy of the table.
//
// Readers are woken by a system call, at most once in ringInterval (Plaze/TableWatch.h).
#pragma once

#include "Plaze/TableFile.h"
#include "Plaze/TableLock.h"

#include "Kem/Time.h"

#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Plaze {

// Lets an index by key bytes be searched without making a string.
struct BytesHash {
   using is_transparent = void;
   size_t operator()(std::string_view bytes) const { return std::hash<std::string_view>()(bytes); }
};

class Writer {
  public:
   static constexpr uint32_t defaultCapacity = 1024;
   static constexpr Kem::Seconds ringInterval = 0.002;

   // Opens the table, or makes one with room for `capacity` entries. One of the same type name but of another
   // layout is replaced by an empty one: it is left from another release. Raises Error: refused where another
   // process writes it, or where the file is something else.
   Writer(std::string path, Shape const& shape, uint32_t capacity = defaultCapacity);
   // Opens the table of whatever type it is; raises Error where there is none.
   explicit Writer(std::string path);

   // Whether anything changed. Raises Error where the table can't grow, and then nothing has changed; also
   // where somebody has cut the file short, and then the table is of no use: another Writer refuses it. A key
   // or a value longer than the shape allows, or an empty key, is a mistake of the caller: assertion.
   bool put(std::string_view key, std::string_view value);
   bool del(std::string_view key);
   void delAll();

   // Nothing where there is none. The writer's own look needs no sequence.
   std::optional<std::string> value(std::string_view key) const;
   size_t size() const { return slots_.size(); }
   uint32_t capacity() const { return file_->places().capacity; }
   uint64_t generation() const { return file_->header().generation; }
   Shape shape() const { return file_->shape(); }
   // Entries that the constructor removed because they were half written, damaged, or there twice.
   size_t repairedCount() const { return repairedCount_; }

   // For tests: runs in the middle of writing an entry, with half of its words in place.
   void onMidEntryIs(std::function<void()> fault) { onMidEntry_ = std::move(fault); }

  private:
   std::unique_ptr<TableFile> openIfThere() const;
   void checkNotLost() const;
   void takeOver();
   void write(uint32_t slot, Layout::Head head, std::string_view key, std::string_view value);
   void grow();
   void ring();

   std::string path_;
   std::optional<TableLock> lock_;
   std::unique_ptr<TableFile> file_;
   std::unordered_map<std::string, uint32_t, BytesHash, std::equal_to<>> slots_; // of each key
   std::vector<uint32_t> free_;                                                  // taken from the back
   size_t repairedCount_ = 0;
   Kem::Seconds lastRing_ = 0;
   std::function<void()> onMidEntry_;
};

} // namespace Plaze
