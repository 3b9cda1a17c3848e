#include "treejson/Values.h"
#include "Kem/String.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"
#include "treejson/Error.h"
#include "treejson/JsonText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <unordered_map>

namespace TreeJson {

using Records::Kind;
using Records::ValueType;

namespace {

template <class Number>
void appendNumber(std::string& out, Number number) {
   char text[40];
   auto const end = std::to_chars(text, text + sizeof text, number).ptr;
   out.append(text, end);
}

void appendDouble(std::string& out, double number) {
   if (std::isfinite(number))
      appendNumber(out, number);
   else
      out += std::isnan(number) ? "null" : number > 0 ? "\"inf\"" : "\"-inf\"";
}

// "active, suspended or a number"; a closed enumeration takes names only. A long list is cut.
std::string enumeratorList(ValueType const& type) {
   constexpr size_t maxNames = 12;
   std::string text;
   for (size_t i = 0; i < type.enumerators.size() && i < maxNames; ++i) {
      text += text.empty() ? "" : ", ";
      text += type.enumerators[i].name;
   }
   if (type.enumerators.size() > maxNames)
      text += ", ...";
   bool const isOpen = !type.rangeText;
   if (isOpen)
      return text + (text.empty() ? "a number" : " or a number");
   if (size_t const comma = text.rfind(", "); comma != std::string::npos && !text.ends_with("..."))
      text.replace(comma, 2, " or ");
   return text;
}

struct Bounds {
   uint64_t min, max;
};

Bounds boundsOf(ValueType const& type) {
   if (type.rangeText)
      return {type.min, type.max};
   switch (type.size) {
   case 1:
      return {0, UINT8_MAX};
   case 2:
      return {0, UINT16_MAX};
   case 4:
      return {0, UINT32_MAX};
   default:
      return {0, UINT64_MAX};
   }
}

[[noreturn]] void refuse(ValueType const& type, JsonReader const& value, std::string const& expected) {
   throw ValueError("", described(value) + " is no " + std::string(shortName(type.name)) + "; expected " +
                            expected);
}

void putUnsigned(ValueType const& type, uint64_t number, Wire::Writer& out) {
   out.raw(&number, type.size); // little endian
}

// A whole number of more than 64 bits counts as one outside every range.
enum class Whole { no, fits, outside };

template <class Number>
Whole parseWhole(std::string_view text, Number& number) {
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
   std::string_view const digits = text.starts_with('-') ? text.substr(1) : text;
   if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
      return Whole::no;
   return error == std::errc() && end == text.data() + text.size() ? Whole::fits : Whole::outside;
}

void readUnsigned(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   Bounds const bounds = boundsOf(type);
   JsonReader const value = in;
   uint64_t number = 0;
   Whole const whole = in.kind() == JsonKind::number ? parseWhole(in.number(), number) : Whole::no;
   if (whole == Whole::fits && number >= bounds.min && number <= bounds.max)
      return putUnsigned(type, number, out);
   if (whole != Whole::no && type.rangeText)
      throw ValueError("", type.rangeText);
   refuse(type, value,
          "a whole number from " + std::to_string(bounds.min) + " to " + std::to_string(bounds.max));
}

template <class Number>
void readSigned(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   JsonReader const value = in;
   Number number = 0;
   if (in.kind() != JsonKind::number || parseWhole(in.number(), number) != Whole::fits)
      refuse(type, value,
             "a whole number from " + std::to_string(std::numeric_limits<Number>::min()) + " to " +
                 std::to_string(std::numeric_limits<Number>::max()));
   out.raw(&number, sizeof number);
}

void readDouble(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   JsonReader const value = in;
   double number = 0;
   if (in.kind() == JsonKind::number) {
      std::string_view const text = in.number();
      auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
      // What is too small for a double is 0; what is too large is refused.
      bool const isTooLarge = error == std::errc::result_out_of_range &&
                              std::abs(std::strtod(std::string(text).c_str(), nullptr)) > 1;
      if (error == std::errc() || !isTooLarge)
         return out.f64(error == std::errc() ? number : 0);
   } else if (in.kind() == JsonKind::string) {
      std::string const text = in.string();
      double const infinity = std::numeric_limits<double>::infinity();
      if (text == "inf" || text == "-inf")
         return out.f64(text == "inf" ? infinity : -infinity);
   }
   refuse(type, value, "a number, \"inf\" or \"-inf\"");
}

void readText(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   if (in.kind() != JsonKind::string)
      refuse(type, in, "a string");
   auto const wire = Ordel::keyFromText(type, in.string());
   if (!wire.isGood())
      throw ValueError("", wire.error);
   out.raw(wire.bytes.data(), wire.bytes.size());
}

void readEnumeration(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   JsonReader const value = in;
   if (in.kind() == JsonKind::string) {
      std::string const name = in.string();
      for (Records::EnumValue const& enumerator : type.enumerators)
         if (enumerator.name == name)
            return putUnsigned(type, enumerator.number, out);
   } else if (in.kind() == JsonKind::number) {
      uint64_t number = 0;
      Bounds const bounds = boundsOf(type);
      if (parseWhole(in.number(), number) == Whole::fits && number >= bounds.min && number <= bounds.max)
         return putUnsigned(type, number, out);
   }
   refuse(type, value, enumeratorList(type));
}

// `key` is the key of the member, empty for a record that isn't a member: it fills the field that holds the
// key when that is left out.
void readRecord(ValueType const& type, std::string_view key, JsonReader& in, Wire::Writer& out) {
   if (in.kind() != JsonKind::object) {
      std::string names;
      for (Records::Field const& field : type.fields)
         (names += names.empty() ? "" : ", ") += field.name;
      refuse(type, in, "an object of " + names);
   }
   // Fields can be given in any order; on the wire they are in their own.
   std::vector<Wire::Writer> values(type.fields.size());
   std::string name;
   for (in.beginObject(); in.nextKey(name);) {
      auto const field =
          std::find_if(type.fields.begin(), type.fields.end(),
                       [&](Records::Field const& candidate) { return candidate.name == name; });
      if (field == type.fields.end())
         throw ValueError("." + name, std::string(shortName(type.name)) + " has no field of this name");
      Wire::Writer& wire = values[static_cast<size_t>(field - type.fields.begin())];
      if (!wire.empty())
         throw ValueError("." + name, "given twice");
      try {
         readValue(*field->type, in, wire);
      } catch (ValueError const& error) {
         throw ValueError("." + name + error.field, error.what());
      }
   }
   Wire::Reader zero(type.zero);
   for (size_t i = 0; i < values.size(); ++i) {
      char const* const begin = zero.position();
      Ordel::skipValue(*type.fields[i].type, zero);
      if (values[i].empty() && i == 0 && type.hasKey && !key.empty())
         out.raw(key.data(), key.size());
      else if (values[i].empty())
         out.raw(begin, static_cast<size_t>(zero.position() - begin));
      else
         out.raw(values[i].data(), values[i].size());
   }
}

void write(ValueType const& type, Wire::Reader& in, std::string& out) {
   switch (type.kind) {
   case Kind::boolean:
      out += in.u8() ? "true" : "false";
      return;
   case Kind::u8:
      return appendNumber(out, unsigned{in.u8()});
   case Kind::u16:
      return appendNumber(out, unsigned{in.u16()});
   case Kind::u32:
      return appendNumber(out, in.u32());
   case Kind::u64:
      return appendNumber(out, in.u64());
   case Kind::s16:
      return appendNumber(out, int{static_cast<int16_t>(in.u16())});
   case Kind::s32:
      return appendNumber(out, static_cast<int32_t>(in.u32()));
   case Kind::s64:
      return appendNumber(out, static_cast<int64_t>(in.u64()));
   case Kind::float64:
      return appendDouble(out, in.f64());
   case Kind::string:
   case Kind::namespaceName:
      return appendQuoted(out, in.string());
   case Kind::intfId:
   case Kind::ethAddr: {
      char const* const begin = in.position();
      Ordel::skipValue(type, in);
      return appendQuoted(out, Ordel::keyText(type, {begin, static_cast<size_t>(in.position() - begin)}));
   }
   case Kind::enumeration: {
      uint64_t const number = type.size == 1 ? in.u8() : in.u32();
      for (Records::EnumValue const& enumerator : type.enumerators)
         if (enumerator.number == number)
            return appendQuoted(out, enumerator.name);
      return appendNumber(out, number);
   }
   case Kind::record: {
      std::vector<std::string> values(type.fields.size());
      for (size_t i = 0; i < values.size(); ++i)
         write(*type.fields[i].type, in, values[i]);
      out += '{';
      for (uint16_t const i : naturalOrder(type.fields)) {
         if (out.back() != '{')
            out += ", ";
         appendQuoted(out, type.fields[i].name);
         out += ": ";
         out += values[i];
      }
      out += '}';
      return;
   }
   }
}

template <class Named>
std::vector<uint16_t> sorted(std::span<Named const> things) {
   std::vector<uint16_t> order(things.size());
   std::iota(order.begin(), order.end(), uint16_t{0});
   std::sort(order.begin(), order.end(),
             [&](uint16_t a, uint16_t b) { return Kem::compareNatural(things[a].name, things[b].name) < 0; });
   return order;
}

// Descriptors are constant tables, so their address names them.
template <class Named>
std::vector<uint16_t> const& sortedOnce(std::span<Named const> things) {
   static std::unordered_map<Named const*, std::vector<uint16_t>> orders;
   auto const [at, isNew] = orders.try_emplace(things.data());
   if (isNew)
      at->second = sorted(things);
   return at->second;
}

} // namespace

void writeValue(ValueType const& type, std::string_view wire, std::string& out) {
   Wire::Reader in(wire);
   write(type, in, out);
}

void writeReference(std::string_view wire, std::string& out) {
   std::string_view const selector = Wire::Reader(wire).string();
   if (selector.empty()) {
      out += "null";
      return;
   }
   out += "{\"$ref\": ";
   appendQuoted(out, selector);
   out += '}';
}

void readValue(ValueType const& type, JsonReader& in, Wire::Writer& out) {
   switch (type.kind) {
   case Kind::boolean:
      if (in.kind() != JsonKind::boolean)
         refuse(type, in, "true or false");
      return out.boolean(in.boolean());
   case Kind::u8:
   case Kind::u16:
   case Kind::u32:
   case Kind::u64:
      return readUnsigned(type, in, out);
   case Kind::s16:
      return readSigned<int16_t>(type, in, out);
   case Kind::s32:
      return readSigned<int32_t>(type, in, out);
   case Kind::s64:
      return readSigned<int64_t>(type, in, out);
   case Kind::float64:
      return readDouble(type, in, out);
   case Kind::string:
   case Kind::namespaceName:
   case Kind::intfId:
   case Kind::ethAddr:
      return readText(type, in, out);
   case Kind::enumeration:
      return readEnumeration(type, in, out);
   case Kind::record:
      return readRecord(type, {}, in, out);
   }
}

void readMember(ValueType const& type, std::string_view key, JsonReader& in, Wire::Writer& out) {
   if (type.kind == Kind::record)
      return readRecord(type, key, in, out);
   readValue(type, in, out);
}

void readReference(JsonReader& in, Wire::Writer& out) {
   std::string const expected = " is no reference; expected {\"$ref\": \"selector\"} or null";
   if (in.kind() == JsonKind::null) {
      in.null();
      return out.string({});
   }
   if (in.kind() != JsonKind::object)
      throw ValueError("", described(in) + expected);
   std::string name, text;
   bool isGiven = false;
   for (in.beginObject(); in.nextKey(name);) {
      if (name != "$ref" || isGiven || in.kind() != JsonKind::string)
         throw ValueError("", "an object of other content" + expected);
      text = in.string();
      isGiven = true;
   }
   if (!isGiven)
      throw ValueError("", "an empty object" + expected);
   Ordel::Selector selector;
   std::string error;
   if (!Ordel::Selector::parse(text, selector, error))
      throw ValueError("", error);
   out.string(text);
}

std::string jsonOfWord(std::string_view word, ValueType const* type) {
   bool const isTextual = type && (type->kind == Kind::string || type->kind == Kind::namespaceName ||
                                   type->kind == Kind::intfId || type->kind == Kind::ethAddr);
   size_t const first = word.find_first_not_of(" \t\r\n");
   bool const isStructured = first != std::string_view::npos &&
                             std::string_view("\"{[").find(word[first]) != std::string_view::npos;
   std::string quoted;
   appendQuoted(quoted, word);
   if (isTextual && !isStructured)
      return quoted;
   try {
      JsonReader in(word);
      in.skip();
      in.end();
   } catch (SyntaxError const&) {
      if (isStructured)
         throw;
      return quoted;
   }
   return std::string(word);
}

std::string_view shortName(std::string_view qualified) {
   size_t const colon = qualified.rfind(':');
   return colon == std::string_view::npos ? qualified : qualified.substr(colon + 1);
}

std::vector<uint16_t> const& naturalOrder(std::span<Records::Field const> fields) {
   return sortedOnce(fields);
}

std::vector<uint16_t> const& naturalOrder(std::span<Records::Attribute const> attributes) {
   return sortedOnce(attributes);
}

} // namespace TreeJson
