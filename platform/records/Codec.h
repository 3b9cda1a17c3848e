// Values of records in their wire form and as text, whatever their type. Used by the generated classes.
//
// Numbers, enumerations and strings are handled here; every other type does it itself, with encode(),
// decode() and stringValue() or text().
#pragma once

#include "Kem/Entity.h"
#include "Kem/String.h"
#include "Kem/Wire.h"

#include <bit>
#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

namespace Records {

template <class T>
concept Text = std::same_as<T, Kem::String8> || std::same_as<T, Kem::Name>;

template <class T>
void encode(Wire::Writer& out, T const& value) {
   if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>)
      out.raw(&value, sizeof value);
   else if constexpr (Text<T>)
      out.string(value);
   else
      value.encode(out);
}

// What can't be a T fails the reader; the value is then of no use. Never throws for bad bytes.
template <class T>
T decode(Wire::Reader& in) {
   if constexpr (std::same_as<T, bool>) {
      return in.boolean();
   } else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      T value{};
      std::string_view const bytes = in.raw(sizeof value);
      if (bytes.size() == sizeof value)
         std::memcpy(&value, bytes.data(), sizeof value);
      if constexpr (requires { isEnumerator(value); }) {
         if (!isEnumerator(value))
            in.fail();
      }
      return value;
   } else if constexpr (Text<T>) {
      return T(in.string());
   } else {
      return T::decode(in);
   }
}

// Key and value of a member; false, and nothing written, where there is none.
template <class Map, class Key>
bool encodeMember(Wire::Writer& out, Map const& map, Key const& key) {
   auto const* value = map.find(key);
   if (!value)
      return false;
   encode(out, key);
   encode(out, *value);
   return true;
}

// The same for a member that is a reference: its selector stands for it, the empty text for null.
template <class Map, class Key>
bool encodeReference(Wire::Writer& out, Map const& map, Key const& key) {
   auto const* target = map.find(key);
   if (!target)
      return false;
   encode(out, key);
   out.string(*target ? (*target)->fullName() : std::string());
   return true;
}

// For visitMemberKey: decodes a key and shows it.
template <class Key>
bool visitKey(Wire::Reader& in, Kem::FunctionRef<void(void const*)> visit) {
   Key const key = decode<Key>(in);
   if (!in.good())
      return false;
   visit(&key);
   return true;
}

// For childByKey: null where there is no such child.
template <class Key, class Map>
Kem::Entity* childAt(Map const& map, Wire::Reader& in) {
   Key const key = decode<Key>(in);
   auto const* child = in.good() ? map.find(key) : nullptr;
   return child ? child->ptr() : nullptr;
}

std::string doubleText(double value);

// As it is between the brackets of a selector; of an enumerator its name, of
// one without a name the number.
template <class T>
std::string text(T const& value) {
   if constexpr (std::same_as<T, bool>)
      return value ? "true" : "false";
   else if constexpr (std::floating_point<T>)
      return doubleText(value);
   else if constexpr (std::is_arithmetic_v<T>)
      return std::to_string(value);
   else if constexpr (std::is_enum_v<T>) {
      char const* const name = toString(value);
      return name ? name : std::to_string(static_cast<std::underlying_type_t<T>>(value));
   } else if constexpr (Text<T>)
      return value.str();
   else if constexpr (requires { value.stringValue(); })
      return value.stringValue().str();
   else if constexpr (requires { value.text(); })
      return value.text();
   else
      return std::to_string(value.value());
}

// Part of the hash of a record that serves as a key.
template <class T>
uint32_t hashPart(T const& value) {
   if constexpr (requires { value.hash(); })
      return value.hash();
   else
      return static_cast<uint32_t>(value) ^ static_cast<uint32_t>(static_cast<uint64_t>(value) >> 32);
}
inline uint32_t mixHash(uint32_t hash, uint32_t part) {
   hash = (hash ^ part) * 0x9e3779b1u;
   return hash ^ (hash >> 15);
}

} // namespace Records
