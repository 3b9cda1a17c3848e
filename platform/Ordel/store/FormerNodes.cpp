#include "Ordel/store/FormerNodes.h"

namespace Ordel {

std::string FormerNodes::placeOf(uint32_t directory, std::string_view name) {
   std::string place(reinterpret_cast<char const*>(&directory), sizeof directory);
   return place.append(name);
}

void FormerNodes::add(uint32_t number, uint32_t directory, std::string_view name, uint16_t type) {
   if (order_.size() == maxCount) {
      Former const& oldest = order_.front();
      byNumber_.erase(oldest.number);
      if (auto const at = byPlace_.find(oldest.place);
          at != byPlace_.end() && at->second.serial == firstSerial_)
         byPlace_.erase(at);
      order_.pop_front();
      ++firstSerial_;
   }
   std::string place = placeOf(directory, name);
   if (number != 0)
      byNumber_[number] = type;
   byPlace_[place] = {type, firstSerial_ + order_.size()};
   order_.push_back({number, std::move(place)});
}

std::optional<uint16_t> FormerNodes::type(uint32_t number) const {
   auto const found = byNumber_.find(number);
   return found == byNumber_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<uint16_t> FormerNodes::type(uint32_t directory, std::string_view name) const {
   auto const found = byPlace_.find(placeOf(directory, name));
   return found == byPlace_.end() ? std::nullopt : std::optional(found->second.type);
}

} // namespace Ordel
