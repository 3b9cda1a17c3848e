// The kinds of table that there are: the name by which one is mounted, and the
// declared types of its keys and values.
//
// A row is in the file in the wire form of its record (Kem/Wire.h), so that what a value may be is
// checked by the same declared ranges as everywhere else, and a tool can show and take rows without knowing
// the record class. The fingerprint in the file is of the fields, in order, with their kinds: another release
// with another record doesn't read the file.
#pragma once

#include "Plaze/Layout.h"

#include "records/Schema.h"

#include <span>
#include <string_view>

namespace Plaze {

struct TableType {
   std::string_view name; // "Plaze::Bridging::Status"
   std::string_view path; // where the platform has its table of this type: "bridging/status"
   std::string_view meaning;
   Records::ValueType const* key;
   Records::ValueType const* value;

   Shape shape() const;
};

std::span<TableType const> tableTypes();
// Null where there is none of that name.
TableType const* tableType(std::string_view name);

// Whether the bytes are one value of that type, with nothing behind it and every field within its range.
bool isWellFormed(Records::ValueType const& type, std::string_view wire);

} // namespace Plaze
