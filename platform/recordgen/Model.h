// What a schema declares, after reading: value types, entities and the places of the
// tree, in the order of declaration.
//
// The parser fills in what is in the files, and names of types as they were written; the
// resolver fills in what they mean and checks it. The emitters only read. Everything is owned by
// Model and lives as long as it does.
#pragma once

#include "records/Schema.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace RecordGen {

using Records::Form;
using Records::Kind;

// Where something is in a schema file; line and column count from 1, line 0 is a built-in type.
struct SourcePoint {
   std::string file;
   int line = 0;
   int column = 0;
};

// A problem of the schema: reads "file:line:column: what and why".
struct SchemaError {
   SourcePoint at;
   std::string text;
   std::string message() const {
      return at.file + ':' + std::to_string(at.line) + ':' + std::to_string(at.column) + ": " + text;
   }
};

// A value as written behind "=".
struct Literal {
   enum class Kind { none, number, string, word };
   Kind kind = Kind::none;
   std::string text; // a string without its quotes
   SourcePoint at;
   explicit operator bool() const { return kind != Kind::none; }
};

// A type as written; empty where none was.
struct TypeName {
   std::string text;
   SourcePoint at;
};

struct ValueType;
struct Entity;

struct Enumerator {
   std::string name;
   std::string meaning;
   SourcePoint at;
   uint64_t number = 0;
};

struct Field {
   std::string name;
   std::string meaning;
   SourcePoint at;
   bool isKey = false; // as a member of a map, the record is under this value
   TypeName typeName;
   Literal initial;
   TypeName whileName; // of the field that forbids 0 here while it is `whileValue`; empty for none
   Literal whileValue;
   ValueType const* type = nullptr;
   int whileField = -1;      // position of that field
   uint64_t whileNumber = 0; // number of its value
   std::string whileText;    // what 0 is refused with
};

// A built-in type, a `type`, an `enum` or a `struct`.
struct ValueType {
   std::string nameSpace; // "Bridging::Input"; empty for a built-in type
   std::string name;      // "VlanId"; of a built-in type as the schema spells it
   std::string meaning;
   SourcePoint at;
   Kind kind = Kind::boolean; // of a `type` or `enum` that of its wire form
   bool isBuiltIn = false;
   bool isNumber = false;    // a `type`: a number with a class of its own
   bool isOpen = false;      // an `enum`: numbers without a name are legal, too
   TypeName baseName;        // of a `type` and an `enum`
   std::string cppBase;      // the C++ number under a `type` or an `enum`; of a built-in type its C++ name
   Literal minText, maxText; // range as written, none without one
   uint64_t min = 0, max = 0;
   std::string rangeText; // what a number outside is refused with; empty where all are legal
   Literal initial;
   std::vector<Enumerator> enumerators;
   std::vector<Field> fields;
   std::string joint;

   std::string fullName() const { return nameSpace.empty() ? name : nameSpace + "::" + name; }
   bool isStruct() const { return kind == Kind::record; }
   bool isEnum() const { return kind == Kind::enumeration; }
   // The field that holds the key of a member, null without one. The resolver makes sure that it is
   // the first.
   Field const* keyField() const {
      return !fields.empty() && fields.front().isKey ? &fields.front() : nullptr;
   }
   Enumerator const* findEnumerator(std::string const& enumerator) const {
      for (auto const& e : enumerators)
         if (e.name == enumerator)
            return &e;
      return nullptr;
   }
};

struct Attribute {
   std::string name;
   std::string meaning;
   SourcePoint at;
   Form form = Form::scalar;
   bool isKey = false;     // under which the entity is in a collection
   bool isInput = false;   // given to the constructor, read-only afterwards
   bool isInitial = false; // given to the constructor, with a mutator afterwards
   bool isOrdered = false;
   bool isCounter = false;
   bool isMulticast = false;    // keys are multicast addresses
   TypeName apartName;          // of a collection that has none of these keys; empty for none
   TypeName keyName, valueName; // valueName also names the target of children and references
   Literal initial;
   TypeName
       unlessName; // of an attribute: while that is `unlessValue`, this one reads as false; empty for none
   Literal unlessValue;
   std::string unit;
   ValueType const* key = nullptr;
   ValueType const* value = nullptr;
   Entity* target = nullptr;
   Attribute const* unless = nullptr;
   Attribute const* apart = nullptr; // both of two that are kept apart have the other
   Entity const* owner = nullptr;    // that declares it
   int number = 0;                   // position in the entity, inherited ones first

   bool isReadOnly() const { return isKey || isInput; }
   bool isParameter() const { return isInput || isInitial; } // of the constructor, behind the key
   bool isCollection() const { return form != Form::scalar && form != Form::reference; }
};

// A number that a record computes and does not hold: an attribute less a constant, 0 where that is greater.
struct Computed {
   std::string name;
   std::string meaning;
   SourcePoint at;
   TypeName valueName;
   TypeName from; // the attribute, as written
   Literal less;
   std::string unit;
   ValueType const* value = nullptr;
};

// An object that a record points at inside one process, such as a shared-memory table. Its changes
// notify nobody.
struct Local {
   std::string name;
   std::string meaning;
   SourcePoint at;
};

struct Entity {
   std::string nameSpace;
   std::string name;
   std::string meaning;
   SourcePoint at;
   TypeName baseName;
   std::vector<Attribute> own;
   std::vector<Computed> computed;
   std::vector<Local> locals;
   Entity* base = nullptr;
   bool isBase = false;               // others derive from it
   std::vector<Attribute const*> all; // inherited ones first
   Attribute const* key = nullptr;    // may be inherited
   int id = 0;

   std::string fullName() const { return nameSpace.empty() ? name : nameSpace + "::" + name; }
   bool isDirectory() const { return id == 0; }
   // Constructor parameters behind the key, inherited ones first.
   std::vector<Attribute const*> parameters() const {
      std::vector<Attribute const*> result;
      for (auto const* a : all)
         if (a->isParameter())
            result.push_back(a);
      return result;
   }
};

struct Place {
   std::string path;
   std::string meaning;
   SourcePoint at;
   TypeName typeName;
   bool isCell = false;
   Entity const* type = nullptr;
};

struct Model {
   std::vector<std::string> files; // as they were given
   std::vector<std::unique_ptr<ValueType>> types;
   std::vector<std::unique_ptr<Entity>> entities; // position is the number of the type; 0 is Kem::Dir
   std::vector<Place> places; // after resolving: parents first, directories on the way too
   std::vector<SchemaError> errors;

   void error(SourcePoint const& at, std::string text) { errors.push_back({at, std::move(text)}); }
};

} // namespace RecordGen
