// Single values: their wire form as JSON, and JSON as their wire form, by the descriptor of their type.
//
//    numbers, booleans, strings    the same; of a double the infinities as "inf" and "-inf"
//    enumeration                   its enumerator's name, or the number where it has none; read as either
//    record                        object by field name; a field that isn't given has its default
//    IntfId, Name, NamespaceName   string
//    EthAddr                       "00:1c:73:00:00:01", lower case; read in either case
//    reference                     {"$ref": "selector"}, or null
#pragma once

#include "Kem/Wire.h"
#include "records/Schema.h"
#include "treejson/JsonReader.h"

#include <span>
#include <string>
#include <string_view>

namespace TreeJson {

// Appends the JSON of a value in well-formed wire form, on one line.
void writeValue(Records::ValueType const& type, std::string_view wire, std::string& out);
// `wire` is a selector as a string on the wire.
void writeReference(std::string_view wire, std::string& out);

// Appends the wire form of the value that is read. Raises ValueError.
void readValue(Records::ValueType const& type, JsonReader& in, Wire::Writer& out);
// The same for a member of a map under the key, which is in wire form: a record with a field for the key
// gets it.
void readMember(Records::ValueType const& type, std::string_view key, JsonReader& in, Wire::Writer& out);
void readReference(JsonReader& in, Wire::Writer& out);

// The JSON that a word on a command line means: itself where it is JSON, else, as a bare word, a
// string. Where a value of string form belongs (`type`, null if unknown), a number or true is a bare
// word too, so that a list of VLANs can be 10. Raises SyntaxError for what begins like a string, an
// object or a list and isn't one.
std::string jsonOfWord(std::string_view word, Records::ValueType const* type);

// The name without its namespace: "VlanAdminState".
std::string_view shortName(std::string_view qualified);

// Positions of things that have a `name`, in natural order of the names.
std::vector<uint16_t> const& naturalOrder(std::span<Records::Field const> fields);
std::vector<uint16_t> const& naturalOrder(std::span<Records::Attribute const> attributes);

} // namespace TreeJson
