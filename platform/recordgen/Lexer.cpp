#include "Lexer.h"

#include <cctype>

namespace RecordGen {

namespace {

bool isWordStart(char c) {
   return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool isDigit(char c) {
   return std::isdigit(static_cast<unsigned char>(c));
}
bool isWordPart(char c) {
   return isWordStart(c) || isDigit(c);
}

class Lexer {
  public:
   Lexer(std::string const& file, std::string_view text) : text_(text) {
      at_.file = file;
      at_.line = at_.column = 1;
   }

   std::vector<Token> run() {
      std::vector<Token> all;
      do
         all.push_back(next());
      while (all.back().kind != Token::Kind::end);
      return all;
   }

  private:
   char peek(size_t ahead = 0) const { return next_ + ahead < text_.size() ? text_[next_ + ahead] : '\0'; }
   char take() {
      char const c = text_[next_++];
      if (c == '\n') {
         ++at_.line;
         at_.column = 1;
      } else if ((c & 0xc0) != 0x80) { // a character of several bytes is one column
         ++at_.column;
      }
      return c;
   }
   std::string takeLine() {
      std::string line;
      while (next_ < text_.size() && peek() != '\n')
         line += take();
      return line;
   }

   void skipBlanksAndComments(Token& token) {
      for (; next_ < text_.size(); take()) {
         if (peek() == '#') {
            takeLine();
         } else if (peek() == '/' && peek(1) == '/' && peek(2) == '/') {
            std::string const line = takeLine();
            size_t const start = line.find_first_not_of(' ', 3);
            if (start != std::string::npos)
               token.meaning += (token.meaning.empty() ? "" : " ") + line.substr(start);
         } else if (!std::isspace(static_cast<unsigned char>(peek()))) {
            return;
         }
         if (next_ >= text_.size())
            return;
      }
   }

   Token next() {
      Token token;
      skipBlanksAndComments(token);
      token.at = at_;
      if (next_ >= text_.size())
         return token;
      char const c = peek();
      if (isWordStart(c)) {
         token.kind = Token::Kind::word;
         while (isWordPart(peek()))
            token.text += take();
      } else if (isDigit(c) || (c == '-' && isDigit(peek(1)))) {
         token.kind = Token::Kind::number;
         token.text += take();
         // A point belongs to the number where a digit follows; ".." is the mark of a range.
         while (isWordPart(peek()) || (peek() == '.' && isDigit(peek(1))))
            token.text += take();
      } else if (c == '"') {
         token.kind = Token::Kind::string;
         take();
         while (peek() != '"') {
            if (next_ >= text_.size() || peek() == '\n')
               throw SchemaError{token.at, "the string has no end on its line"};
            if (peek() == '\\')
               throw SchemaError{at_, "a string has no escapes: \\ can't stand in it"};
            token.text += take();
         }
         take();
      } else {
         token.kind = Token::Kind::mark;
         token.text = take();
         for (auto const* pair : {"::", "..", "->"})
            if (c == pair[0] && peek() == pair[1])
               token.text += take();
         if (token.text.size() == 1 && std::string_view("{};:=").find(c) == std::string_view::npos)
            throw SchemaError{token.at, std::string("nothing begins with '") + c + "'"};
      }
      return token;
   }

   std::string_view text_;
   size_t next_ = 0;
   SourcePoint at_;
};

} // namespace

std::vector<Token> tokens(std::string const& file, std::string_view text) {
   return Lexer(file, text).run();
}

} // namespace RecordGen
