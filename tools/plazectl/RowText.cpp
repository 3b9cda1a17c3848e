#include "RowText.h"

#include "Commands.h"

#include "Ordel/wire/KeyText.h"
#include "treejson/Error.h"
#include "treejson/Values.h"

namespace Plazectl {

Plaze::TableType const& typeNamed(std::string const& name, std::string const& file) {
   if (auto const* const type = Plaze::tableType(name))
      return *type;
   std::string known;
   for (auto const& type : Plaze::tableTypes())
      known += (known.empty() ? "" : ", ") + std::string(type.name);
   throw Failure(exitRefused, file + ": no type of table is " + name + "; there are " + known);
}

std::string keyText(Plaze::TableType const& type, std::string_view wire) {
   return Ordel::keyText(*type.key, wire);
}

std::string keyBytes(Plaze::TableType const& type, std::string const& text) {
   auto key = Ordel::keyFromText(*type.key, text);
   if (!key.isGood())
      throw Failure(exitRefused, "key " + text + ": " + key.error);
   return std::move(key.bytes);
}

std::string valueJson(Plaze::TableType const& type, std::string_view wire) {
   std::string json;
   TreeJson::writeValue(*type.value, wire, json);
   return json;
}

std::string valueBytes(Plaze::TableType const& type, std::string const& json, std::string const& place) {
   try {
      TreeJson::JsonReader in(json);
      Wire::Writer out;
      TreeJson::readValue(*type.value, in, out);
      in.end();
      return std::string(out.view());
   } catch (TreeJson::ValueError const& error) {
      throw Failure(exitRefused, place + error.field + ": " + error.what());
   } catch (TreeJson::SyntaxError const& error) {
      throw Failure(exitRefused, place + ": no JSON: " + error.what());
   }
}

bool isRow(Plaze::TableType const& type, std::string_view key, std::string_view value) {
   return Plaze::isWellFormed(*type.key, key) && Plaze::isWellFormed(*type.value, value);
}

} // namespace Plazectl
