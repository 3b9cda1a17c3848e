// The descriptors of Schema.h as constant data, the table of the classes, and
// the fingerprint of the wire form.
#include "Emit.h"
#include "Values.h"

namespace RecordGen {

namespace {

char const* kindName(Kind kind) {
   static char const* const names[] = {"boolean",       "u8",     "u16",     "u32",         "u64",
                                       "s16",           "s32",    "s64",     "float64",     "string",
                                       "namespaceName", "intfId", "ethAddr", "enumeration", "record"};
   return names[static_cast<size_t>(kind)];
}

char const* formName(Form form) {
   static char const* const names[] = {"scalar", "map", "children", "reference", "references"};
   return names[static_cast<size_t>(form)];
}

// Bytes with their length, since a NUL may stand among them.
std::string view(std::string const& bytes) {
   return bytes.find('\0') == std::string::npos ? cppString(bytes) : cppString(bytes) + "sv";
}

class SchemaEmitter {
  public:
   explicit SchemaEmitter(Model const& model) : model_(model) {
      for (size_t i = 0; i < model.types.size(); ++i)
         numbers_[model.types[i].get()] = i;
   }

   std::string run() {
      out_.put(banner("the schema files"))
          .put(R"(#include "records/Schema.h"

namespace Records {

namespace {

using namespace std::string_view_literals;

extern ValueType const types[$types];
extern EntityType const entities[$entities];
)",
               {{"types", std::to_string(model_.types.size())},
                {"entities", std::to_string(model_.entities.size())}});
      putEnumeratorsAndFields();
      putTypes();
      putAttributes();
      putEntities();
      putPlaces();
      out_.put(R"(
} // namespace

Schema const& schema() {
   static constexpr Schema all = {entities, places, $fingerprint};
   return all;
}

} // namespace Records
)",
               {{"fingerprint", std::to_string(fingerprint(model_)) + 'u'}});
      return out_.str();
   }

  private:
   std::string typePointer(ValueType const* type) const {
      return type ? "&types[" + std::to_string(numbers_.at(type)) + ']' : "nullptr";
   }
   static std::string entityPointer(Entity const* entity) {
      return entity ? "&entities[" + std::to_string(entity->id) + ']' : "nullptr";
   }

   void putEnumeratorsAndFields() {
      for (auto const& type : model_.types) {
         std::string const number = std::to_string(numbers_[type.get()]);
         if (type->isEnum()) {
            out_.gap().put("// " + type->fullName() + "\nconstexpr EnumValue enumerators" + number +
                           "[] = {");
            for (auto const& e : type->enumerators)
               out_.put("   {\"" + e.name + "\", " + std::to_string(e.number) + "},");
            out_.put("};");
         } else if (type->isStruct()) {
            out_.gap().put("// " + type->fullName() + "\nconstexpr Field fields" + number + "[] = {");
            for (auto const& f : type->fields)
               out_.put("   {\"" + f.name + "\", " + typePointer(f.type) + ", " + cppString(f.meaning) +
                        (f.whileField < 0
                             ? ""
                             : ", " + std::to_string(f.whileField) + ", " + std::to_string(f.whileNumber) +
                                   "u, " + cppString(f.whileText)) +
                        "},");
            out_.put("};");
         }
      }
   }

   void putTypes() {
      out_.gap().put("// name, kind, size, min, max, range, enumerators, fields, joint, zero, meaning, key\n"
                     "constinit ValueType const types[" +
                     std::to_string(model_.types.size()) + "] = {");
      for (auto const& type : model_.types) {
         std::string const number = std::to_string(numbers_[type.get()]);
         std::vector<std::string> const parts = {cppString(type->fullName()),
                                                 std::string("Kind::") + kindName(type->kind),
                                                 std::to_string(wireSize(*type)),
                                                 std::to_string(type->min),
                                                 std::to_string(type->max) + 'u',
                                                 type->rangeText.empty() ? "nullptr"
                                                                         : cppString(type->rangeText),
                                                 type->isEnum() ? "enumerators" + number : "{}",
                                                 type->isStruct() ? "fields" + number : "{}",
                                                 type->joint.empty() ? "0" : "'" + type->joint + "'",
                                                 view(wireForm(*type, {})),
                                                 cppString(type->meaning),
                                                 type->keyField() ? "true" : "false"};
         out_.put("   {" + join(parts, ", ") + "}, // " + number);
      }
      out_.put("};");
   }

   void putAttributes() {
      out_.gap().put("// name, form, input, ordered, counter, key, value, target, initial, unit, meaning, "
                     "multicast, apart");
      for (auto const& entity : model_.entities) {
         if (entity->all.empty())
            continue;
         out_.gap().put("// " + entity->fullName() + "\nconstexpr Attribute attributes" +
                        std::to_string(entity->id) + "[] = {");
         for (auto const* a : entity->all) {
            auto const flag = [](bool is) { return std::string(is ? "true" : "false"); };
            std::vector<std::string> const parts = {
                cppString(a->name),
                std::string("Form::") + formName(a->form),
                flag(a->isReadOnly()),
                flag(a->isOrdered),
                flag(a->isCounter),
                typePointer(a->key),
                typePointer(a->value),
                entityPointer(a->target),
                a->form == Form::scalar ? view(wireForm(*a->value, a->initial)) : "\"\"",
                cppString(a->unit),
                cppString(a->meaning),
                flag(a->isMulticast),
                std::to_string(a->apart ? a->apart->number : -1)};
            out_.put("   {" + join(parts, ", ") + "},");
         }
         out_.put("};");
      }
   }

   void putEntities() {
      out_.gap().put("// name, id, base, attributes, key, meaning\nconstinit EntityType const entities[" +
                     std::to_string(model_.entities.size()) + "] = {");
      for (auto const& entity : model_.entities) {
         std::string const id = std::to_string(entity->id);
         std::vector<std::string> const parts = {cppString(entity->fullName()),
                                                 id,
                                                 entityPointer(entity->base),
                                                 entity->all.empty() ? "{}" : "attributes" + id,
                                                 entity->key ? std::to_string(entity->key->number) : "-1",
                                                 cppString(entity->meaning)};
         out_.put("   {" + join(parts, ", ") + "},");
      }
      out_.put("};");
   }

   void putPlaces() {
      if (model_.places.empty()) {
         out_.gap().put("constexpr std::span<Place const> places;");
         return;
      }
      out_.gap().put("// path, type, cell, meaning\nconstexpr Place places[] = {");
      for (auto const& p : model_.places)
         out_.put("   {" + cppString(p.path) + ", " + entityPointer(p.type) + ", " +
                  (p.isCell ? "true" : "false") + ", " + cppString(p.meaning) + "},");
      out_.put("};");
   }

   Model const& model_;
   std::map<ValueType const*, size_t> numbers_;
   Text out_;
};

} // namespace

uint64_t fingerprint(Model const& model) {
   uint64_t hash = 0xcbf29ce484222325u; // FNV-1a
   // Each part is closed by a NUL, so that no two lists of parts read the same.
   auto const add = [&](std::string const& part) {
      for (size_t i = 0; i <= part.size(); ++i)
         hash = (hash ^ static_cast<unsigned char>(part.c_str()[i])) * 0x100000001b3u;
   };
   for (auto const& type : model.types) {
      for (auto const& part :
           {type->fullName(), std::string(kindName(type->kind)), std::to_string(wireSize(*type)),
            std::to_string(type->min), std::to_string(type->max), type->joint, wireForm(*type, {})})
         add(part);
      for (auto const& e : type->enumerators)
         add(e.name), add(std::to_string(e.number));
      for (auto const& f : type->fields)
         add(f.name), add(f.type->fullName()), add(f.isKey ? "key" : ""), add(f.whileText);
   }
   for (auto const& entity : model.entities) {
      add(entity->fullName());
      add(entity->base ? entity->base->fullName() : "");
      for (auto const* a : entity->all) {
         add(a->name);
         add(formName(a->form));
         add(std::string(a->isReadOnly() ? "r" : "") + (a->isOrdered ? "o" : "") +
             (a->isMulticast ? "m" : ""));
         add(a->apart ? a->apart->name : "");
         add(a->key ? a->key->fullName() : "");
         add(a->value ? a->value->fullName() : "");
         add(a->target ? a->target->fullName() : "");
         add(a->form == Form::scalar ? wireForm(*a->value, a->initial) : "");
      }
   }
   for (auto const& p : model.places)
      add(p.path), add(p.type->fullName()), add(p.isCell ? "cell" : "");
   return hash;
}

std::string schemaSource(Model const& model) {
   return SchemaEmitter(model).run();
}

std::string typeInfoSource(Model const& model) {
   Text out;
   out.put(banner("the schema files"))
       .put("#include \"records/TypeInfo.h\"")
       .gap()
       .put("#include \"Kem/Dir.h\"");
   for (auto const& entity : model.entities)
      if (!entity->isDirectory())
         out.put("#include \"" + headerOf(*entity) + '"');
   out.gap().put("#include <iterator>").gap().put(R"(namespace Records {

Kem::TypeInfo const* typeInfo(uint16_t id) {
   static constexpr Kem::TypeInfo const* all[] = {)");
   for (auto const& entity : model.entities)
      out.put("      &" + entity->fullName() + "::typeInfo_,");
   out.put("   };\n   return id < std::size(all) ? all[id] : nullptr;\n}\n\n} // namespace Records");
   return out.str();
}

} // namespace RecordGen
