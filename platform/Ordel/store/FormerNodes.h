// The types of nodes that were erased, by number and by place, so that late operations on them can still be read.
//
// Keeps the ones that were erased last: a writer learns of an erasure soon, so only the operations that are on
// their way need them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Ordel {

class FormerNodes {
  public:
   static constexpr size_t maxCount = 1u << 16;

   // `number` 0: it has none; then it is known by its place only.
   void add(uint32_t number, uint32_t directory, std::string_view name, uint16_t type);
   std::optional<uint16_t> type(uint32_t number) const;
   std::optional<uint16_t> type(uint32_t directory,
                                std::string_view name) const; // of the one erased there last
   size_t count() const { return order_.size(); }

  private:
   struct Former {
      uint32_t number;
      std::string place;
   };
   // The type, and which of the nodes erased at that place it was.
   struct AtPlace {
      uint16_t type;
      uint64_t serial;
   };
   static std::string placeOf(uint32_t directory, std::string_view name);

   std::deque<Former> order_;
   uint64_t firstSerial_ = 0; // of the front of order_
   std::unordered_map<uint32_t, uint16_t> byNumber_;
   std::unordered_map<std::string, AtPlace> byPlace_;
};

} // namespace Ordel
