// The layout of a shared-memory table in its file: Writer makes it, and Reader trusts nothing of it.
//
//    0          Header: what the table is. Written before the file gets its name, and never changed
//    2048       Counters: what moves. Written by the one writer only
//    4096       sequences: one word for each slot
//    ...        marks: one word for each block of 64 slots
//    ...        slots, each of Shape::slotBytes(): its head, the key, the value, each padded to whole words
//
// All numbers are little endian, everything that moves is an aligned word of 8 bytes, and every offset
// follows from the three sizes in the header, so that no offset in the file has to be believed. The sequences
// are apart from the slots, so that looking for what has changed reads few lines of memory.
//
// How a slot is read while it is being written (a sequence lock). Its sequence is even while the
// slot is complete and odd while it is being written; each writing moves it by two and it never
// comes back to an earlier value.
//
//    writer                                       reader
//    W1  sequence = s + 1        relaxed          R1  a = sequence         acquire
//    W2  fence                   release          R2  copy of the words    relaxed
//    W3  words of the slot       relaxed          R3  fence                acquire
//    W4  sequence = s + 2        release          R4  b = sequence         relaxed
//                                                 good where a == b and a is even
//
// Why a copy that is found good is whole: where R2 saw any word of W3, the fences W2 and R3 synchronise, so
// R4 sees W1 or something later, and b > s. Where R1 saw the s + 2 of W4, it synchronises with it, so R2 sees
// all of W3 or something later. So a == b == s leaves no word of the writing s + 1 in the copy, and none of
// those before it missing. Every access is an atomic one of one word: no data race in the terms of the C++
// model, which is read here as holding between processes too, since atomics of this size are free of locks
// and of addresses.
//
// After every writing the mark of its block moves, and then Counters::change (release both). A reader that
// finds one of them unmoved (acquire) has nothing to look for in the block, or in the table; one that finds
// it moved sees all writings that it counts. So a look costs one word where nothing happened, and after one
// change a word for each block and the sequences of one block.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace Plaze {

// What a table is made for. Two tables of one type name and another fingerprint hold
// another form of the same record.
struct Shape {
   std::string typeName;     // "Plaze::Bridging::Status", 1 to 63 bytes
   uint64_t fingerprint = 0; // of the layout of key and value
   uint32_t keyBytes = 0;    // longest key, 1 to Layout::maxKeyBytes
   uint32_t valueBytes = 0;  // longest value, up to Layout::maxValueBytes

   friend bool operator==(Shape const&, Shape const&) = default;
};

namespace Layout {

static_assert(std::endian::native == std::endian::little, "tables are those of little endian machines");
static_assert(std::atomic_ref<uint64_t>::is_always_lock_free,
              "a word in shared memory can't have a lock beside it");

inline constexpr char magic[8] = {'P', 'L', 'A', 'Z', 'E', '\r', '\n', 0};
inline constexpr uint32_t version = 1;
inline constexpr uint32_t maxKeyBytes = 1024;
inline constexpr uint32_t maxValueBytes = 32 * 1024;
inline constexpr uint32_t maxCapacity = 1 << 24;
inline constexpr uint64_t maxFileBytes = uint64_t(1) << 36;
inline constexpr size_t wordBytes = sizeof(uint64_t);
inline constexpr uint32_t blockSlots = 64;

struct Header {
   char magic[8];
   uint32_t version;
   uint32_t keyBytes;
   uint32_t valueBytes;
   uint32_t capacity;   // slots
   uint64_t generation; // 1 for a new table; each growth makes the next one
   uint64_t lineage;    // random; the same in all generations of one table
   uint64_t fingerprint;
   char typeName[64]; // NUL-terminated
   uint64_t check;    // of all that is before it
};
static_assert(sizeof(Header) == 120);

struct Counters {
   uint64_t change;    // moves with each writing of a slot
   uint64_t entries;   // used slots; for reports only
   uint64_t writerPid; // of the last writer; for reports only
};

inline constexpr size_t countersOffset = 2048;
inline constexpr size_t sequencesOffset = 4096;

// The first word of a slot: 0 where it is free.
struct Head {
   uint16_t keyBytes = 0; // at least 1 in a used slot
   uint32_t valueBytes = 0;
   bool isUsed = false;

   uint64_t word() const { return isUsed ? uint64_t(1) << 63 | uint64_t(valueBytes) << 16 | keyBytes : 0; }
   // Nothing where the word is none that a writer of this shape makes.
   static std::optional<Head> of(uint64_t word, uint32_t maxKey, uint32_t maxValue) {
      Head const head{static_cast<uint16_t>(word), static_cast<uint32_t>(word >> 16), (word >> 63) != 0};
      bool const isGood =
          head.word() == word &&
          (!head.isUsed || (head.keyBytes > 0 && head.keyBytes <= maxKey && head.valueBytes <= maxValue));
      return isGood ? std::optional(head) : std::nullopt;
   }
};

inline size_t wordsFor(size_t bytes) {
   return (bytes + wordBytes - 1) / wordBytes;
}

// Where things are in a file of these sizes, which are within the limits.
struct Places {
   uint32_t keyBytes, valueBytes, capacity;

   uint64_t slotBytes() const { return (1 + wordsFor(keyBytes) + wordsFor(valueBytes)) * wordBytes; }
   uint32_t blocks() const { return (capacity + blockSlots - 1) / blockSlots; }
   uint64_t marksOffset() const { return sequencesOffset + uint64_t(capacity) * wordBytes; }
   uint64_t slotsOffset() const {
      return (marksOffset() + uint64_t(blocks()) * wordBytes + 4095) & ~uint64_t(4095);
   }
   uint64_t fileBytes() const { return slotsOffset() + capacity * slotBytes(); }
};

// Each step can be undone, so a change within one word always shows in the result.
inline uint64_t mix(uint64_t sum, uint64_t word) {
   sum = (sum ^ word) * 0x9e3779b97f4a7c15u;
   return sum ^ (sum >> 29);
}

inline uint64_t headerCheck(Header const& header) {
   uint64_t sum = version;
   for (size_t at = 0; at < offsetof(Header, check); at += wordBytes) {
      uint64_t word;
      std::memcpy(&word, reinterpret_cast<char const*>(&header) + at, wordBytes);
      sum = mix(sum, word);
   }
   return sum;
}

// --- Access to the words. A reader's mapping is read-only: a load writes nothing, although atomic_ref asks
// for a word that is not const.
inline std::atomic_ref<uint64_t> wordAt(char* base, uint64_t offset) {
   return std::atomic_ref<uint64_t>(*reinterpret_cast<uint64_t*>(base + offset));
}
inline std::atomic_ref<uint64_t> wordAt(char const* base, uint64_t offset) {
   return wordAt(const_cast<char*>(base), offset);
}

// `bytes` bytes in whole words, the last one padded with zeros.
inline void storeBytes(char* base, uint64_t offset, char const* from, size_t bytes) {
   for (size_t at = 0; at < bytes; at += wordBytes) {
      uint64_t word = 0;
      std::memcpy(&word, from + at, std::min(wordBytes, bytes - at));
      wordAt(base, offset + at).store(word, std::memory_order_relaxed);
   }
}
inline void loadBytes(char const* base, uint64_t offset, char* to, size_t bytes) {
   for (size_t at = 0; at < bytes; at += wordBytes) {
      uint64_t const word = wordAt(base, offset + at).load(std::memory_order_relaxed);
      std::memcpy(to + at, &word, std::min(wordBytes, bytes - at));
   }
}

} // namespace Layout
} // namespace Plaze
