// A set of VLAN numbers, and the reading of VLAN lists in text form.
//
// A value: 512 bytes, copied whole, no allocation. Numbers 0 to 4095 are kept; which of
// them are VLANs is for the caller.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

namespace VornUtils {

class VlanIdSet {
  public:
   static constexpr uint16_t capacity = 4096;

   // Whether the number is in the set; false for a number beyond 4095.
   bool vlan(uint32_t number) const { return number < capacity && (words_[number / 64] & bit(number)); }
   // A number beyond 4095 is left out.
   void vlanIs(uint32_t number) {
      if (number < capacity)
         words_[number / 64] |= bit(number);
   }
   void doRemove(uint32_t number) {
      if (number < capacity)
         words_[number / 64] &= ~bit(number);
   }
   void doClear() { words_ = {}; }
   // All members of another set at once, 64 numbers at a time.
   VlanIdSet& operator|=(VlanIdSet const& other) {
      for (size_t i = 0; i < words_.size(); ++i)
         words_[i] |= other.words_[i];
      return *this;
   }
   VlanIdSet& operator-=(VlanIdSet const& other) {
      for (size_t i = 0; i < words_.size(); ++i)
         words_[i] &= ~other.words_[i];
      return *this;
   }
   // The numbers that are in one of both only.
   VlanIdSet& operator^=(VlanIdSet const& other) {
      for (size_t i = 0; i < words_.size(); ++i)
         words_[i] ^= other.words_[i];
      return *this;
   }
   // Makes it `base` without `removed`, and then with `added`, in one pass; a number may be in all three. Returns
   // whether that changed it.
   bool compose(VlanIdSet const& base, VlanIdSet const& removed, VlanIdSet const& added) {
      uint64_t difference = 0;
      for (size_t i = 0; i < words_.size(); ++i) {
         uint64_t const word = (base.words_[i] & ~removed.words_[i]) | added.words_[i];
         difference |= words_[i] ^ word;
         words_[i] = word;
      }
      return difference != 0;
   }

   size_t size() const {
      size_t count = 0;
      for (uint64_t const word : words_)
         count += static_cast<size_t>(std::popcount(word));
      return count;
   }
   bool empty() const {
      uint64_t all = 0;
      for (uint64_t const word : words_)
         all |= word;
      return all == 0;
   }
   bool operator==(VlanIdSet const&) const = default;

   // Calls visit(number) for each member, the smallest first.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (size_t number = next(0); number < capacity; number = next(number + 1))
         visit(static_cast<uint16_t>(number));
   }
   // The shortest list that gives the set: "1,5-9,100".
   std::string text() const;

  private:
   static uint64_t bit(uint32_t number) { return uint64_t(1) << number % 64; }
   // The smallest member from that number on; `capacity` when there is none.
   size_t next(size_t number) const {
      if (number >= capacity)
         return capacity;
      size_t i = number / 64;
      uint64_t word = words_[i] >> number % 64 << number % 64;
      while (word == 0 && ++i < words_.size())
         word = words_[i];
      return word == 0 ? capacity : i * 64 + static_cast<size_t>(std::countr_zero(word));
   }

   std::array<uint64_t, capacity / 64> words_{};
};

// Adds the VLANs of a list such as "1, 5-9,100" to the set and keeps what is there.
//
// A list is items with commas between; an item is a number from 1 to 4094, or two with a hyphen
// between, which stand for both and all between them. Blanks may surround numbers, items may
// overlap and come in any order, and an empty item says nothing. An item that is none of these
// (garbage, a number out of range, a reversed range) is left out, and the others count: a publisher's
// slip must not take away the VLANs that it spelled right.
//
// Returns the items left out, separated by commas; empty when all were taken. Of many or long ones it is the
// beginning, 250 bytes or less, and how many more there are.
std::string computeVlanSet(VlanIdSet& set, std::string_view text);

} // namespace VornUtils
