// A set of VLAN numbers, and the reading of VLAN lists in text form.
//
// A value: 512 bytes, copied whole, no allocation. Numbers 0 to 4095 are kept; which of
// them are VLANs is for the caller.
#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>

namespace VornUtils {

class VlanIdSet {
  public:
   static constexpr uint16_t capacity = 4096;

   // Whether the number is in the set; false for a number beyond 4095.
   bool vlan(uint32_t number) const { return number < capacity && members_[number]; }
   // A number beyond 4095 is left out.
   void vlanIs(uint32_t number) {
      if (number < capacity)
         members_.set(number);
   }
   void doRemove(uint32_t number) {
      if (number < capacity)
         members_.reset(number);
   }
   void doClear() { members_.reset(); }
   // All members of another set at once, 64 numbers at a time.
   VlanIdSet& operator|=(VlanIdSet const& other) {
      members_ |= other.members_;
      return *this;
   }
   VlanIdSet& operator-=(VlanIdSet const& other) {
      members_ &= ~other.members_;
      return *this;
   }
   // The numbers that are in one of both only.
   VlanIdSet& operator^=(VlanIdSet const& other) {
      members_ ^= other.members_;
      return *this;
   }

   size_t size() const { return members_.count(); }
   bool empty() const { return members_.none(); }
   bool operator==(VlanIdSet const&) const = default;

   // Calls visit(number) for each member, the smallest first.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (size_t number = members_._Find_first(); number < capacity; number = members_._Find_next(number))
         visit(static_cast<uint16_t>(number));
   }
   // The shortest list that gives the set: "1,5-9,100".
   std::string text() const;

  private:
   std::bitset<capacity> members_;
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
