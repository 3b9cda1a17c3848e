// The text form of lists of VLANs.

#include "Intent.h"

namespace Model {

namespace {
unsigned listedNumber(std::string const& text) {
   if (text.empty() || text.find_first_not_of("0123456789") != text.npos || text.size() > 9)
      return 0;
   return static_cast<unsigned>(std::stoul(text));
}
} // namespace

VlanSet const& vlansOf(std::string const& list) {
   static std::map<std::string, VlanSet> known; // worked out once for each
   auto const [entry, isNew] = known.try_emplace(list);
   auto& vlans = entry->second;
   if (!isNew)
      return vlans;
   for (size_t begin = 0; begin <= list.size();) {
      size_t const end = std::min(list.find(',', begin), list.size());
      std::string item = list.substr(begin, end - begin);
      begin = end + 1;
      std::erase(item, ' ');
      size_t const hyphen = item.find('-');
      unsigned const first = listedNumber(item.substr(0, hyphen));
      unsigned const last = hyphen == item.npos ? first : listedNumber(item.substr(hyphen + 1));
      if (first < 1 || last > 4094)
         continue;
      for (unsigned vlan = first; vlan <= last; ++vlan)
         vlans.set(vlan);
   }
   return vlans;
}

} // namespace Model
