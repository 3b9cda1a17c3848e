// The layout of a trace file; shared by TraceFile, which writes it, and Reader, which trusts none of it.
//
//    0          FileHeader, written once before the file gets its name
//    4096       Counters, rewritten with each record; no record is found by them
//    8192       area 10: definitions of row formats, appended only
//    ...        areas 0 to 9: one ring for each level that has a size
//
// An area is a sequence of records, each on a multiple of 8 bytes and none across the end of its area. The
// reader finds records without any head or tail pointer: a record is valid where its check is, and the check
// covers its bytes, its area, its place and the random seed of the file. So a record that was half
// overwritten, half written when the process was killed, or left by another file is no record, and hunting
// goes on 8 bytes further. All numbers are little endian.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Zivlog {

inline constexpr unsigned levelCount = 10;

} // namespace Zivlog

namespace Zivlog::FileLayout {

static_assert(std::endian::native == std::endian::little, "trace files are those of little endian machines");

inline constexpr char magic[8] = {'Z', 'I', 'V', 'L', 'O', 'G', '\r', '\n'};
inline constexpr uint32_t version = 1;
inline constexpr unsigned formatArea = levelCount; // the number of the area of format definitions
inline constexpr uint64_t pageBytes = 4096;
inline constexpr uint64_t formatAreaBytes = uint64_t{32} * 1024;
inline constexpr uint64_t maxRingBytes = uint64_t{64} * 1024 * 1024;
inline constexpr uint32_t maxRecordBytes = 4096; // of a whole record, in a ring that is large enough
inline constexpr unsigned maxFields = 32;        // of a row

struct Area {
   uint64_t offset; // from the start of the file
   uint64_t bytes;  // 0: this level isn't recorded
};

struct FileHeader {
   char magic[8];
   uint32_t version;
   uint32_t pid;
   uint64_t fileBytes;
   uint64_t seed; // random; goes into the check of every record
   int64_t startWallNs;
   uint64_t startMonotonicNs;
   char program[64]; // NUL-terminated
   Area area[levelCount + 1];
   uint64_t check; // of all that is before it
};
static_assert(sizeof(FileHeader) == 112 + 16 * (levelCount + 1) + 8 && sizeof(FileHeader) <= pageBytes);

struct Counters {
   uint64_t sequence;            // of the newest record
   int64_t closedWallNs;         // when the file was closed; 0 while open, or if the process was killed
   uint64_t written[levelCount]; // records ever written to each ring
};
static_assert(sizeof(Counters) <= pageBytes);

enum class Kind : uint8_t {
   text = 1,   // TextHead, then the bytes of facility, file, function and text
   row = 2,    // ListHead, a u16 length for each field, then the bytes of the fields
   format = 3, // as row, in the area of formats; the fields are the name and the format
};
inline constexpr uint8_t truncatedFlag = 1; // the text or the fields were longer than a record may be

struct RecordHeader {
   uint64_t check; // of all of the record that follows, padding (whatever it holds) included
   uint64_t sequence;
   uint64_t monotonicNs;
   int64_t wallOffsetNs; // added to monotonicNs gives the wall clock, ns since 1970 UTC
   uint32_t bytes;       // from the check to the last byte of the last string, without padding
   Kind kind;
   uint8_t flags;
   uint16_t zero;
};
static_assert(sizeof(RecordHeader) == 40);

struct TextHead {
   uint32_t line;
   uint16_t facilityBytes;
   uint16_t fileBytes;
   uint16_t functionBytes;
   uint16_t textBytes;
};
static_assert(sizeof(TextHead) == 12);

struct ListHead {
   uint32_t formatId;
   uint32_t fieldCount;
};

inline uint64_t padded(uint64_t bytes) {
   return (bytes + 7) & ~uint64_t{7};
}

// No record may take more than a quarter of its ring, so that even the smallest ring keeps a few.
inline uint32_t recordLimit(uint64_t areaBytes) {
   return static_cast<uint32_t>(std::min<uint64_t>(maxRecordBytes, areaBytes / 4));
}

// Each step can be undone, so a change within one word of the input always shows in the result.
inline uint64_t mix(uint64_t sum, uint64_t word) {
   sum = (sum ^ word) * 0x9e3779b97f4a7c15u;
   return sum ^ (sum >> 29);
}

// `count` is a multiple of 8.
inline uint64_t mixBytes(uint64_t sum, char const* bytes, uint64_t count) {
   for (uint64_t at = 0; at < count; at += 8) {
      uint64_t word;
      std::memcpy(&word, bytes + at, 8);
      sum = mix(sum, word);
   }
   return sum;
}

// The check of a record whose padded bytes begin at `record`, `place` bytes into its area.
inline uint64_t recordCheck(uint64_t seed, unsigned area, uint64_t place, char const* record,
                            uint32_t bytes) {
   uint64_t const sum = mix(mix(seed, area), place);
   return mixBytes(sum, record + sizeof(uint64_t), padded(bytes) - sizeof(uint64_t));
}

inline uint64_t headerCheck(FileHeader const& header) {
   return mixBytes(version, reinterpret_cast<char const*>(&header), offsetof(FileHeader, check));
}

} // namespace Zivlog::FileLayout
