// Hexadecimal digits in texts that are read.
#pragma once

namespace Kem {

// The value of the digit, 0 to 15, in letters of either case; -1 for another character.
constexpr int hexDigit(char c) {
   if (c >= '0' && c <= '9')
      return c - '0';
   if (c >= 'a' && c <= 'f')
      return c - 'a' + 10;
   if (c >= 'A' && c <= 'F')
      return c - 'A' + 10;
   return -1;
}

} // namespace Kem
