// Tables of text: columns as wide as their widest cell, and a last column that is a list, folded over as many
// lines as it needs.
//
//    VLAN  Name     Status  Ports
//    ----  -------  ------  ----------------
//    10    servers  active  Et1, Et2, Et3,
//                           Po5
//
// Cells hold what publishers wrote: what isn't printable comes out escaped (Kem/Printable.h).
// Widths count characters of UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vornctl {

class Table {
  public:
   enum class Align : uint8_t { left, right };
   struct Column {
      std::string title;
      Align align = Align::left;
   };

   // The last column is the list.
   explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

   // As many cells as columns before the list, which may be empty.
   void add(std::vector<std::string> cells, std::vector<std::string> list);
   bool empty() const { return rows_.empty(); }

   // With the titles. `width` is the number of characters of a line; the list has 20 of them at least.
   std::string text(size_t width) const;

  private:
   struct Row {
      std::vector<std::string> cells;
      std::vector<std::string> list;
   };
   std::vector<Column> columns_;
   std::vector<Row> rows_;
};

// The items with ", " between them on lines of at most `width` characters, where an item isn't longer.
std::vector<std::string> folded(std::vector<std::string> const& items, size_t width);
// The words of a text on such lines, each behind `indent` blanks and with its line's end.
std::string paragraph(std::string_view text, size_t indent, size_t width);

// Characters, of UTF-8.
size_t characters(std::string_view text);
// At most so many characters, with "..." for the rest.
std::string shortened(std::string_view text, size_t width);

} // namespace Vornctl
