#include "EntityWords.h"

namespace RecordGen {

Words wordsOf(Names const& names, Entity const& entity, Attribute const& a) {
   std::string const& from = entity.nameSpace;
   Words words = {{"C", entity.name}, {"x", a.name}, {"X", capital(a.name)}, {"id", 'k' + capital(a.name)}};
   words["T"] = a.value ? names.of(*a.value, from) : names.of(*a.target, from);
   words["in"] = a.value ? names.passed(*a.value, from) : "Kem::Ptr<" + words["T"] + "> const&";
   if (a.isCollection()) {
      words["K"] = names.of(*a.key, from);
      words["kin"] = names.passed(*a.key, from);
      words["Map"] = words["X"] + "Map";
   }
   if (a.target && a.target->key)
      words["tkey"] = a.target->key->name;
   words["full"] = entity.fullName();
   return words;
}

std::string unlessText(Attribute const& a) {
   return a.unless ? " Reads as false while `" + a.unless->name + "` is `" + a.unlessValue.text + "`." : "";
}

std::string keysText(Attribute const& a) {
   return std::string(a.isMulticast ? " Each key is a multicast address." : "") +
          (a.apart ? " No key is in `" + a.apart->name + "` too." : "");
}

std::string whileText(Field const& f) {
   return f.whileField < 0 ? "" : " Not 0 while `" + f.whileName.text + "` is `" + f.whileValue.text + "`.";
}

std::string parameters(Names const& names, Entity const& entity, std::string const& from, Defaults defaults,
                       std::string const& keyName) {
   std::vector<std::string> parts;
   if (entity.key)
      parts.push_back(names.passed(*entity.key->value, from) + ' ' +
                      (keyName.empty() ? entity.key->name : keyName));
   for (auto const* a : entity.parameters()) {
      std::string part = names.passed(*a->value, from) + ' ' + a->name;
      if (defaults == Defaults::shown) {
         std::string const initial = names.initial(*a->value, a->initial, from);
         part += " = " + (initial.empty() ? "{}" : initial);
      }
      parts.push_back(part);
   }
   return join(parts, ", ");
}

std::string arguments(Entity const& entity, std::string const& keyName) {
   std::vector<std::string> parts;
   if (entity.key)
      parts.push_back(keyName.empty() ? entity.key->name : keyName);
   for (auto const* a : entity.parameters())
      parts.push_back(a->name);
   return join(parts, ", ");
}

} // namespace RecordGen
