// Cuts a schema file into tokens: words, numbers, strings and marks. Comments are dropped, but for the lines
// that begin with "///", which are given to the token behind them.
#pragma once

#include "Model.h"

#include <string>
#include <string_view>
#include <vector>

namespace RecordGen {

struct Token {
   enum class Kind { word, number, string, mark, end };
   Kind kind = Kind::end;
   std::string text;    // a string without its quotes
   std::string meaning; // the "///" lines before it, joined by blanks
   SourcePoint at;
};

// The last token is of kind end. Throws SchemaError for a character that begins
// nothing, and for an open string.
std::vector<Token> tokens(std::string const& file, std::string_view text);

} // namespace RecordGen
