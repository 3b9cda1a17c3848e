#include "Names.h"

#include "Values.h"

namespace RecordGen {

Names::Names(Model const& model) {
   auto const add = [this](std::string name) {
      while (!name.empty()) {
         known_.insert(name);
         size_t const end = name.rfind("::");
         name.resize(end == std::string::npos ? 0 : end);
      }
   };
   for (auto const& type : model.types)
      if (!type->isBuiltIn)
         add(type->fullName());
   for (auto const& entity : model.entities)
      add(entity->fullName());
}

std::string Names::qualified(std::string const& nameSpace, std::string const& name,
                             std::string const& from) const {
   if (nameSpace == from)
      return name;
   // A name of the same first part nearby would be found before the one meant.
   std::string const first = nameSpace.substr(0, nameSpace.find("::"));
   for (std::string around = from; !around.empty();) {
      if (known_.contains(around + "::" + first))
         return "::" + nameSpace + "::" + name;
      size_t const end = around.rfind("::");
      around.resize(end == std::string::npos ? 0 : end);
   }
   return nameSpace + "::" + name;
}

std::string Names::of(ValueType const& type, std::string const& from) const {
   return type.isBuiltIn ? type.cppBase : qualified(type.nameSpace, type.name, from);
}

std::string Names::of(Entity const& entity, std::string const& from) const {
   return qualified(entity.nameSpace, entity.name, from);
}

std::string Names::passed(ValueType const& type, std::string const& from) const {
   bool const isLarge = type.isStruct() || type.kind == Kind::string || type.kind == Kind::namespaceName;
   return of(type, from) + (isLarge ? " const&" : "");
}

std::string Names::initial(ValueType const& type, Literal const& literal, std::string const& from) const {
   switch (type.kind) {
   case Kind::boolean:
      return numberOf(type, literal) ? "true" : "false";
   case Kind::string:
   case Kind::namespaceName:
      return literal && !literal.text.empty() ? cppString(literal.text) : "";
   case Kind::enumeration:
      return of(type, from) + "::" + valueText(type, literal);
   case Kind::intfId:
   case Kind::ethAddr:
   case Kind::record:
      return "";
   default:
      return type.isNumber && !literal ? "" : valueText(type, literal);
   }
}

std::string headerOf(Entity const& entity) {
   return "records/" + slashed(entity.fullName()) + ".h";
}

std::string typesHeaderOf(std::string const& nameSpace) {
   return "records/" + slashed(nameSpace) + "/types.h";
}

std::string stemOf(std::string const& file) {
   std::string const leaf = file.substr(file.rfind('/') + 1);
   return leaf.substr(0, leaf.rfind('.'));
}

void addHeader(std::set<std::string>& headers, ValueType const& type) {
   if (!type.isBuiltIn)
      headers.insert(typesHeaderOf(type.nameSpace));
   else if (!type.nameSpace.empty() && type.nameSpace != "Kem")
      headers.insert(type.nameSpace + '/' + type.name + ".h");
   else if (type.kind == Kind::string)
      headers.insert("Kem/String.h");
}

std::string banner(std::string const& source) {
   return "// Made from " + source + " by recordgen; changes here are lost.\n";
}

std::string openNamespace(std::string const& nameSpace) {
   return "namespace " + nameSpace + " {\n\n";
}
std::string closeNamespace(std::string const& nameSpace) {
   return "} // namespace " + nameSpace + '\n';
}

} // namespace RecordGen
