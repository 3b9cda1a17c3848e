#include "Resolver.h"

#include "Values.h"

#include <algorithm>
#include <map>
#include <set>

namespace RecordGen {

namespace {

constexpr size_t maxAttributes = 62;
constexpr size_t maxWireSize = 255; // Records::ValueType::size is one byte

// Words that a name can't be: those of C++, and the members that every record has.
std::set<std::string, std::less<>> const keywords = {
    "alignas",     "alignof",  "and",        "and_eq",    "asm",       "auto",         "bitand",
    "bitor",       "bool",     "break",      "case",      "catch",     "char",         "char16_t",
    "char32_t",    "char8_t",  "class",      "co_await",  "co_return", "co_yield",     "compl",
    "concept",     "const",    "const_cast", "consteval", "constexpr", "constinit",    "continue",
    "decltype",    "default",  "delete",     "do",        "double",    "dynamic_cast", "else",
    "enum",        "explicit", "export",     "extern",    "false",     "float",        "for",
    "friend",      "goto",     "if",         "inline",    "int",       "long",         "mutable",
    "namespace",   "new",      "noexcept",   "not",       "not_eq",    "nullptr",      "operator",
    "or",          "or_eq",    "private",    "protected", "public",    "register",     "reinterpret_cast",
    "requires",    "return",   "short",      "signed",    "sizeof",    "static",       "static_assert",
    "static_cast", "struct",   "switch",     "template",  "this",      "thread_local", "throw",
    "true",        "try",      "typedef",    "typeid",    "typename",  "union",        "unsigned",
    "using",       "virtual",  "void",       "volatile",  "wchar_t",   "while",        "xor",
    "xor_eq",
};
std::set<std::string, std::less<>> const membersOfRecords = {
    "applyErase",
    "applyPut",
    "applyReference",
    "applySet",
    "attributeCount",
    "attributeString",
    "changing",
    "childAdded",
    "childByKey",
    "childDel",
    "childDelAll",
    "childIs",
    "childPlace",
    "childRemoved",
    "decodeKey",
    "deleteRef",
    "encodeAddress",
    "encodeContents",
    "encodeDifference",
    "encodeKey",
    "encodeMember",
    "encodeMemberKey",
    "encodeScalar",
    "flag",
    "forEachChild",
    "fullName",
    "hasKey",
    "hasNotificationActive",
    "hasSameInputs",
    "isDefault",
    "isFollowed",
    "isWritable",
    "isZombie",
    "keyText",
    "make",
    "member",
    "memberChanged",
    "memberChanging",
    "memberDel",
    "memberDelAll",
    "memberIs",
    "name",
    "newRef",
    "nodeNumber",
    "notifier",
    "parent",
    "parentAttr",
    "parentAttrId",
    "placeChild",
    "references",
    "scalar",
    "scalarChanged",
    "scalarChanging",
    "scalarIs",
    "sink",
    "typeInfo",
    "uriPath",
    "visitMemberKey",
};
std::set<std::string, std::less<>> const membersOfStructs = {"decode", "encode", "hash", "text", "in", "out"};

std::string capital(std::string text) {
   if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
      text[0] = static_cast<char>(text[0] - 'a' + 'A');
   return text;
}

class Resolver {
  public:
   explicit Resolver(Model& model) : model_(model) {}

   void run() {
      declareNames();
      for (auto& type : model_.types)
         if (type->isNumber || type->isEnum())
            resolveNumberType(*type);
      for (auto& type : model_.types)
         if (type->isStruct())
            resolveFields(*type);
      for (auto& type : model_.types)
         if (type->isStruct())
            checkStruct(*type);
      checkNamespaces();
      if (!model_.errors.empty())
         return; // sizes and defaults need whole types
      for (auto& type : model_.types)
         for (auto& field : type->fields)
            checkLiteral(*field.type, field.initial);
      if (!model_.errors.empty())
         return;
      for (auto& type : model_.types)
         for (auto& field : type->fields)
            resolveWhile(*type, field);
      for (auto& entity : model_.entities)
         resolveBase(*entity);
      if (!model_.errors.empty())
         return;
      for (auto& entity : model_.entities)
         gatherAttributes(*entity);
      for (auto& entity : model_.entities)
         for (auto& attribute : entity->own)
            resolveAttribute(*entity, attribute);
      if (!model_.errors.empty())
         return;
      for (auto& entity : model_.entities) {
         for (auto& attribute : entity->own) {
            checkKey(attribute);
            resolveUnless(*entity, attribute);
            resolveKeys(*entity, attribute);
         }
         resolveComputed(*entity);
         for (auto const& local : entity->locals)
            checkSideName(*entity, local.name, local.meaning, local.at);
      }
      resolvePlaces();
   }

  private:
   void checkName(std::string const& name, SourcePoint const& at) {
      if (keywords.contains(name))
         model_.error(at, '`' + name + "` is a word of C++");
      else if (name.ends_with("__") || name.starts_with("_") || name.find("__") != std::string::npos)
         model_.error(at,
                      '`' + name + "` is reserved in C++: a name neither begins with _ nor has two of them");
   }
   void checkMeaning(std::string const& meaning, std::string const& name, SourcePoint const& at) {
      if (meaning.empty())
         model_.error(at, '`' + name + "` has no meaning: say it in a line before, behind ///");
   }

   // --- Names

   void declareNames() {
      std::set<std::string> namespaces;
      auto const addNamespaces = [&](std::string nameSpace) {
         while (!nameSpace.empty()) {
            namespaces.insert(nameSpace);
            size_t const end = nameSpace.rfind("::");
            nameSpace.resize(end == std::string::npos ? 0 : end);
         }
      };
      for (auto const& type : model_.types)
         addNamespaces(type->nameSpace);
      for (auto const& entity : model_.entities)
         addNamespaces(entity->nameSpace);
      for (size_t i = 0; i < model_.entities.size(); ++i) {
         auto& entity = *model_.entities[i];
         entity.id = static_cast<int>(i);
         declare(entity, namespaces);
         entities_.emplace(entity.fullName(), &entity);
      }
      for (auto& type : model_.types) {
         declare(*type, namespaces);
         types_.emplace(type->fullName(), type.get());
      }
   }
   template <class Declared>
   void declare(Declared const& declared, std::set<std::string> const& namespaces) {
      std::string const name = declared.fullName();
      if (entities_.contains(name) || types_.contains(name))
         model_.error(declared.at, '`' + name + "` is declared twice");
      if (declared.at.line == 0)
         return; // built in
      if (namespaces.contains(name))
         model_.error(declared.at, '`' + name + "` is a namespace, too");
      checkName(declared.name, declared.at);
      checkMeaning(declared.meaning, declared.name, declared.at);
   }

   // In the namespace itself, then in those around it.
   template <class Found>
   Found find(std::map<std::string, Found> const& all, std::string nameSpace, std::string const& name) const {
      for (;;) {
         auto const at = all.find(nameSpace.empty() ? name : nameSpace + "::" + name);
         if (at != all.end())
            return at->second;
         if (nameSpace.empty())
            return nullptr;
         size_t const end = nameSpace.rfind("::");
         nameSpace.resize(end == std::string::npos ? 0 : end);
      }
   }
   ValueType* findValueType(std::string const& nameSpace, TypeName const& name) {
      if (auto* type = find(types_, nameSpace, name.text))
         return type;
      if (find(entities_, nameSpace, name.text))
         model_.error(name.at, '`' + name.text + "` is an entity; a value type is expected");
      else
         model_.error(name.at, "there is no type `" + name.text + '`');
      return nullptr;
   }
   Entity* findEntity(std::string const& nameSpace, TypeName const& name) {
      if (auto* entity = find(entities_, nameSpace, name.text))
         return entity;
      if (find(types_, nameSpace, name.text))
         model_.error(name.at, '`' + name.text + "` is a value type; an entity is expected");
      else
         model_.error(name.at, "there is no entity `" + name.text + '`');
      return nullptr;
   }

   // --- Value types

   void resolveNumberType(ValueType& type) {
      auto const* base = findValueType(type.nameSpace, type.baseName);
      if (!base)
         return;
      std::string const& name = type.baseName.text;
      bool const isFit = type.isEnum() ? name == "u8" || name == "u32"
                                       : name == "u8" || name == "u16" || name == "u32" || name == "u64";
      if (!isFit) {
         model_.error(type.baseName.at, '`' + name + "` can't be the base: " +
                                            (type.isEnum() ? "of an enumeration it is u8 or u32"
                                                           : "of a type it is u8, u16, u32 or u64"));
         return;
      }
      type.cppBase = base->cppBase;
      type.max = base->max;
      if (type.isEnum())
         checkEnumerators(type);
      else
         resolveRange(type, *base);
   }

   void checkEnumerators(ValueType& type) {
      if (type.enumerators.empty())
         model_.error(type.at, '`' + type.name + "` has no enumerator");
      std::set<std::string> names;
      std::map<uint64_t, std::string> numbers;
      for (auto const& e : type.enumerators) {
         checkName(e.name, e.at);
         checkMeaning(e.meaning, e.name, e.at);
         if (!names.insert(e.name).second)
            model_.error(e.at, '`' + e.name + "` is declared twice");
         if (e.number > type.max)
            model_.error(e.at, std::to_string(e.number) + " does not fit into " + type.baseName.text);
         if (auto const [at, isNew] = numbers.emplace(e.number, e.name); !isNew)
            model_.error(e.at, '`' + e.name + "` has the number of `" + at->second + '`');
      }
      if (!type.isOpen && !numbers.empty())
         closeRange(type, numbers);
   }

   // The legal numbers of a closed enumeration are a range, so that checking one is two comparisons.
   void closeRange(ValueType& type, std::map<uint64_t, std::string> const& numbers) {
      type.min = numbers.begin()->first;
      type.max = numbers.rbegin()->first;
      if (type.max - type.min >= numbers.size())
         model_.error(type.at, '`' + type.name +
                                   "` leaves a gap: the numbers of an enumeration that isn't open "
                                   "follow one another");
      type.rangeText = rangeText(type, std::to_string(type.min), std::to_string(type.max));
   }

   static std::string rangeText(ValueType const& type, std::string const& min, std::string const& max) {
      return type.name + "::value" + (type.min > 0 ? " < " + min + " or" : "") + " > " + max + " not allowed";
   }

   void resolveRange(ValueType& type, ValueType const& base) {
      type.kind = base.kind;
      if (type.minText) {
         std::string const problem = literalProblem(base, type.minText) + literalProblem(base, type.maxText);
         if (!problem.empty()) {
            model_.error(type.minText.at, "the range does not fit into " + base.name + ": " + problem);
            return;
         }
         type.min = numberOf(base, type.minText);
         type.max = numberOf(base, type.maxText);
         if (type.min > type.max) {
            model_.error(type.minText.at,
                         "the range is empty: " + type.minText.text + " is above " + type.maxText.text);
            return;
         }
         type.rangeText = rangeText(type, type.minText.text, type.maxText.text);
      }
      checkLiteral(type, type.initial);
   }

   void resolveFields(ValueType& type) {
      std::set<std::string> names;
      for (auto& field : type.fields) {
         checkName(field.name, field.at);
         checkMeaning(field.meaning, field.name, field.at);
         if (!names.insert(field.name).second)
            model_.error(field.at, '`' + field.name + "` is declared twice");
         if (membersOfStructs.contains(field.name))
            model_.error(field.at, "every value record has a member `" + field.name + '`');
         field.type = findValueType(type.nameSpace, field.typeName);
      }
      if (type.fields.empty())
         model_.error(type.at, '`' + type.name + "` has no field");
      if (type.joint.size() > 1)
         model_.error(type.at, "one character joins the fields of `" + type.name + '`');
   }

   bool contains(ValueType const& outer, ValueType const& inner, int depth = 0) const {
      if (depth > 64)
         return false;
      return std::any_of(outer.fields.begin(), outer.fields.end(), [&](Field const& f) {
         return f.type == &inner || (f.type && contains(*f.type, inner, depth + 1));
      });
   }
   void checkStruct(ValueType& type) {
      if (contains(type, type))
         model_.error(type.at, '`' + type.name + "` contains itself");
      else if (std::all_of(type.fields.begin(), type.fields.end(), [](Field const& f) { return f.type; }) &&
               wireSize(type) > maxWireSize)
         model_.error(type.at, '`' + type.name + "` has more than " + std::to_string(maxWireSize) + " bytes");
      for (auto const& f : type.fields)
         if (!type.joint.empty() && f.type && (f.type->isStruct() || f.type->kind == Kind::float64))
            model_.error(f.at, "a record that is a key can't hold a `" + f.type->fullName() + '`');
      for (auto const& f : type.fields) {
         if (!f.isKey || !f.type)
            continue;
         checkKeyType(*f.type, f.typeName.at);
         // The store compares the first bytes of the record with those of the key.
         if (&f != &type.fields.front())
            model_.error(f.at, "the key comes first among the fields");
         else if (wireSize(*f.type) == 0)
            model_.error(f.typeName.at,
                         "a key in a record has a type of fixed size, unlike `" + f.type->fullName() + '`');
         if (f.initial)
            model_.error(f.initial.at, "a key has no default");
      }
   }

   void resolveWhile(ValueType const& type, Field& field) {
      if (field.whileName.text.empty())
         return;
      auto const isNumber = [](Field const& f) {
         return f.type->kind == Kind::u8 || f.type->kind == Kind::u16 || f.type->kind == Kind::u32 ||
                f.type->kind == Kind::u64 || f.type->isEnum();
      };
      auto const other = std::find_if(type.fields.begin(), type.fields.end(),
                                      [&](Field const& f) { return f.name == field.whileName.text; });
      if (other == type.fields.end())
         model_.error(field.whileName.at, '`' + type.name + "` has no field `" + field.whileName.text + '`');
      else if (!isNumber(field) || !isNumber(*other) || &*other == &field)
         model_.error(field.whileName.at, "one number can be nonzero while another has a value");
      else if (std::string const problem = literalProblem(*other->type, field.whileValue); !problem.empty())
         model_.error(field.whileValue.at, "bad value: " + problem);
      else if (field.whileNumber = numberOf(*other->type, field.whileValue);
               numberOf(*field.type, field.initial) == 0 &&
               numberOf(*other->type, other->initial) == field.whileNumber)
         model_.error(field.at,
                      "the defaults of `" + type.name + "` break the condition on `" + field.name + '`');
      else {
         field.whileField = static_cast<int>(other - type.fields.begin());
         field.whileText = type.name + "::" + field.name + " 0 while " + other->name + " is " +
                           field.whileValue.text + " not allowed";
      }
   }

   // The value types of a namespace are in one header, which includes those of the namespaces that it uses.
   void checkNamespaces() {
      std::map<std::string, std::set<std::string>> uses; // and what those use in turn
      for (auto const& type : model_.types)
         for (auto const& f : type->fields)
            if (f.type && !f.type->isBuiltIn && f.type->nameSpace != type->nameSpace)
               uses[type->nameSpace].insert(f.type->nameSpace);
      for (size_t round = 0; round < uses.size(); ++round)
         for (auto& [user, used] : uses)
            for (auto const& name : std::set<std::string>(used))
               if (auto const at = uses.find(name); at != uses.end())
                  used.insert(at->second.begin(), at->second.end());
      for (auto const& type : model_.types)
         for (auto const& f : type->fields) {
            if (!f.type || f.type->isBuiltIn || f.type->nameSpace == type->nameSpace)
               continue;
            auto const at = uses.find(f.type->nameSpace);
            if (at == uses.end() || !at->second.contains(type->nameSpace))
               continue;
            model_.error(f.typeName.at, "value types of `" + type->nameSpace + "` and `" + f.type->nameSpace +
                                            "` hold each other, so neither header can come first");
            return;
         }
   }

   void checkLiteral(ValueType const& type, Literal const& literal) {
      if (std::string const problem = literalProblem(type, literal); !problem.empty())
         model_.error(literal.at, "bad default: " + problem);
   }

   // --- Entities

   void resolveBase(Entity& entity) {
      if (entity.baseName.text.empty())
         return;
      entity.base = findEntity(entity.nameSpace, entity.baseName);
      if (!entity.base)
         return;
      if (entity.base->isDirectory())
         model_.error(entity.baseName.at, "nothing derives from `Kem::Dir`");
      entity.base->isBase = true;
      for (auto const* b = entity.base; b; b = b->base) {
         if (b != &entity)
            continue;
         model_.error(entity.baseName.at, '`' + entity.name + "` is a base of itself");
         entity.base = nullptr;
         return;
      }
   }

   // Inherited attributes come first, and a base may be declared after what derives from it.
   void gatherAttributes(Entity& entity) {
      if (!entity.all.empty())
         return;
      if (entity.base) {
         gatherAttributes(*entity.base);
         entity.all = entity.base->all;
         entity.key = entity.base->key;
      }
      std::map<std::string, std::string> functions; // by name: the attribute that they are of
      for (auto const* inherited : entity.all)
         addFunctions(functions, *inherited);
      for (auto& attribute : entity.own) {
         attribute.owner = &entity;
         attribute.number = static_cast<int>(entity.all.size());
         entity.all.push_back(&attribute);
         checkName(attribute.name, attribute.at);
         if (!entity.isDirectory())
            checkMeaning(attribute.meaning, attribute.name, attribute.at);
         if (membersOfRecords.contains(attribute.name))
            model_.error(attribute.at, "every record has something named `" + attribute.name + '`');
         if (attribute.isParameter() && attribute.name == "key")
            model_.error(attribute.at, "`key` names the key of a collection among the parameters");
         if (attribute.name[0] < 'a' || attribute.name[0] > 'z')
            model_.error(attribute.at, "the name of an attribute begins with a small letter");
         addFunctions(functions, attribute);
         if (!attribute.isKey)
            continue;
         if (entity.key)
            model_.error(attribute.at,
                         '`' + attribute.name + "` is a second key besides `" + entity.key->name + '`');
         entity.key = &attribute;
      }
      if (entity.all.size() > maxAttributes)
         model_.error(entity.at, '`' + entity.name + "` has " + std::to_string(entity.all.size()) +
                                     " attributes; more than " + std::to_string(maxAttributes) + " can't be");
   }

   void addFunctions(std::map<std::string, std::string>& functions, Attribute const& a) {
      std::vector<std::string> names = {a.name, a.name + "Is"};
      if (a.isCollection())
         names.insert(names.end(), {a.name + "Del", a.name + "DelAll", capital(a.name) + "Map"});
      if (a.form == Form::children)
         names.push_back("new" + capital(a.name));
      if (a.isCounter)
         names.insert(names.end(), {a.name + "Inc", a.name + "Dec"});
      for (auto const& name : names) {
         auto const [at, isNew] = functions.emplace(name, a.name);
         if (isNew)
            continue;
         model_.error(a.at, at->second == a.name
                                ? '`' + a.name + "` is declared twice"
                                : '`' + a.name + "` and `" + at->second + "` both make `" + name + '`');
         return;
      }
   }

   // Of what is no attribute.
   void checkSideName(Entity const& entity, std::string const& name, std::string const& meaning,
                      SourcePoint const& at) {
      checkName(name, at);
      checkMeaning(meaning, name, at);
      if (membersOfRecords.contains(name))
         model_.error(at, "every record has something named `" + name + '`');
      for (auto const* a : entity.all)
         if (a->name == name)
            model_.error(at, '`' + name + "` is declared twice");
   }

   // After the attributes of all entities.
   void resolveKeys(Entity& entity, Attribute& a) {
      if (a.isMulticast && (!a.isCollection() || a.key->kind != Kind::ethAddr))
         model_.error(a.at, "only keys that are Ethernet addresses can be multicast");
      if (a.apartName.text.empty())
         return;
      Attribute* other = nullptr;
      for (auto& candidate : entity.own)
         if (candidate.name == a.apartName.text)
            other = &candidate;
      if (!other)
         model_.error(a.apartName.at,
                      '`' + entity.name + "` declares no attribute `" + a.apartName.text + '`');
      else if (!a.isCollection() || !other->isCollection() || other == &a || other->key != a.key)
         model_.error(a.apartName.at, "two collections with keys of one type can be kept apart");
      else if (a.apart || other->apart)
         model_.error(a.apartName.at, "a collection can be kept apart from one other");
      else
         a.apart = other, other->apart = &a;
   }

   void resolveUnless(Entity const& entity, Attribute& a) {
      if (a.unlessName.text.empty())
         return;
      for (auto const* other : entity.all)
         if (other->name == a.unlessName.text)
            a.unless = other;
      if (a.form != Form::scalar || a.value->kind != Kind::boolean || a.isKey)
         model_.error(a.at, "only a bool can be overruled by another attribute");
      else if (!a.unless)
         model_.error(a.unlessName.at, '`' + entity.name + "` has no attribute `" + a.unlessName.text + '`');
      else if (a.unless->form != Form::scalar || !a.unless->value->isEnum())
         model_.error(a.unlessName.at, "an attribute of one enumerator is expected");
      else
         checkLiteral(*a.unless->value, a.unlessValue);
   }

   // After the attributes of all entities.
   void resolveComputed(Entity& entity) {
      for (auto& c : entity.computed) {
         checkSideName(entity, c.name, c.meaning, c.at);
         c.value = findValueType(entity.nameSpace, c.valueName);
         if (!c.value)
            continue;
         Attribute const* from = nullptr;
         for (auto const* a : entity.all)
            if (a->name == c.from.text)
               from = a;
         bool const isUnsigned =
             c.value->isBuiltIn && c.value->kind >= Kind::u8 && c.value->kind <= Kind::u64;
         if (!from)
            model_.error(c.from.at, '`' + entity.name + "` has no attribute `" + c.from.text + '`');
         else if (!isUnsigned || from->form != Form::scalar || from->value != c.value)
            model_.error(c.from.at, "an attribute of one unsigned number, and of the same type, is expected");
         else
            checkLiteral(*c.value, c.less);
      }
   }

   void resolveAttribute(Entity const& entity, Attribute& a) {
      if (entity.isDirectory())
         return;
      bool const isPlain = a.form == Form::scalar;
      if (a.isCollection())
         a.key = findValueType(entity.nameSpace, a.keyName);
      if (isPlain || a.form == Form::map)
         a.value = findValueType(entity.nameSpace, a.valueName);
      else
         a.target = findEntity(entity.nameSpace, a.valueName);
      if (a.key)
         checkKeyType(*a.key, a.keyName.at);
      if (a.isKey && a.value)
         checkKeyType(*a.value, a.valueName.at);
      if ((a.isReadOnly() || a.isInitial) && !isPlain)
         model_.error(a.at, '`' + a.name + "` is given to the constructor, so it holds one value");
      if (a.isOrdered && !a.isCollection())
         model_.error(a.at, '`' + a.name + "` is no collection, so it has no order");
      if (a.isCounter && a.value &&
          (!isPlain || (a.value->kind != Kind::u32 && a.value->kind != Kind::u64) || a.value->isNumber))
         model_.error(a.valueName.at, "a counter is a u32 or a u64");
      if (a.initial && !isPlain)
         model_.error(a.initial.at, "only an attribute of one value has a default");
      else if (a.initial && a.isKey)
         model_.error(a.initial.at, "a key has no default");
      else if (a.value)
         checkLiteral(*a.value, a.initial);
      if (a.target && a.target->isDirectory())
         model_.error(a.valueName.at, "a directory stands in directories only");
   }
   void checkKeyType(ValueType const& type, SourcePoint const& at) {
      if (type.kind == Kind::float64)
         model_.error(at, "a double can't be a key");
      else if (type.isStruct() && type.joint.empty())
         model_.error(at, "the record `" + type.fullName() +
                              "` is no key: it says not what its fields are joined by");
   }

   void checkKey(Attribute const& a) {
      Field const* const own = a.form == Form::map ? a.value->keyField() : nullptr;
      if (own && own->type != a.key)
         model_.error(a.keyName.at, "the key is a `" + a.key->fullName() + "`, that of `" +
                                        a.value->fullName() + "` is a `" + own->type->fullName() + '`');
      if (!a.target || !a.isCollection() || !a.key)
         return;
      if (!a.target->key)
         model_.error(a.valueName.at, '`' + a.target->fullName() + "` has no key, so it can't be a member");
      else if (a.target->key->value != a.key)
         model_.error(a.keyName.at, "the key is a `" + a.key->fullName() + "`, that of `" +
                                        a.target->fullName() + "` is a `" + a.target->key->value->fullName() +
                                        '`');
   }

   // --- The tree

   void resolvePlaces() {
      std::map<std::pair<bool, std::string>, Place*> declared;
      for (auto& place : model_.places) {
         checkMeaning(place.meaning, place.path, place.at);
         checkPath(place);
         if (!declared.emplace(std::pair(place.isCell, place.path), &place).second)
            model_.error(place.at, "the place \"" + place.path + "\" is declared twice");
         place.type = findEntity("", place.typeName);
      }
      std::set<std::pair<bool, std::string>> done;
      std::vector<Place> ordered;
      auto const add = [&](auto const& self, Place const& place) -> void {
         if (!done.emplace(place.isCell, place.path).second)
            return;
         if (size_t const end = place.path.rfind('/'); end != std::string::npos) {
            Place above;
            above.path = place.path.substr(0, end);
            above.isCell = place.isCell;
            above.at = place.at;
            above.type = model_.entities.front().get();
            if (auto const at = declared.find({above.isCell, above.path}); at != declared.end())
               above = *at->second;
            if (above.type && !above.type->isDirectory())
               model_.error(place.at, "\"" + place.path + "\" has no parent: \"" + above.path + "\" is a `" +
                                          above.type->fullName() + "`, no directory");
            self(self, above);
         }
         ordered.push_back(place);
      };
      for (auto const& place : model_.places)
         add(add, place);
      model_.places = std::move(ordered);
   }
   void checkPath(Place const& place) {
      std::string const& p = place.path;
      if (p.empty() || p.front() == '/' || p.back() == '/' || p.find("//") != std::string::npos)
         model_.error(place.at, "\"" + p + "\" is no path: names with one / between them");
      else if (p.find_first_of(".[]\" ") != std::string::npos)
         model_.error(place.at, "\"" + p + "\" is no path: a name has no . [ ] or blank in it");
   }

   Model& model_;
   std::map<std::string, ValueType*> types_;
   std::map<std::string, Entity*> entities_;
};

} // namespace

void addBuiltIns(Model& model) {
   auto const add = [&](std::string nameSpace, std::string name, Kind kind, std::string cpp,
                        std::string meaning) {
      auto type = std::make_unique<ValueType>();
      type->nameSpace = std::move(nameSpace);
      type->name = std::move(name);
      type->kind = kind;
      type->cppBase = std::move(cpp);
      type->meaning = std::move(meaning);
      type->isBuiltIn = true;
      if (kind <= Kind::u64)
         type->max = maxOf(kind);
      model.types.push_back(std::move(type));
      return model.types.back().get();
   };
   add("", "bool", Kind::boolean, "bool", "True or false.");
   add("", "u8", Kind::u8, "uint8_t", "Unsigned number of 8 bits.");
   add("", "u16", Kind::u16, "uint16_t", "Unsigned number of 16 bits.");
   add("", "u32", Kind::u32, "uint32_t", "Unsigned number of 32 bits.");
   add("", "u64", Kind::u64, "uint64_t", "Unsigned number of 64 bits.");
   add("", "s16", Kind::s16, "int16_t", "Signed number of 16 bits.");
   add("", "s32", Kind::s32, "int32_t", "Signed number of 32 bits.");
   add("", "s64", Kind::s64, "int64_t", "Signed number of 64 bits.");
   add("", "double", Kind::float64, "double", "Floating point number of 64 bits.");
   add("", "string", Kind::string, "Kem::String8", "Bytes, most often text.");
   add("Kem", "Name", Kind::string, "Kem::Name", "A short name.");
   add("Sulvi", "IntfId", Kind::intfId, "Sulvi::IntfId", "Name of an interface, such as \"Ethernet3/1\".");
   add("Sulvi", "EthAddr", Kind::ethAddr, "Sulvi::EthAddr", "Ethernet MAC address; all zeros for none.");
   auto* nsName = add("Sulvi", "NamespaceName", Kind::namespaceName, "Sulvi::NamespaceName",
                      "Name of a network namespace; empty for the default one.");
   nsName->max = 150;
   nsName->rangeText = "NamespaceName::bytes > 150 not allowed";

   auto dir = std::make_unique<Entity>();
   dir->nameSpace = "Kem";
   dir->name = "Dir";
   dir->meaning = "A directory: named entities of any type, directories among them.";
   Attribute children;
   children.name = "entityPtr";
   children.meaning = "What stands in the directory, by name.";
   children.form = Form::children;
   children.isOrdered = true;
   children.key = model.types[10].get();
   dir->own.push_back(children);
   model.entities.push_back(std::move(dir));
}

void resolve(Model& model) {
   Resolver(model).run();
   std::stable_sort(model.errors.begin(), model.errors.end(), [](SchemaError const& a, SchemaError const& b) {
      return std::tie(a.at.file, a.at.line, a.at.column) < std::tie(b.at.file, b.at.line, b.at.column);
   });
}

} // namespace RecordGen
