#include "Table.h"

#include "Kem/Assert.h"
#include "Kem/Printable.h"

#include <algorithm>

namespace Vornctl {

namespace {

constexpr size_t minListWidth = 20;
constexpr std::string_view gap = "  ";

bool isContinuation(char c) {
   return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

void appendCell(std::string& line, std::string const& cell, size_t width, Table::Align align) {
   size_t const count = characters(cell);
   std::string const padding(width > count ? width - count : 0, ' ');
   line += align == Table::Align::left ? cell + padding : padding + cell;
   line += gap;
}

void endLine(std::string& text, std::string line) {
   line.erase(line.find_last_not_of(' ') + 1);
   text += line + '\n';
}

} // namespace

size_t characters(std::string_view text) {
   return static_cast<size_t>(
       std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(c); }));
}

std::string shortened(std::string_view text, size_t width) {
   constexpr std::string_view rest = "...";
   if (characters(text) <= width)
      return std::string(text);
   size_t end = 0;
   for (size_t count = 0; end < text.size(); ++end)
      if (!isContinuation(text[end]) && ++count > width - rest.size())
         break;
   return std::string(text.substr(0, end)) + std::string(rest);
}

std::vector<std::string> folded(std::vector<std::string> const& items, size_t width) {
   std::vector<std::string> lines;
   for (size_t i = 0; i < items.size(); ++i) {
      std::string const item = items[i] + (i + 1 < items.size() ? "," : "");
      if (lines.empty() || characters(lines.back()) + 1 + characters(item) > width)
         lines.push_back(item);
      else
         lines.back() += ' ' + item;
   }
   return lines;
}

std::string paragraph(std::string_view text, size_t indent, size_t width) {
   std::string out, line;
   auto const end = [&] {
      if (!line.empty())
         out += std::string(indent, ' ') + line + '\n';
      line.clear();
   };
   for (size_t at = 0; at < text.size();) {
      size_t const next = std::min(text.find(' ', at), text.size());
      std::string_view const word = text.substr(at, next - at);
      at = next + 1;
      if (word.empty())
         continue;
      if (!line.empty() && indent + characters(line) + 1 + characters(word) > width)
         end();
      line += (line.empty() ? "" : " ") + std::string(word);
   }
   end();
   return out;
}

void Table::add(std::vector<std::string> cells, std::vector<std::string> list) {
   KEM_ASSERT(cells.size() + 1 == columns_.size());
   for (auto* const part : {&cells, &list})
      for (std::string& cell : *part)
         cell = Kem::printable(cell);
   rows_.push_back({std::move(cells), std::move(list)});
}

std::string Table::text(size_t width) const {
   size_t const last = columns_.size() - 1;
   std::vector<size_t> widths;
   size_t indent = 0; // of the list
   for (size_t column = 0; column < last; ++column) {
      size_t widest = characters(columns_[column].title);
      for (Row const& row : rows_)
         widest = std::max(widest, characters(row.cells[column]));
      widths.push_back(widest);
      indent += widest + gap.size();
   }
   size_t const listWidth = std::max(minListWidth, width > indent ? width - indent : 0);
   size_t widestLine = characters(columns_[last].title);
   std::vector<std::vector<std::string>> lists;
   for (Row const& row : rows_) {
      lists.push_back(folded(row.list, listWidth));
      for (std::string const& line : lists.back())
         widestLine = std::max(widestLine, characters(line));
   }

   std::string text, titles, rule;
   for (size_t column = 0; column < last; ++column) {
      appendCell(titles, columns_[column].title, widths[column], columns_[column].align);
      rule += std::string(widths[column], '-') + std::string(gap);
   }
   endLine(text, titles + columns_[last].title);
   endLine(text, rule + std::string(widestLine, '-'));
   for (size_t i = 0; i < rows_.size(); ++i) {
      std::string line;
      for (size_t column = 0; column < last; ++column)
         appendCell(line, rows_[i].cells[column], widths[column], columns_[column].align);
      endLine(text, line + (lists[i].empty() ? "" : lists[i][0]));
      for (size_t j = 1; j < lists[i].size(); ++j)
         endLine(text, std::string(indent, ' ') + lists[i][j]);
   }
   return text;
}

} // namespace Vornctl
