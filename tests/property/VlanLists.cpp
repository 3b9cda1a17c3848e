// The text forms of lists of VLANs and of tags.

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

std::string tagsText(Tags const& tags) {
   return std::to_string(tags.first) + "/" + std::to_string(tags.second);
}

Tags tagsOf(std::string const& text) {
   size_t const slash = text.find('/');
   return {std::stoul(text.substr(0, slash)), std::stoul(text.substr(slash + 1))};
}

} // namespace Model
