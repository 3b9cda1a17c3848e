// JSON as the commands print it: members in the order in which they are added, strings made valid UTF-8.
#pragma once

#include "Kem/Printable.h"
#include "Kem/String.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace Vornctl {

using Json = nlohmann::ordered_json;

inline std::string jsonText(Json const& json) {
   return Kem::printableJson(json.dump(2, ' ', false, Json::error_handler_t::replace)) + '\n';
}

// Key and value of each member of a collection of records, in the order of the keys.
template <class Map>
auto sortedMembers(Map const& map) {
   using Key = std::remove_cvref_t<decltype((*map.begin()).key)>;
   using Value = std::remove_cvref_t<decltype((*map.begin()).value)>;
   std::vector<std::pair<Key, Value>> members;
   members.reserve(map.size());
   for (auto const& [key, value] : map)
      members.emplace_back(key, value);
   std::sort(members.begin(), members.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
   return members;
}

// The keys of a collection of strings or names, in natural order.
template <class Map>
std::vector<std::string> sortedTexts(Map const& map) {
   std::vector<std::string> texts;
   for (auto const& [key, value] : map)
      texts.emplace_back(std::string_view(key));
   std::sort(texts.begin(), texts.end(),
             [](std::string const& a, std::string const& b) { return Kem::compareNatural(a, b) < 0; });
   return texts;
}

} // namespace Vornctl
