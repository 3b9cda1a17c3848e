// The name of an interface as a value of four bytes: "Ethernet3/1", "Port-Channel5.7", "Vlan100", "Cpu".
//
// A name of a known form is regular: kind and numbers are packed into the representation, the same in every
// process, without a table. Every other name is irregular: its text is kept once in a table of the process
// and the representation is its index with the top bit set. A name is regular only if the packed form gives
// back exactly the same text; leading zeros and numbers too large for their field make it irregular. So equal
// names have equal representations, and comparing two ids for equality compares two integers. An IntfId
// doesn't know whether an interface of that name exists.
//
// Cost: irregular names are never freed (about 150 bytes for each distinct one), nor are the texts of regular
// ids for which stringValue() was called (about 100 bytes each). There are as many as the switch has had
// interface names. The tables belong to the one thread that runs the logic; there is no lock.
//
// Representation of regular ids: bit 31 is 0, bits 30..27 are the code of the form, the numbers are below
// it, the first one highest, so that within a form integers order as the names do.
//
//    code  form              widths of the numbers in bits
//     0    empty             the representation is 0
//     1    Ethernet A        27
//     2    Ethernet A/B      13 14
//     3    Ethernet A/B/C    9 9 9
//     4    Ethernet A.S      13 14
//     5    Ethernet A/B.S    8 7 12
//     6    Ethernet A/B/C.S  5 6 4 12
//     7    Port-Channel A    27
//     8    Port-Channel A.S  13 14
//     9    Vlan A            27
//    10    Management A      27
//    11    Management A/B    13 14
//    12    Loopback A        27
//    13    Internal A        27
//    14    Vxlan A           27
//    15    Cpu               the bits below the code are 0
//
// The codes are part of the wire form and of snapshots: they never change their meaning.
#pragma once

#include "Kem/String.h"
#include "Kem/Wire.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Sulvi {

// What an interface is, judged by its name alone. A known word must be followed by numbers without
// leading zeros: one, or, for Ethernet, Management and Internal, any count of them joined by "/". So
// "Ethernet1/2/3/4" is an ethernet although it has no packed form, and "Vlan007" and "Ethernet1/"
// are other. A name that ends in "." and a number is a subinterface, and only that:
// "Ethernet3/1.100" is ethernetSub and not ethernet.
enum class IntfKind : uint8_t {
   none, // the empty id
   other,
   ethernet,
   portChannel,
   vlan,
   management,
   loopback,
   internal,
   vxlan,
   cpu,
   ethernetSub,
   portChannelSub,
   otherSub, // of a parent of any other kind
};

class IntfId {
  public:
   // Longest name. It has room for "Port-Channel" and what fits behind "po" in a
   // kernel device name of 79 characters.
   static constexpr size_t maxBytes = 96;

   // The empty id.
   constexpr IntfId() noexcept = default;

   // Any text is a name; the empty text is the empty id. A text longer than maxBytes or with a
   // NUL in it raises Kem::RangeException, with the texts "IntfId::bytes > 96 not allowed" and
   // "IntfId with a NUL byte not allowed".
   IntfId(std::string_view name);
   IntfId(char const* name) : IntfId(std::string_view(name)) {}
   IntfId(std::string const& name) : IntfId(std::string_view(name)) {}
   IntfId(Kem::String8 const& name) : IntfId(name.view()) {}

   // From a representation known to be good: one that rep() gave in this process.
   static constexpr IntfId fromRep(uint32_t rep) noexcept {
      IntfId id;
      id.rep_ = rep;
      return id;
   }
   constexpr uint32_t rep() const noexcept { return rep_; }

   // True when a regular id, or the empty one, has this representation.
   static bool isRegularRep(uint32_t rep) noexcept;
   // Whether intfToU32 has a number for this id: it is regular or empty.
   constexpr bool isRegular() const noexcept { return !(rep_ & irregularBit); }
   constexpr bool empty() const noexcept { return rep_ == 0; }

   // Parses the name and becomes that id; raises what the constructor raises, and is then unchanged.
   void handleInitialized(std::string_view name) { *this = IntfId(name); }

   // The name. The reference holds to the end of the process; no allocation but at the first call for an id.
   Kem::String8 const& stringValue() const;
   // The name with "Ethernet" and "Port-Channel" before a digit cut to "Et" and
   // "Po"; other names as they are.
   Kem::String8 shortName() const;

   IntfKind kind() const noexcept;
   // The first and the last number of a name whose kind has numbers: 3 and 100 in
   // "Ethernet3/1.100". For otherSub both are the number behind the ".". Numbers that don't fit
   // read as 0xffffffff; 0 where there is none.
   uint32_t firstNumber() const noexcept;
   uint32_t lastNumber() const noexcept;

   // Different ids have different hashes, and the low bits are as good as the high ones: the ports of a row
   // differ in a high field ("Ethernet1/1", "Ethernet2/1"), so the representation itself would not do. The
   // hash of an irregular id follows from its index and differs between processes.
   constexpr uint32_t hash() const noexcept {
      uint32_t const h = rep_ * 0x846ca68bu;
      return h ^ h >> 16;
   }

   friend constexpr bool operator==(IntfId a, IntfId b) noexcept { return a.rep_ == b.rep_; }
   // The order of Kem::compareNatural on the names: "Ethernet2" before "Ethernet10", the empty id before all.
   friend std::strong_ordering operator<=>(IntfId a, IntfId b) noexcept {
      // One integer comparison when both are regular and of one form.
      return (a.rep_ ^ b.rep_) >> formShift == 0 && !(a.rep_ & irregularBit) ? a.rep_ <=> b.rep_
                                                                             : compareNames(a, b);
   }

   // Regular and empty ids: four bytes, the representation. Irregular ids:
   // 0xffffffff and the name as a string.
   void encode(Wire::Writer& writer) const;
   // Fails the reader and returns the empty id for a number that no id has, and for a string that is empty,
   // too long, has a NUL in it, or should have been sent as a number. Throws nothing but for want of memory.
   static IntfId decode(Wire::Reader& reader);

  private:
   static constexpr uint32_t irregularBit = 0x80000000u;
   static constexpr int formShift = 27; // the code of the form is above the numbers

   static std::strong_ordering compareNames(IntfId a, IntfId b) noexcept;

   uint32_t rep_ = 0;
};

static_assert(sizeof(IntfId) == 4 && std::is_trivially_copyable_v<IntfId>);

// The number of a regular id, which is its representation; 0 for the empty id. The same in every process, so
// it can be used in published records. Any other id raises Kem::RangeException, "IntfId Foo7 has no number".
uint32_t intfToU32(IntfId id);
// The reverse. A number that no id has raises Kem::RangeException, "number 134217727 is no IntfId". To ask
// before: IntfId::isRegularRep.
IntfId u32ToIntfId(uint32_t number);

std::ostream& operator<<(std::ostream& out, IntfId id);

} // namespace Sulvi

template <>
struct std::hash<Sulvi::IntfId> {
   size_t operator()(Sulvi::IntfId id) const noexcept { return id.hash(); }
};
