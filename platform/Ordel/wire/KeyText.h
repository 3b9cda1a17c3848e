// Keys and single values as text: what is between the brackets of a selector,
// and as a member's name in JSON.
//
// Numbers in decimal, booleans as true and false, enumerators by name (by number where they have none),
// strings and interface ids as they are, addresses as "00:1c:73:00:00:01", records as their fields with the
// joint between them. Types without a text form (a record without a joint) have an error in place of a text.
#pragma once

#include "records/Schema.h"

#include <string>
#include <string_view>

namespace Ordel {

// Wire form in `bytes`, or why the text is no value of the type in `error`, which is then not empty.
struct KeyBytes {
   std::string bytes;
   std::string error;
   bool isGood() const { return error.empty(); }
};

// The value must be well formed; what is not comes out as hexadecimal digits behind "0x".
std::string keyText(Records::ValueType const& type, std::string_view wire);

// Takes what keyText makes; enumerations and interfaces also by number, addresses in
// either case. Ranges are checked.
KeyBytes keyFromText(Records::ValueType const& type, std::string_view text);

} // namespace Ordel
