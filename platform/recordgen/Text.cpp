#include "Text.h"

#include <cctype>
#include <stdexcept>

namespace RecordGen {

namespace {

constexpr size_t lineWidth = 110;

// Behind the last comma that fits, below the text behind the first parenthesis.
void foldList(std::string& out, std::string line) {
   while (line.size() > lineWidth) {
      size_t const open = line.find('(');
      size_t const comma = line.rfind(", ", lineWidth - 1);
      if (open == std::string::npos || comma == std::string::npos || comma <= open)
         break;
      out += line.substr(0, comma + 1) + '\n';
      line = std::string(open + 1, ' ') + line.substr(comma + 2);
      if (line.find('(') == std::string::npos)
         break;
   }
   out += line + '\n';
}

void foldLine(std::string& out, std::string const& line) {
   size_t const body = line.find(" { ");
   size_t const start = line.find_first_not_of(' ');
   if (line.size() <= lineWidth || line.compare(start, 2, "//") == 0) {
      out += line + '\n';
   } else if (body != std::string::npos && line.ends_with(" }")) {
      std::string const indent(start, ' ');
      foldList(out, line.substr(0, body + 2));
      foldList(out, indent + "   " + line.substr(body + 3, line.size() - body - 5));
      out += indent + "}\n";
   } else {
      foldList(out, line);
   }
}

} // namespace

std::string folded(std::string_view text) {
   std::string out;
   while (!text.empty()) {
      size_t const end = text.find('\n');
      foldLine(out, std::string(text.substr(0, end)));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
   }
   return out;
}

std::string fill(std::string_view pattern, Words const& words) {
   std::string result;
   for (size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] != '$') {
         result += pattern[i];
         continue;
      }
      size_t end = i + 1;
      while (end < pattern.size() && std::isalpha(static_cast<unsigned char>(pattern[end])))
         ++end;
      auto const at = words.find(pattern.substr(i + 1, end - i - 1));
      if (at == words.end())
         throw std::logic_error("no word for " + std::string(pattern.substr(i, end - i)) +
                                " in: " + std::string(pattern));
      result += at->second;
      // A mark that only ends the name, as in "$x~Is".
      i = end < pattern.size() && pattern[end] == '~' ? end : end - 1;
   }
   return result;
}

std::string capital(std::string text) {
   if (!text.empty())
      text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
   return text;
}

std::string join(std::vector<std::string> const& parts, std::string_view between) {
   std::string result;
   for (size_t i = 0; i < parts.size(); ++i)
      result += (i ? std::string(between) : "") + parts[i];
   return result;
}

std::string cppString(std::string_view bytes) {
   std::string result = "\"";
   for (char const c : bytes) {
      auto const byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         result += {'\\', c};
      } else if (byte >= 0x20 && byte < 0x7f) {
         result += c;
      } else {
         // Octal has at most three digits, so what follows is never taken for more of them.
         result += {'\\', char('0' + (byte >> 6)), char('0' + (byte >> 3 & 7)), char('0' + (byte & 7))};
      }
   }
   return result + '"';
}

std::string slashed(std::string_view nameSpace) {
   std::string result;
   for (size_t i = 0; i < nameSpace.size(); ++i) {
      bool const isMark = nameSpace.substr(i).starts_with("::");
      result += isMark ? '/' : nameSpace[i];
      i += isMark;
   }
   return result;
}

std::vector<std::string> wrapped(std::string_view text, size_t width) {
   std::vector<std::string> lines;
   std::string line;
   while (!text.empty()) {
      size_t const end = std::min(text.find(' '), text.size());
      std::string_view const word = text.substr(0, end);
      text.remove_prefix(std::min(end + 1, text.size()));
      if (!line.empty() && line.size() + 1 + word.size() > width) {
         lines.push_back(std::move(line));
         line.clear();
      }
      line += (line.empty() ? "" : " ") + std::string(word);
   }
   if (!line.empty())
      lines.push_back(std::move(line));
   return lines;
}

Text& Text::put(std::string_view pattern, Words const& words) {
   return put(fill(pattern, words));
}

Text& Text::put(std::string_view text) {
   text_ += text;
   if (!text_.ends_with('\n'))
      text_ += '\n';
   return *this;
}

Text& Text::comment(std::string_view text, int indent) {
   std::string const start = std::string(static_cast<size_t>(indent), ' ') + "// ";
   for (auto const& line : wrapped(text, lineWidth - start.size()))
      text_ += start + line + '\n';
   return *this;
}

Text& Text::gap() {
   if (!text_.empty() && !text_.ends_with("\n\n") && !text_.ends_with("{\n") && !text_.ends_with(":\n"))
      text_ += '\n';
   return *this;
}

} // namespace RecordGen
