// Reads a trace file, of a living process or a dead one, whole or damaged.
//
// A Reader is a snapshot: it holds the bytes as they were when it was made, so the file may be written,
// truncated or deleted meanwhile. It believes nothing it reads: what isn't a valid record is skipped, and no
// input, however hostile, makes it read outside its bytes. Texts are the bytes that were written; whoever
// prints them escapes them.
#pragma once

#include "Zivlog/FileLayout.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Zivlog {

// Why a file can't be read at all.
class ReadError : public std::runtime_error {
  public:
   enum class Cause {
      unreadable,   // the system refused: no such file, no permission
      notTraceFile, // another kind of file, another version, or the header is damaged
   };
   ReadError(Cause cause, std::string const& text) : std::runtime_error(text), cause_(cause) {}
   Cause cause() const { return cause_; }

  private:
   Cause cause_;
};

// One record. Its strings are good as long as the Reader lives.
struct Record {
   uint64_t sequence = 0;
   uint64_t monotonicNs = 0;
   int64_t wallNs = 0; // since 1970 UTC, by the wall clock as it was set then
   unsigned level = 0; // 0 to 9
   bool isTruncated = false;

   bool isRow = false;
   // Of a text line.
   std::string_view facility; // of a row, the name of its format; empty if the file doesn't hold that
   std::string_view file;
   std::string_view function;
   std::string_view text;
   uint32_t line = 0;
   // Of a row.
   uint32_t formatId = 0;
   std::vector<std::string_view> fields;
};

class Reader {
  public:
   struct Header {
      std::string program;
      uint32_t pid = 0;
      uint64_t seed = 0; // distinguishes files of the same name
      int64_t startWallNs = 0;
      int64_t closedWallNs = 0; // 0: still open, or the process was killed
   };
   struct Ring {
      uint64_t bytes = 0;   // 0: the level isn't recorded
      uint64_t held = 0;    // records that are in the file
      uint64_t written = 0; // records ever written, by a counter that damage can falsify
      uint64_t oldest = 0;  // index of the oldest record of this level, good if `held` isn't 0
   };
   struct Format {
      std::string_view name;
      std::string_view format;
   };

   // Raises ReadError, whose text names the reason but not the file.
   static Reader ofFile(std::string const& path);
   static Reader ofBytes(std::string bytes) { return Reader(std::move(bytes)); }
   // What shows whether a file has changed, read without the rest of it: cheap enough
   // to ask often. Raises ReadError.
   struct Stamp {
      uint64_t seed;     // as in Header
      uint64_t sequence; // of the newest record
   };
   static Stamp newestStamp(std::string const& path);
   // Whether a living process has the file open for writing.
   static bool isBeingWritten(std::string const& path);

   Reader(Reader&&) = default;
   Reader& operator=(Reader&&) = default;

   Header const& header() const { return header_; }
   Ring const& ring(unsigned level) const { return rings_[level]; }
   std::map<uint32_t, Format> const& formats() const { return formats_; }
   // How many bytes the file is shorter than its header says; 0 for a whole file.
   uint64_t missingBytes() const { return missingBytes_; }

   // The records of all levels in the order in which they were written.
   size_t size() const { return found_.size(); }
   Record at(size_t index) const;
   // The index of the first record with a greater sequence number; size() if there is none.
   size_t firstAfter(uint64_t sequence) const;
   // The text of a text line, or the filled format of a row.
   std::string textOf(Record const& record) const;

  private:
   struct Found {
      uint64_t sequence;
      uint64_t place; // in bytes_
      unsigned level;
   };

   explicit Reader(std::string bytes);
   void scan(unsigned area, FileLayout::Area const& place);
   bool isRecord(unsigned area, uint64_t start, uint64_t place, uint64_t end) const;
   void defineFormat(uint64_t place);
   void countRings();
   template <class T>
   T load(uint64_t place) const {
      T value;
      std::memcpy(&value, bytes_.data() + place, sizeof(T));
      return value;
   }

   std::string bytes_; // longer than a header, so its bytes stay in place when the Reader is moved
   Header header_;
   Ring rings_[levelCount];
   std::map<uint32_t, Format> formats_;
   std::vector<Found> found_;
   uint64_t missingBytes_ = 0;
};

} // namespace Zivlog
