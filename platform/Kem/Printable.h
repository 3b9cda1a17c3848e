// Text from others, made fit to be printed: on a terminal, in a log, in a line of an error.
//
// Names come from whoever writes to the database, to a table or to a trace. Printed as they are they could
// steer the terminal, break a line in two, or turn a line around. What could do that, and bytes that are no
// UTF-8, come out as \n, \t or \xNN for each byte; all other text stays as it is, whatever the script.
// Programs that print use these functions and no rule of their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Kem {

// Bytes of the UTF-8 character that the text begins with; 0 where none does, also at the end of the text.
size_t utf8Length(std::string_view text);

// Bytes of the character that the text begins with where it may be printed; 0 for a control character (those
// beyond ASCII, line separators and marks of direction too) and for what is no UTF-8.
size_t printableLength(std::string_view text);

enum class Backslashes : uint8_t {
   kept,
   doubled, // no two texts look alike
};

std::string printable(std::string_view text, Backslashes backslashes = Backslashes::kept);

// A whole text of JSON, in which such characters can stand in strings only: they are escaped as \uNNNN. Line
// ends and what else isn't part of a string stay. The text must be valid UTF-8.
std::string printableJson(std::string json);

} // namespace Kem
