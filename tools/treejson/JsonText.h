// Strings of bytes as JSON strings and back, without loss.
//
// Strings of the tree are bytes, JSON's are Unicode. Bytes that are no UTF-8 come out as the private
// characters U+EF80 to U+EFFF, one for each byte 0x80 to 0xff, and these characters are read as those bytes.
// So every JSON reader takes the text, and no two strings of the tree look alike.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TreeJson {

void appendUtf8(std::string& out, uint32_t character);

// Appends the bytes as a JSON string, quotes included. What isn't printable (Kem/Printable.h) is escaped.
void appendQuoted(std::string& out, std::string_view bytes);

// The byte that the private character stands for, or -1.
constexpr int escapedByte(uint32_t character) {
   return character >= 0xef80 && character <= 0xefff ? static_cast<int>(character - 0xef00) : -1;
}

} // namespace TreeJson
