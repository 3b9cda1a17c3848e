#include "VornUtils/VlanIdSet.h"

namespace VornUtils {

namespace {

constexpr uint32_t smallestVlan = 1, greatestVlan = 4094; // IEEE 802.1Q; 0 and 4095 are reserved

std::string_view trimmed(std::string_view text) {
   constexpr char blanks[] = " \t";
   size_t const first = text.find_first_not_of(blanks);
   if (first == std::string_view::npos)
      return {};
   return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The VLAN number that the text is, or 0.
uint32_t vlanNumber(std::string_view text) {
   text = trimmed(text);
   uint32_t number = 0;
   for (char c : text) {
      if (c < '0' || c > '9')
         return 0;
      number = number * 10 + static_cast<uint32_t>(c - '0');
      if (number > greatestVlan)
         return 0;
   }
   return number;
}

bool addItem(VlanIdSet& set, std::string_view item) {
   size_t const hyphen = item.find('-');
   uint32_t const first = vlanNumber(item.substr(0, hyphen));
   uint32_t const last = hyphen == std::string_view::npos ? first : vlanNumber(item.substr(hyphen + 1));
   if (first < smallestVlan || last < first)
      return false;
   for (uint32_t number = first; number <= last; ++number)
      set.vlanIs(number);
   return true;
}

} // namespace

std::string VlanIdSet::text() const {
   std::string list;
   for (size_t first = next(0); first < capacity;) {
      size_t last = first;
      while (last + 1 < capacity && vlan(static_cast<uint32_t>(last + 1)))
         ++last;
      list += (list.empty() ? "" : ",") + std::to_string(first);
      if (last > first)
         list += '-' + std::to_string(last);
      first = next(last + 1);
   }
   return list;
}

namespace {
// Items that were left out, as many of them and as much of each as fit a line for people: a list may be
// megabytes of garbage.
class RefusedItems {
  public:
   void add(std::string_view item) {
      if (text_.size() >= maxShown) {
         ++untold_;
         return;
      }
      text_.append(text_.empty() ? "" : ",").append(item.substr(0, maxShownOfItem));
      if (item.size() > maxShownOfItem)
         text_ += "...";
   }
   std::string text() const {
      return untold_ == 0 ? text_ : text_ + " and " + std::to_string(untold_) + " more";
   }

  private:
   static constexpr size_t maxShown = 200, maxShownOfItem = 40; // bytes
   std::string text_;
   size_t untold_ = 0;
};
} // namespace

std::string computeVlanSet(VlanIdSet& set, std::string_view text) {
   RefusedItems refused;
   while (!text.empty()) {
      size_t const comma = text.find(',');
      std::string_view const item = trimmed(text.substr(0, comma));
      if (!item.empty() && !addItem(set, item))
         refused.add(item);
      text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
   }
   return refused.text();
}

} // namespace VornUtils
