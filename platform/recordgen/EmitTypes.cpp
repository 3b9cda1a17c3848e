// Value types: numbers with a range, enumerations, value records.
#include "Emit.h"
#include "EntityWords.h"
#include "Values.h"

#include <functional>
#include <set>

namespace RecordGen {

namespace {

// Types of the namespace, each behind those that it holds.
std::vector<ValueType const*> inOrder(Model const& model, std::string const& nameSpace) {
   std::vector<ValueType const*> order;
   std::set<ValueType const*> done;
   std::function<void(ValueType const&)> const add = [&](ValueType const& type) {
      if (type.isBuiltIn || type.nameSpace != nameSpace || !done.insert(&type).second)
         return;
      for (auto const& field : type.fields)
         add(*field.type);
      order.push_back(&type);
   };
   for (auto const& type : model.types)
      add(*type);
   return order;
}

void putNumber(Text& out, ValueType const& type) {
   Literal const none;
   std::string const suffix = type.kind == Kind::u64 ? "u" : "";
   out.put(R"(class $name : public Records::Number<$name, $base> {
 public:
   static constexpr $base min = $min;
   static constexpr $base max = $max;
   static constexpr $base initial = $initial;
   static constexpr char const* rangeText = $text;
   using Number::Number;
};
)",
           {{"name", type.name},
            {"base", type.cppBase},
            {"min", std::to_string(type.min) + suffix},
            {"max", std::to_string(type.max) + suffix},
            {"initial", std::to_string(numberOf(type, none)) + suffix},
            {"text", cppString(type.rangeText.empty()
                                   ? type.name + "::value > " + std::to_string(type.max) + " not allowed"
                                   : type.rangeText)}});
}

void putEnum(Text& out, ValueType const& type) {
   out.put("enum class $name : $base {", {{"name", type.name}, {"base", type.cppBase}});
   for (auto const& e : type.enumerators) {
      out.comment(e.meaning, 3);
      out.put("   $name = $number,", {{"name", e.name}, {"number", std::to_string(e.number)}});
   }
   out.put(R"(};
// Name of the enumerator; null for a number that has none.
char const* toString($name value);
std::ostream& operator<<(std::ostream& out, $name value);
)",
           {{"name", type.name}});
   if (type.isOpen)
      return;
   Words words = {{"name", type.name}, {"min", std::to_string(type.min)}, {"max", std::to_string(type.max)}};
   words["test"] = fill(type.min > 0 ? "number >= $min && number <= $max" : "number <= $max", words);
   out.put(R"(// Whether it is one of the enumerators: no other number is legal.
constexpr bool isEnumerator($name value) {
   auto const number = static_cast<uint64_t>(value);
   return $test;
}
)",
           words);
}

void putStruct(Text& out, Names const& names, ValueType const& type) {
   out.put("struct $name {", {{"name", type.name}});
   for (auto const& f : type.fields) {
      out.comment(f.meaning + whileText(f), 3);
      std::string const initial = names.initial(*f.type, f.initial, type.nameSpace);
      out.put("   $type $name = $initial;", {{"type", names.of(*f.type, type.nameSpace)},
                                             {"name", f.name},
                                             {"initial", initial.empty() ? "{}" : initial}});
   }
   out.put(R"(
   friend bool operator==($name const&, $name const&) = default;
   friend auto operator<=>($name const&, $name const&) = default;
   void encode(Wire::Writer& out) const;
   static $name decode(Wire::Reader& in); // what can't be one fails the reader
   std::string text() const;
)",
           {{"name", type.name}});
   if (!type.joint.empty())
      out.put("   uint32_t hash() const;");
   if (auto const* key = type.keyField())
      out.put("   // As a member under the key: $key is filled in where it was left out, at its default. A "
              "different one\n"
              "   // raises a range exception.\n"
              "   $name under($K key) const;",
              {{"name", type.name}, {"key", key->name}, {"K", names.passed(*key->type, type.nameSpace)}});
   out.put("};\nstd::ostream& operator<<(std::ostream& out, $name const& value);", {{"name", type.name}});
}

void putEnumSource(Text& out, ValueType const& type) {
   Words const words = {{"name", type.name}};
   out.gap().put("char const* toString($name value) {\n   switch (value) {", words);
   for (auto const& e : type.enumerators)
      out.put("   case $name::$e: return \"$e\";", {{"name", type.name}, {"e", e.name}});
   out.put(R"(   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& out, $name value) { return out << Records::text(value); }
)",
           words);
}

void putStructSource(Text& out, Names const& names, ValueType const& type) {
   Words words = {{"name", type.name}};
   out.gap().put("void $name::encode(Wire::Writer& out) const {", words);
   for (auto const& f : type.fields)
      out.put("   Records::encode(out, $f);", {{"f", f.name}});
   out.put("}\n\n$name $name::decode(Wire::Reader& in) {\n   $name value;", words);
   for (auto const& f : type.fields)
      out.put("   value.$f = Records::decode<$type>(in);",
              {{"f", f.name}, {"type", names.of(*f.type, type.nameSpace)}});
   out.put("   return value;\n}\n\nstd::string $name::text() const {", words);
   std::vector<std::string> parts;
   for (auto const& f : type.fields)
      parts.push_back(type.joint.empty() ? cppString((parts.empty() ? "{" : ", ") + f.name + "=") +
                                               " + Records::text(" + f.name + ')'
                                         : "Records::text(" + f.name + ')');
   std::string const between = type.joint.empty() ? " +\n          " : " + " + cppString(type.joint) + " + ";
   out.put("   return $parts$end;\n}\n",
           {{"parts", join(parts, between)}, {"end", type.joint.empty() ? " + \"}\"" : ""}});
   if (!type.joint.empty()) {
      out.put("uint32_t $name::hash() const {\n   uint32_t hash = 0;", words);
      for (auto const& f : type.fields)
         out.put("   hash = Records::mixHash(hash, Records::hashPart($f));", {{"f", f.name}});
      out.put("   return hash;\n}\n");
   }
   if (auto const* key = type.keyField()) {
      words.insert({{"key", key->name},
                    {"K", names.passed(*key->type, type.nameSpace)},
                    {"T", names.of(*key->type, type.nameSpace)}});
      out.put(R"($name $name::under($K key) const {
   $name member = *this;
   if ($key == $T())
      member.$key = key;
   else if (!($key == key))
      Kem::throwRange("$name::$key differs from the key");
   return member;
}
)",
              words);
   }
   out.put("std::ostream& operator<<(std::ostream& out, $name const& value) { return out << value.text(); }",
           words);
}

} // namespace

std::string typesHeader(Model const& model, Names const& names, std::string const& nameSpace) {
   auto const types = inOrder(model, nameSpace);
   std::set<std::string> headers;
   std::set<std::string> sources;
   for (auto const* type : types) {
      sources.insert(stemOf(type->at.file) + ".schema");
      if (type->isNumber)
         headers.insert("records/Number.h");
      if (type->isStruct())
         headers.insert("Kem/Wire.h");
      for (auto const& field : type->fields)
         addHeader(headers, *field.type);
   }
   headers.erase(typesHeaderOf(nameSpace));

   Text out;
   out.put(banner(join({sources.begin(), sources.end()}, ", "))).put("#pragma once").gap();
   for (auto const& header : headers)
      out.put("#include \"" + header + '"');
   out.gap().put("#include <compare>\n#include <cstdint>\n#include <iosfwd>\n#include <string>");
   out.gap().put(openNamespace(nameSpace));
   for (auto const* type : types) {
      out.gap().comment(type->meaning);
      if (type->isNumber)
         putNumber(out, *type);
      else if (type->isEnum())
         putEnum(out, *type);
      else
         putStruct(out, names, *type);
   }
   out.gap().put(closeNamespace(nameSpace));
   return out.str();
}

std::string typesSource(Model const& model, Names const& names, std::string const& file) {
   Text out;
   std::string open;
   for (auto const& type : model.types) {
      if (type->isBuiltIn || type->isNumber || type->at.file != file)
         continue;
      if (open != type->nameSpace) {
         if (!open.empty())
            out.gap().put(closeNamespace(open));
         open = type->nameSpace;
         out.gap().put(openNamespace(open));
      }
      if (type->isEnum())
         putEnumSource(out, *type);
      else
         putStructSource(out, names, *type);
   }
   if (!open.empty())
      out.gap().put(closeNamespace(open));
   return out.str();
}

} // namespace RecordGen
