// The rows of a table in text and JSON: translates between the bytes in the table and the command line.
#pragma once

#include "Plaze/TableType.h"

#include <string>
#include <string_view>

namespace Plazectl {

// The type of that name; raises a Failure with the exit status refused when there is none.
Plaze::TableType const& typeNamed(std::string const& name, std::string const& file);

// "10/00:1c:73:00:00:01".
std::string keyText(Plaze::TableType const& type, std::string_view wire);
// Raises a Failure for a text that isn't a key.
std::string keyBytes(Plaze::TableType const& type, std::string const& text);

// The JSON of a value, on one line. The bytes are well formed.
std::string valueJson(Plaze::TableType const& type, std::string_view wire);
// Raises a Failure for a text that isn't JSON of the value; the message begins with `place`.
std::string valueBytes(Plaze::TableType const& type, std::string const& json, std::string const& place);

// Whether key and value are well formed by their types.
bool isRow(Plaze::TableType const& type, std::string_view key, std::string_view value);

} // namespace Plazectl
