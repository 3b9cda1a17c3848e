#include "treejson/JsonReader.h"
#include "Kem/Printable.h"
#include "treejson/Error.h"
#include "treejson/JsonText.h"

#include <algorithm>

namespace TreeJson {

namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

} // namespace

JsonReader::JsonReader(std::string_view text) : text_(text) {
   if (text_.starts_with("\xef\xbb\xbf"))
      at_ = 3;
}

void JsonReader::fail(size_t at, std::string const& reason) const {
   throw SyntaxError(placeOf(at) + ": " + reason);
}

std::string JsonReader::placeOf(size_t at) const {
   std::string_view const before = text_.substr(0, at);
   auto const line = std::count(before.begin(), before.end(), '\n') + 1;
   size_t const lineBegin = before.rfind('\n') + 1; // npos + 1 is 0
   auto const column = std::count_if(before.begin() + static_cast<std::ptrdiff_t>(lineBegin), before.end(),
                                     [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }) +
                       1;
   return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

std::string JsonReader::place() {
   skipSpace();
   return placeOf(at_);
}

void JsonReader::skipSpace() {
   while (at_ < text_.size() &&
          (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\t' || text_[at_] == '\r'))
      ++at_;
}

bool JsonReader::isAtEnd() {
   skipSpace();
   return at_ == text_.size();
}

JsonKind JsonReader::kind() {
   skipSpace();
   if (at_ == text_.size())
      fail("the text ends where a value is expected");
   switch (peek()) {
   case '{':
      return JsonKind::object;
   case '[':
      return JsonKind::array;
   case '"':
      return JsonKind::string;
   case 't':
   case 'f':
      return JsonKind::boolean;
   case 'n':
      return JsonKind::null;
   default:
      if (peek() == '-' || isDigit(peek()))
         return JsonKind::number;
      fail("expected a value");
   }
}

void JsonReader::begin(char bracket) {
   skipSpace();
   if (peek() != bracket)
      fail(std::string("expected '") + bracket + "'");
   if (isFirst_.size() == maxDepth)
      fail("nested deeper than " + std::to_string(maxDepth) + " levels");
   ++at_;
   isFirst_.push_back(true);
}

// Whether one more element follows before the closing bracket; the bracket is consumed.
bool JsonReader::nextOf(char closing) {
   skipSpace();
   bool const isFirst = isFirst_.back();
   isFirst_.back() = false;
   if (at_ < text_.size() && peek() == closing) {
      ++at_;
      isFirst_.pop_back();
      return false;
   }
   if (isFirst)
      return true;
   if (peek() != ',')
      fail(std::string("expected ',' or '") + closing + "'");
   ++at_;
   skipSpace();
   return true;
}

void JsonReader::beginObject() {
   begin('{');
}

bool JsonReader::nextKey(std::string& key) {
   if (!nextOf('}'))
      return false;
   if (peek() != '"')
      fail("expected a name in double quotes");
   key.clear();
   readString(&key);
   skipSpace();
   if (peek() != ':')
      fail("expected ':'");
   ++at_;
   return true;
}

void JsonReader::beginArray() {
   begin('[');
}

bool JsonReader::nextElement() {
   return nextOf(']');
}

std::string JsonReader::string() {
   skipSpace();
   if (peek() != '"')
      fail("expected a string");
   std::string bytes;
   readString(&bytes);
   return bytes;
}

std::string_view JsonReader::number() {
   skipSpace();
   size_t const begin = at_;
   auto const digits = [&] {
      if (!isDigit(peek()))
         fail("expected a digit");
      while (isDigit(peek()))
         ++at_;
   };
   if (peek() == '-')
      ++at_;
   if (peek() == '0') {
      ++at_;
      if (isDigit(peek()))
         fail("a number can't begin with 0");
   } else {
      digits();
   }
   if (peek() == '.') {
      ++at_;
      digits();
   }
   if (peek() == 'e' || peek() == 'E') {
      ++at_;
      if (peek() == '+' || peek() == '-')
         ++at_;
      digits();
   }
   return text_.substr(begin, at_ - begin);
}

void JsonReader::word(std::string_view word) {
   skipSpace();
   if (text_.substr(at_, word.size()) != word)
      fail("expected a value");
   at_ += word.size();
}

bool JsonReader::boolean() {
   skipSpace();
   bool const value = peek() == 't';
   word(value ? "true" : "false");
   return value;
}

void JsonReader::null() {
   word("null");
}

std::string_view JsonReader::skip() {
   skipSpace();
   size_t const begin = at_;
   size_t const depth = isFirst_.size();
   std::vector<char> closings;
   do {
      // One value, or the beginning of one; then all brackets that close after it.
      switch (kind()) {
      case JsonKind::object:
         beginObject();
         closings.push_back('}');
         break;
      case JsonKind::array:
         beginArray();
         closings.push_back(']');
         break;
      case JsonKind::string:
         readString(nullptr);
         break;
      case JsonKind::number:
         number();
         break;
      case JsonKind::boolean:
         boolean();
         break;
      case JsonKind::null:
         null();
         break;
      }
      while (!closings.empty()) {
         if (nextOf(closings.back())) {
            if (closings.back() == '}') {
               if (peek() != '"')
                  fail("expected a name in double quotes");
               readString(nullptr);
               skipSpace();
               if (peek() != ':')
                  fail("expected ':'");
               ++at_;
            }
            break;
         }
         closings.pop_back();
      }
   } while (isFirst_.size() > depth);
   return text_.substr(begin, at_ - begin);
}

void JsonReader::end() {
   skipSpace();
   if (at_ != text_.size())
      fail("something follows behind the end");
}

// Starts at the opening quote. Without `out` the string is only checked.
void JsonReader::readString(std::string* out) {
   size_t const begin = at_++;
   for (;;) {
      size_t const run = at_;
      while (at_ < text_.size() && static_cast<unsigned char>(text_[at_]) >= 0x20 &&
             static_cast<unsigned char>(text_[at_]) < 0x80 && text_[at_] != '"' && text_[at_] != '\\')
         ++at_;
      if (out)
         out->append(text_, run, at_ - run);
      if (at_ == text_.size())
         fail(begin, "a string without an end");
      if (text_[at_] == '"') {
         ++at_;
         return;
      }
      uint32_t character = 0;
      if (text_[at_] == '\\') {
         character = readEscape();
      } else {
         if (static_cast<unsigned char>(text_[at_]) < 0x20)
            fail("a control character in a string; write it as \\u00XX");
         size_t const length = Kem::utf8Length(text_.substr(at_));
         if (length == 0)
            fail("bytes that are no UTF-8");
         character = static_cast<unsigned char>(text_[at_]) & (0xffu >> (length + 1));
         for (size_t i = 1; i < length; ++i)
            character = character << 6 | (static_cast<unsigned char>(text_[at_ + i]) & 0x3f);
         at_ += length;
      }
      if (!out)
         continue;
      if (int const byte = escapedByte(character); byte >= 0)
         *out += static_cast<char>(byte);
      else
         appendUtf8(*out, character);
   }
}

// Starts at the backslash.
uint32_t JsonReader::readEscape() {
   size_t const begin = at_++;
   char const letter = peek();
   ++at_;
   switch (letter) {
   case '"':
   case '\\':
   case '/':
      return static_cast<unsigned char>(letter);
   case 'b':
      return '\b';
   case 'f':
      return '\f';
   case 'n':
      return '\n';
   case 'r':
      return '\r';
   case 't':
      return '\t';
   case 'u':
      break;
   default:
      fail(begin, "no such escape in a string");
   }
   uint32_t const high = readHex();
   if (high < 0xd800 || high > 0xdfff)
      return high;
   if (high < 0xdc00 && text_.substr(at_, 2) == "\\u") {
      at_ += 2;
      uint32_t const low = readHex();
      if (low >= 0xdc00 && low <= 0xdfff)
         return 0x10000 + ((high - 0xd800) << 10) + (low - 0xdc00);
   }
   fail(begin, "half of a surrogate pair");
}

uint32_t JsonReader::readHex() {
   uint32_t number = 0;
   for (int i = 0; i < 4; ++i, ++at_) {
      char const c = peek();
      if (!isDigit(c) && !(c >= 'a' && c <= 'f') && !(c >= 'A' && c <= 'F'))
         fail("expected four hexadecimal digits");
      number = number << 4 | static_cast<uint32_t>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
   }
   return number;
}

std::string described(JsonReader reader) {
   constexpr size_t maxBytes = 60;
   switch (reader.kind()) {
   case JsonKind::object:
      return "an object";
   case JsonKind::array:
      return "a list";
   default:
      break;
   }
   std::string_view const text = reader.skip();
   if (text.size() <= maxBytes)
      return std::string(text);
   size_t cut = maxBytes;
   while ((static_cast<unsigned char>(text[cut]) & 0xc0) == 0x80)
      --cut;
   return std::string(text.substr(0, cut)) + "...";
}

} // namespace TreeJson
