#include "Ordel/wire/Selector.h"

#include "Kem/Hex.h"
#include "Ordel/wire/Protocol.h"

#include <cctype>

namespace Ordel {

namespace {

bool isControl(char c) {
   return static_cast<uint8_t>(c) < 0x20 || c == 0x7f;
}

bool isWordByte(char c) {
   return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

class SelectorParser {
  public:
   SelectorParser(std::string_view text, Selector& selector) : text_(text), selector_(selector) {}

   // The reason, or nothing when all is well.
   std::string parse() {
      if (text_.size() > maxSelectorBytes)
         return "longer than " + std::to_string(maxSelectorBytes) + " bytes";
      if (text_.empty())
         return "a path is expected, or / for the root";
      std::string error = parsePath();
      while (error.empty() && at_ < text_.size())
         error = parseStep();
      return error;
   }

  private:
   std::string parsePath() {
      if (text_ == "/" || text_.starts_with("/.")) {
         at_ = 1;
         return {};
      }
      size_t const end = std::min(text_.find('.'), text_.size());
      selector_.path = text_.substr(0, end);
      for (size_t from = 0; from <= end;) {
         size_t const slash = std::min(selector_.path.find('/', from), end);
         if (char const* reason = badName(std::string_view(selector_.path).substr(from, slash - from)))
            return "the path: " + std::string(reason);
         from = slash + 1;
      }
      at_ = end;
      return {};
   }

   std::string parseStep() {
      if (text_[at_] != '.')
         return expected("a . and an attribute");
      size_t const begin = ++at_;
      while (at_ < text_.size() && isWordByte(text_[at_]))
         ++at_;
      if (at_ == begin)
         return expected("the name of an attribute");
      Selector::Step step;
      step.attribute = text_.substr(begin, at_ - begin);
      if (at_ < text_.size()) {
         if (text_[at_] != '[')
            return expected("a key in [ ]");
         ++at_;
         step.hasKey = true;
         std::string const error =
             at_ < text_.size() && text_[at_] == '"' ? parseQuoted(step.key) : parseBare(step.key);
         if (!error.empty())
            return error;
      }
      selector_.steps.push_back(std::move(step));
      return {};
   }

   std::string parseBare(std::string& key) {
      size_t const end = text_.find(']', at_);
      if (end == std::string_view::npos)
         return expected("a ] behind the key");
      key = text_.substr(at_, end - at_);
      if (Kem::needsQuotes(key))
         return expected(key.empty() ? "a key" : "a key in quotes, since it holds a control character");
      at_ = end + 1;
      return {};
   }

   std::string parseQuoted(std::string& key) {
      for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
         char c = text_[at_];
         if (isControl(c))
            return expected("\\x and two digits for a control character");
         if (c == '\\') {
            if (++at_ == text_.size())
               break;
            c = text_[at_];
            if (c == 'x') {
               int const high = at_ + 1 < text_.size() ? Kem::hexDigit(text_[at_ + 1]) : -1;
               int const low = at_ + 2 < text_.size() ? Kem::hexDigit(text_[at_ + 2]) : -1;
               if (high < 0 || low < 0)
                  return expected("two hexadecimal digits behind \\x");
               c = static_cast<char>(high * 16 + low);
               at_ += 2;
            } else if (c != '"' && c != '\\') {
               return expected("a quote, a \\ or x behind \\");
            }
         }
         key += c;
      }
      if (at_ >= text_.size())
         return expected("a quote at the end of the key");
      ++at_;
      if (at_ == text_.size() || text_[at_] != ']')
         return expected("a ] behind the key");
      ++at_;
      return {};
   }

   std::string expected(std::string_view what) const {
      std::string error(what);
      error += " is expected at byte ";
      error += std::to_string(at_ + 1);
      return error;
   }

   std::string_view text_;
   Selector& selector_;
   size_t at_ = 0;
};

// For an error, of one line and not long.
std::string shown(std::string_view text) {
   constexpr size_t most = 200;
   std::string line(text.substr(0, most));
   for (char& c : line)
      if (isControl(c))
         c = '?';
   return text.size() > most ? line + "..." : line;
}

} // namespace

bool Selector::parse(std::string_view text, Selector& selector, std::string& error) {
   Selector parsed;
   std::string const reason = SelectorParser(text, parsed).parse();
   if (!reason.empty()) {
      error = "\"" + shown(text) + "\": " + reason;
      return false;
   }
   selector = std::move(parsed);
   return true;
}

std::string Selector::text() const {
   std::string text = path.empty() ? "/" : path;
   for (Step const& step : steps) {
      text += '.';
      text += step.attribute;
      if (step.hasKey)
         text += bracketed(step.key);
   }
   return text;
}

char const* badName(std::string_view name) {
   if (name.empty())
      return "a name is not empty";
   if (name.size() > maxNameBytes)
      return "a name has at most 255 bytes";
   for (char const c : name)
      if (c == '/' || c == '.' || c == '[' || c == ']' || c == 0)
         return "a name has no / . [ ] and no NUL in it";
   return nullptr;
}

} // namespace Ordel
