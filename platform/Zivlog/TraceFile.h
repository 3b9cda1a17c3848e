// A circular trace file: the last records of each level, kept in a file that outlives the process.
//
// The file is mapped shared. Writing a record copies it into the ring of its level, with no system
// call, so what was traced before a crash or a SIGKILL is in the file; a record that the kill cut in
// half is recognised by its check and skipped by the Reader. Each level has its own ring, so that
// busy levels don't push out rare ones. All space is allocated when the file is created: a disk that
// fills up later costs nothing. Whoever truncates the file from outside ends the writer by SIGBUS;
// delete it instead, which does no harm.
//
// One thread writes. A child made by fork() shares the file and must not write. A file that is not open takes
// records and drops them. Owned by whoever opens it; most code uses the one of the process, see Zivlog.h.
#pragma once

#include "Zivlog/FileLayout.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Zivlog {

// The size of the ring of each level 0 to 9, in KiB, 0 to 65536. A level of size 0 isn't recorded.
using Sizes = std::array<uint32_t, levelCount>;

// The number of a row format, process-wide, from 1.
using FormatId = uint32_t;

// Registers a format of rows. `format` is text with a "%s" for each field and "%%" for a percent sign; the
// number of "%s" must be `fieldCount`, at most 32. `name` is where text records have their facility.
// Registering the same name and format again gives the same number. Can be called before any file is open.
FormatId registerFormat(std::string_view name, std::string_view format, unsigned fieldCount);

// Where a trace file gets its times from. A test has its own.
struct Clocks {
   uint64_t (*monotonicNs)();
   int64_t (*wallNs)(); // since 1970 UTC
};
extern Clocks const systemClocks;

class TraceFile {
  public:
   explicit TraceFile(Clocks const& clocks = systemClocks) : clocks_(clocks) {}
   TraceFile(TraceFile const&) = delete;
   TraceFile& operator=(TraceFile const&) = delete;
   ~TraceFile() { close(); }

   // Creates the file, mode 0640. A file of that name is kept as PATH.old, in place of an earlier
   // PATH.old. Returns an empty string, or the reason why there is no file; then nothing of it is
   // left. Closes what was open before.
   std::string open(std::string const& path, Sizes const& sizes);
   bool isOpen() const { return base_ != nullptr; }
   void close();
   // Brings the file to the disk and waits for it. Needed only against a crash of the machine.
   void flush();

   // Writes a line of text. Of `file` the part behind the last '/' is kept, of facility, file and function at
   // most 63 bytes, of the text what fits in a record of 4096 bytes (or a quarter of the ring). Levels above
   // 9 count as 9.
   void text(unsigned level, std::string_view facility, std::string_view file, uint32_t line,
             std::string_view function, std::string_view text);
   // Writes a row, with as many fields as the format has. Fields that don't fit in a record are cut.
   void row(unsigned level, FormatId format, std::span<std::string_view const> fields);

  private:
   struct Ring {
      char* base = nullptr; // null: this level isn't recorded
      uint64_t bytes = 0;
      uint64_t next = 0; // where the next record goes
      uint32_t recordLimit = 0;
   };

   void list(unsigned area, FileLayout::Kind kind, uint32_t formatId,
             std::span<std::string_view const> fields);
   char* reserve(Ring& ring, uint32_t bytes);
   void commit(unsigned area, Ring& ring, char* record, uint32_t bytes, FileLayout::Kind kind,
               bool truncated);
   void storeFormats();

   Clocks clocks_;
   int fd_ = -1;
   char* base_ = nullptr;
   uint64_t fileBytes_ = 0;
   uint64_t seed_ = 0;
   uint64_t sequence_ = 0;
   FileLayout::Counters* counters_ = nullptr;
   std::array<uint64_t, levelCount> written_{};
   std::array<Ring, levelCount + 1> areas_{};
   FormatId storedFormats_ = 0;    // formats up to this one are in the file, or found no room there
   int64_t wallOffsetNs_ = 0;      // wall clock less monotonic clock, when last compared
   uint64_t comparedClocksNs_ = 0; // monotonic time of that
};

} // namespace Zivlog
