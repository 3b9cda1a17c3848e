#include "records/Codec.h"

#include <charconv>

namespace Records {

std::string doubleText(double value) {
   char bytes[32]; // the shortest form that reads back as the same number has at most 24 characters
   auto const end = std::to_chars(bytes, bytes + sizeof bytes, value).ptr;
   return std::string(bytes, end);
}

} // namespace Records
