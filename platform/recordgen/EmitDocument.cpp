// docs/records.md: the reference of all records, for readers of the tree and for writers of agents.
#include "Emit.h"
#include "EntityWords.h"
#include "Values.h"

#include <set>

namespace RecordGen {

namespace {

char const* const introduction = R"(# Records

What is in the state tree: places, records, and the types of their values. Made from `platform/records/*.schema`;
after a change there, `cmake --build build --target records-doc` writes this page again.

A record is an *entity*: a key (its place in a collection), inputs (given when it is created, read-only
afterwards) and attributes. An attribute holds one value, or a collection:

| form | holds |
|---|---|
| `T` | one value |
| `map K -> T` | values by key |
| `children K -> T` | entities by key, which live and die with their owner |
| `ref T` | one entity elsewhere in the tree, or null |
| `refs K -> T` | entities elsewhere in the tree, by key |

Collections marked *ordered* iterate in the order of their keys. A reader sees the default until somebody has written.
A field marked *key* in a value record holds the key that the record is under in a map: it is filled in where a
document leaves it out, and refused where it differs.
)";

// The marks of a table must be escaped in a cell.
std::string cell(std::string const& text) {
   std::string result;
   for (char const c : text)
      result += c == '|' ? std::string("\\|") : std::string(1, c);
   return result;
}

std::string code(std::string const& text) {
   return text.empty() ? "" : '`' + text + '`';
}

// As a target of links: letters and digits only.
std::string anchor(std::string const& name) {
   std::string result;
   for (char const c : name)
      if (c != ':')
         result += c;
      else if (result.empty() || result.back() != '-')
         result += '-';
   return result;
}

std::string link(ValueType const& type) {
   return type.isBuiltIn ? code(type.fullName())
                         : "[`" + type.fullName() + "`](#" + anchor(type.fullName()) + ')';
}
std::string link(Entity const& entity) {
   return entity.isDirectory() ? code(entity.fullName())
                               : "[`" + entity.fullName() + "`](#" + anchor(entity.fullName()) + ')';
}

class DocumentEmitter {
  public:
   explicit DocumentEmitter(Model const& model) : model_(model) {}

   std::string run() {
      out_.put(introduction).gap();
      putPlaces();
      putBuiltIns();
      std::set<std::string> namespaces;
      for (auto const& type : model_.types)
         if (!type->isBuiltIn)
            namespaces.insert(type->nameSpace);
      for (auto const& entity : model_.entities)
         if (!entity->isDirectory())
            namespaces.insert(entity->nameSpace);
      for (auto const& nameSpace : namespaces)
         putNamespace(nameSpace);
      return out_.str();
   }

  private:
   void putPlaces() {
      out_.put("## The tree").gap();
      out_.put("Places marked *cell* exist once for each supervisor, below `cell/1` and so on. Directories "
               "on the way "
               "are left out.");
      out_.gap().put("| place | record | what, and who writes it |\n|---|---|---|");
      for (auto const& p : model_.places)
         if (!p.meaning.empty())
            out_.put("| " + code(p.path) + (p.isCell ? " *cell*" : "") + " | " + link(*p.type) + " | " +
                     cell(p.meaning) + " |");
      out_.gap();
   }

   void putBuiltIns() {
      out_.put("## Built-in types").gap().put("| type | meaning |\n|---|---|");
      for (auto const& type : model_.types)
         if (type->isBuiltIn)
            out_.put("| " + code(type->fullName()) + " | " + cell(type->meaning) + " |");
      out_.gap();
   }

   void putNamespace(std::string const& nameSpace) {
      out_.put("## " + nameSpace).gap();
      for (auto const& entity : model_.entities)
         if (entity->nameSpace == nameSpace && !entity->isDirectory())
            putEntity(*entity);
      for (auto const& type : model_.types)
         if (type->nameSpace == nameSpace && !type->isBuiltIn)
            putType(*type);
   }

   void putHead(std::string const& kind, std::string const& name, std::string const& meaning) {
      out_.put("<a id=\"" + anchor(name) + "\"></a>\n### " + kind + " `" + name + '`').gap();
      for (auto const& line : wrapped(meaning, 110))
         out_.put(line);
      out_.gap();
   }

   void putEntity(Entity const& entity) {
      putHead("Record", entity.fullName(), entity.meaning);
      if (entity.base)
         out_.put("A kind of " + link(*entity.base) + ", with all that it has" +
                  (entity.own.empty() ? "." : ", and:"))
             .gap();
      if (entity.own.empty() && entity.computed.empty() && entity.locals.empty())
         return;
      out_.put("| attribute | type | default | unit | meaning |\n|---|---|---|---|---|");
      for (auto const& a : entity.own) {
         std::string const mark = a.isKey       ? " *key*"
                                  : a.isInput   ? " *input*"
                                  : a.isCounter ? " *counter*"
                                                : "";
         std::string const initial =
             a.form == Form::scalar && !a.isKey ? code(valueText(*a.value, a.initial)) : std::string();
         out_.put("| " + code(a.name) + mark + " | " + formText(a) + " | " + cell(initial) + " | " +
                  cell(a.unit) + " | " + cell(a.meaning + unlessText(a) + keysText(a)) + " |");
      }
      for (auto const& c : entity.computed)
         out_.put("| " + code(c.name) + " *computed* | " + link(*c.value) + " | " + code(c.from.text) +
                  " - " + c.less.text + " | " + cell(c.unit) + " | " + cell(c.meaning) + " |");
      for (auto const& l : entity.locals)
         out_.put("| " + code(l.name) + " *local* |  |  |  | " + cell(l.meaning) + " |");
      out_.gap();
   }

   static std::string formText(Attribute const& a) {
      std::string const ordered = a.isOrdered ? "*ordered* " : "";
      switch (a.form) {
      case Form::scalar:
         return link(*a.value);
      case Form::map:
         return ordered + "map " + link(*a.key) + " -> " + link(*a.value);
      case Form::children:
         return ordered + "children " + link(*a.key) + " -> " + link(*a.target);
      case Form::reference:
         return "ref " + link(*a.target);
      case Form::references:
         return ordered + "refs " + link(*a.key) + " -> " + link(*a.target);
      }
      return "";
   }

   void putType(ValueType const& type) {
      char const* const kind = type.isEnum() ? "Enumeration" : type.isStruct() ? "Value record" : "Number";
      putHead(kind, type.fullName(), type.meaning);
      if (type.isEnum()) {
         std::string const others =
             type.isOpen ? "; any other number is legal, too." : "; any other number is refused.";
         out_.put("A " + code(type.baseName.text) + others).gap();
         out_.put("| number | name | meaning |\n|---|---|---|");
         for (auto const& e : type.enumerators)
            out_.put("| " + std::to_string(e.number) + " | " + code(e.name) + " | " + cell(e.meaning) + " |");
      } else if (type.isStruct()) {
         if (!type.joint.empty())
            out_.put("As a key in text, its fields are written with " + code(type.joint) + " between them.")
                .gap();
         out_.put("| field | type | default | meaning |\n|---|---|---|---|");
         for (auto const& f : type.fields)
            out_.put("| " + code(f.name) + (f.isKey ? " *key*" : "") + " | " + link(*f.type) + " | " +
                     (f.isKey ? "" : cell(code(valueText(*f.type, f.initial)))) + " | " +
                     cell(f.meaning + whileText(f)) + " |");
      } else {
         std::string text = "A " + code(type.baseName.text);
         if (!type.rangeText.empty())
            text += " from " + type.minText.text + " to " + type.maxText.text +
                    "; any other is refused with \"" + type.rangeText + '"';
         out_.put(text + '.');
      }
      out_.gap();
   }

   Model const& model_;
   Text out_;
};

} // namespace

std::string document(Model const& model) {
   return DocumentEmitter(model).run();
}

} // namespace RecordGen
