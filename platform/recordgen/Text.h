// Building of the generated files: lines with words filled in, comments broken to the width of a line.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace RecordGen {

// What stands for `$name` in a pattern.
using Words = std::map<std::string, std::string, std::less<>>;

// Replaces each `$name`; a name that isn't among the words is a fault of the
// generator and throws std::logic_error.
std::string fill(std::string_view pattern, Words const& words);

std::string capital(std::string text);
std::string join(std::vector<std::string> const& parts, std::string_view between);
// In quotes, with escapes: as a C++ string literal.
std::string cppString(std::string_view bytes);
// "Kem::Dir" to "Kem/Dir".
std::string slashed(std::string_view nameSpace);

class Text {
  public:
   // One line or several; a line break at the end is added.
   Text& put(std::string_view text);
   Text& put(std::string_view pattern, Words const& words);
   // As lines that begin with "//", at most 110 columns wide.
   Text& comment(std::string_view text, int indent = 0);
   // An empty line, unless one is there or a block has just been opened.
   Text& gap();
   std::string const& str() const { return text_; }

  private:
   std::string text_;
};

// The same C++ text with its long lines broken: a function of one line into three, a list behind a comma.
std::string folded(std::string_view text);

// The text broken to lines of at most that width.
std::vector<std::string> wrapped(std::string_view text, size_t width);

} // namespace RecordGen
