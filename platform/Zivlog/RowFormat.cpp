#include "Zivlog/RowFormat.h"

namespace Zivlog {

namespace {

// Calls `literal` for each stretch of plain text and `field` for each "%s", in order.
template <class Literal, class Field>
void walkFormat(std::string_view format, Literal literal, Field field) {
   while (!format.empty()) {
      size_t const percent = format.find('%');
      literal(format.substr(0, percent));
      if (percent == std::string_view::npos)
         return;
      format.remove_prefix(percent);
      if (format.starts_with("%s")) {
         field();
         format.remove_prefix(2);
      } else {
         literal(format.substr(0, 1));
         format.remove_prefix(format.starts_with("%%") ? 2 : 1);
      }
   }
}

} // namespace

unsigned fieldsOfFormat(std::string_view format) {
   unsigned count = 0;
   walkFormat(
       format, [](std::string_view) {}, [&] { ++count; });
   return count;
}

std::string fillFormat(std::string_view format, std::span<std::string_view const> fields) {
   std::string filled;
   size_t next = 0;
   walkFormat(
       format, [&](std::string_view text) { filled += text; },
       [&] {
          if (next < fields.size())
             filled += fields[next];
          ++next;
       });
   for (; next < fields.size(); ++next) {
      filled += ' ';
      filled += fields[next];
   }
   return filled;
}

} // namespace Zivlog
