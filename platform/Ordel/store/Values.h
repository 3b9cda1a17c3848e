// How one type of value is read from the wire, checked, and kept in memory: a
// descriptor compiled to a few compares.
//
// A value is kept in one of three forms: plain, its wire bytes as they are, for types of fixed
// size; an interface id as its four byte representation; everything else as a handle of eight
// bytes to a text that holds its wire bytes. Handle 0 stands for a default that the place of the
// value names. Private to the store.
#pragma once

#include "Kem/Wire.h"
#include "Sulvi/IntfId.h"
#include "records/Schema.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace Ordel {

// An unshared text on the heap, held by the integer that its address is; 0 is none.
using Text = uint64_t;
Text makeText(std::string_view bytes);
inline void freeText(Text text) {
   std::free(reinterpret_cast<void*>(text));
}
std::string_view textView(Text text); // not of 0
uint32_t textHash(Text text);         // seededHash(textView(text))

// Copies and compares of the sizes that values mostly have, each a move or two instead of a call.
inline void copyBytes(void* to, void const* from, size_t size) {
   switch (size) {
   case 1:
      std::memcpy(to, from, 1);
      return;
   case 2:
      std::memcpy(to, from, 2);
      return;
   case 3:
      std::memcpy(to, from, 3);
      return;
   case 4:
      std::memcpy(to, from, 4);
      return;
   case 6:
      std::memcpy(to, from, 6);
      return;
   case 8:
      std::memcpy(to, from, 8);
      return;
   default:
      std::memcpy(to, from, size);
   }
}
template <class Number>
Number loadNumber(void const* from) {
   Number number;
   std::memcpy(&number, from, sizeof number);
   return number;
}
// At most eight bytes, with zeros above. Each size by loads of its own: a copy into a wider number and a load
// of that would wait for the copy. In line, also where a compiler would rather call it: it is a few moves, a
// million times.
[[gnu::always_inline]] inline uint64_t loadBytes(void const* from, size_t size) {
   switch (size) {
   case 1:
      return loadNumber<uint8_t>(from);
   case 2:
      return loadNumber<uint16_t>(from);
   case 3:
      return loadNumber<uint16_t>(from) | uint64_t{loadNumber<uint8_t>(static_cast<char const*>(from) + 2)}
                                              << 16;
   case 4:
      return loadNumber<uint32_t>(from);
   case 6:
      return loadNumber<uint32_t>(from) | uint64_t{loadNumber<uint16_t>(static_cast<char const*>(from) + 4)}
                                              << 32;
   case 8:
      return loadNumber<uint64_t>(from);
   default: {
      uint64_t bits = 0;
      std::memcpy(&bits, from, size);
      return bits;
   }
   }
}
[[gnu::always_inline]] inline bool areEqualBytes(void const* a, void const* b, size_t size) {
   return size <= 8 ? loadBytes(a, size) == loadBytes(b, size) : std::memcmp(a, b, size) == 0;
}

// A value just read: `bytes` point into what was read, or at `rep`.
struct Packed {
   char const* bytes = nullptr;
   size_t size = 0; // kept bytes of a plain value or id, wire bytes of a text
   uint32_t rep = 0;

   Packed() = default;
   Packed(Packed const&) = delete;
   Packed& operator=(Packed const&) = delete;
   std::string_view view() const { return {bytes, size}; }
};

// Why a value was not taken.
struct Problem {
   std::string field; // ".field" of a record, or nothing
   std::string reason;
   bool isMalformed = true; // the bytes are no value of the type at all
};

class Codec {
  public:
   enum class Storage : uint8_t { plain, intf, text };
   enum class Use : uint8_t {
      key, // at most eight bytes are kept
      value,
      selector, // the text of a selector, or nothing
   };

   Codec(Records::ValueType const& type, Use use);

   Records::ValueType const& type() const { return type_; }
   Storage storage() const { return storage_; }
   bool isText() const { return storage_ == Storage::text; }
   uint8_t size() const { return size_; } // bytes kept

   // False leaves the reason to `explain`, which is given the bytes from the value's first on.
   bool read(Wire::Reader& in, Packed& out) const {
      if (storage_ != Storage::plain) {
         if (storage_ == Storage::intf && readRegular(in, out)) [[likely]]
            return true;
         return readVarying(in, out);
      }
      std::string_view const raw = in.raw(size_);
      if (raw.size() != size_)
         return false;
      out.bytes = raw.data();
      out.size = size_;
      for (Check const& check : checks_)
         if (!check.holds(raw.data()))
            return false;
      return true;
   }
   Problem explain(std::string_view bytes) const;

   // The wire form of what is kept; `zero` is what handle 0 stands for. A view
   // holds as long as both arguments do.
   std::string_view view(char const* kept, std::string_view zero, std::string& scratch) const;

  private:
   // A condition on a number, a boolean or a double inside a plain value.
   struct Check {
      enum class Condition : uint8_t {
         isInRange,
         isNumber,       // a double that is no NaN
         isNonzeroWhile, // the number at `whileOffset` is `min`
      };
      uint8_t offset;
      uint8_t size;
      Condition condition;
      uint64_t min, max;
      uint8_t whileOffset = 0;
      uint8_t whileSize = 0;
      bool holds(char const* bytes) const;
   };
   void addChecks(Records::ValueType const& type, size_t offset);
   bool readVarying(Wire::Reader& in, Packed& out) const;
   // The id of an interface that is sent as a number, as nearly all are. False: nothing was read.
   static bool readRegular(Wire::Reader& in, Packed& out) {
      if (in.remaining() < sizeof out.rep)
         return false;
      out.rep = loadNumber<uint32_t>(in.position());
      if (!Sulvi::IntfId::isRegularRep(out.rep))
         return false;
      out.bytes = in.raw(sizeof out.rep).data(); // the representation is the wire form
      out.size = sizeof out.rep;
      return true;
   }

   Records::ValueType const& type_;
   Storage storage_;
   uint8_t size_;
   Use use_;
   std::vector<Check> checks_;
};

inline bool Codec::Check::holds(char const* bytes) const {
   uint64_t const number = loadBytes(bytes + offset, size);
   if (condition == Condition::isInRange) [[likely]]
      return number >= min && number <= max;
   if (condition == Condition::isNumber)
      return (number & 0x7fffffffffffffffu) <= 0x7ff0000000000000u; // above it stand the NaNs
   return number != 0 || loadBytes(bytes + whileOffset, whileSize) != min;
}

} // namespace Ordel
