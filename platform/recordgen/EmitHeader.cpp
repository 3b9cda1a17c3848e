// The header of an entity: the class, and the base of its reactors.
#include "Emit.h"
#include "EntityWords.h"
#include "Values.h"

namespace RecordGen {

namespace {

class HeaderEmitter {
  public:
   HeaderEmitter(Names const& names, Entity const& entity) : names_(names), entity_(entity) {
      words_ = {{"C", entity.name},
                {"Base", entity.base ? names.of(*entity.base, entity.nameSpace) : "Kem::Record"},
                {"final", entity.isBase ? "" : " final"}};
   }

   std::string run() {
      putStart();
      out_.comment(entity_.meaning);
      out_.put("class $C$final : public $Base {\n public:", words_);
      putNumbers();
      putConstruction();
      for (auto const& a : entity_.own)
         putAttribute(a);
      for (auto const& c : entity_.computed)
         putComputed(c);
      for (auto const& l : entity_.locals)
         putLocal(l);
      putOverrides();
      putData();
      out_.put("};");
      putNotifiee();
      out_.gap().put(closeNamespace(entity_.nameSpace));
      return out_.str();
   }

  private:
   void putStart() {
      std::set<std::string> headers = {"Kem/Record.h", "records/Reactor.h"};
      std::map<std::string, std::set<std::string>> forward; // by namespace
      if (entity_.base)
         headers.insert(headerOf(*entity_.base));
      for (auto const* a : entity_.all) {
         if (a->key)
            addHeader(headers, *a->key);
         if (a->value)
            addHeader(headers, *a->value);
      }
      for (auto const& a : entity_.own) {
         if (!a.target)
            continue;
         forward[a.target->nameSpace].insert(a.target->name);
         if (a.form == Form::children) // what newX takes
            for (auto const* parameter : a.target->parameters())
               addHeader(headers, *parameter->value);
      }
      out_.put(banner(stemOf(entity_.at.file) + ".schema")).put("#pragma once").gap();
      for (auto const& header : headers)
         out_.put("#include \"" + header + '"');
      out_.gap().put("#include <memory>").gap();
      forward[entity_.nameSpace].erase(entity_.name);
      for (auto const& [nameSpace, classes] : forward) {
         if (nameSpace == entity_.nameSpace || classes.empty())
            continue;
         out_.put("namespace " + nameSpace + " {");
         for (auto const& name : classes)
            out_.put("class " + name + ';');
         out_.put(closeNamespace(nameSpace)).gap();
      }
      out_.put(openNamespace(entity_.nameSpace)).gap();
      for (auto const& name : forward[entity_.nameSpace])
         out_.put("class " + name + ';');
      out_.gap();
   }

   void putNumbers() {
      for (auto const& a : entity_.own)
         if (bearsItsType(a))
            out_.put("   using $X = $T;", {{"X", a.value->name}, {"T", "::" + a.value->fullName()}});
      out_.put("   enum : Kem::AttrId {");
      for (auto const& a : entity_.own)
         out_.put("      $id = $n,", {{"id", 'k' + capital(a.name)}, {"n", std::to_string(a.number)}});
      out_.put("      kAttributeCount = " + std::to_string(entity_.all.size()) + ",\n   };");
   }

   void putConstruction() {
      std::string const& ns = entity_.nameSpace;
      out_.put(R"(   class NotifieeConst;
   static Kem::TypeInfo const typeInfo_;

   // Born with one reference, which is returned.
   static Kem::Ptr<$C> make($parameters);
   ~$C() override;
)",
               {{"C", entity_.name}, {"parameters", parameters(names_, entity_, ns, Defaults::shown)}});
   }

   void putAttribute(Attribute const& a) {
      Words words = wordsOf(names_, entity_, a);
      out_.gap().comment(a.meaning + unlessText(a) + keysText(a) + limits(a), 3);
      switch (a.form) {
      case Form::scalar:
         putScalar(a, words);
         break;
      case Form::reference:
         out_.put("   Kem::Ptr<$T> $x() const;\n   void $x~Is(Kem::Ptr<$T> const& value); // null is legal",
                  words);
         break;
      case Form::map:
         putMap(a, words);
         break;
      case Form::children:
         putChildren(a, words);
         break;
      case Form::references:
         putReferences(a, words);
         break;
      }
   }

   // " Range 1 to 4094, default 1, unit s.", as far as there is something to say.
   static std::string limits(Attribute const& a) {
      std::vector<std::string> parts;
      if (a.value && a.value->isNumber && !a.value->rangeText.empty())
         parts.push_back("range " + (a.value->minText.text + " to ") + a.value->maxText.text);
      if (a.form == Form::scalar && !a.isKey)
         if (std::string const initial = valueText(*a.value, a.initial); !initial.empty())
            parts.push_back("default " + initial);
      parts.push_back(unitOf(a.unit));
      return sentence(parts);
   }
   static std::string unitOf(std::string const& unit) { return unit.empty() ? "" : "unit " + unit; }
   static std::string sentence(std::vector<std::string> parts) {
      std::erase(parts, "");
      return parts.empty() ? "" : ' ' + capital(join(parts, ", ")) + '.';
   }

   void putScalar(Attribute const& a, Words const& words) {
      if (a.unless)
         out_.put("   $in $x() const { return $x~_ && " + a.unless->name + "() != " +
                      names_.of(*a.unless->value, entity_.nameSpace) + "::" + a.unlessValue.text + "; }",
                  words);
      else
         out_.put("   $in $x() const { return $x~_; }", words);
      if (!a.isReadOnly())
         out_.put("   void $x~Is($in value);", words);
      if (a.isCounter)
         out_.put("   void $x~Inc($T count = 1);\n   void $x~Dec($T count = 1);", words);
   }

   void putComputed(Computed const& c) {
      out_.gap().comment(c.meaning + sentence({unitOf(c.unit)}), 3);
      out_.put("   $T $x() const { return $from() > $less ? $from() - $less : 0; }",
               {{"T", names_.of(*c.value, entity_.nameSpace)},
                {"x", c.name},
                {"from", c.from.text},
                {"less", c.less.text}});
   }

   void putLocal(Local const& l) {
      out_.gap().comment(l.meaning + " Of this process only: nobody is told.", 3);
      out_.put("   Kem::Ptr<Kem::Entity> const& $x() const { return $x~_; }\n"
               "   void $x~Is(Kem::Ptr<Kem::Entity> value) { $x~_ = std::move(value); }",
               {{"x", l.name}});
   }

   // Its value record has the same name: the class is a second place to find it by.
   bool bearsItsType(Attribute const& a) const {
      return a.form == Form::scalar && a.value->isStruct() && a.value->nameSpace == entity_.nameSpace &&
             a.value->name == capital(a.name);
   }

   void putMap(Attribute const& a, Words words) {
      words["Table"] = a.isOrdered ? "OrderedValueMap" : "ValueMap";
      out_.put("   using $Map = Kem::$Table<$K, $T>;", words);
      if (a.value->kind == Kind::boolean)
         out_.put("   bool $x($kin key) const; // false when there is none", words);
      else
         out_.put("   $T const* $x($kin key) const; // null when there is none", words);
      out_.put(R"(   $Map const& $x() const { return $x~_; }
   void $x~Is($kin key, $in value);
   void $x~Del($kin key);
   void $x~DelAll();
)",
               words);
   }

   void putChildren(Attribute const& a, Words words) {
      words["Table"] = a.isOrdered ? "RbTreeMap" : "HashMap";
      words["parameters"] = parameters(names_, *a.target, entity_.nameSpace, Defaults::shown, "key");
      out_.put(R"(   using $Map = Kem::$Table<$T, $K>;
   Kem::Ptr<$T> $x($kin key) const; // null when there is none
   $Map const& $x() const { return $x~_; }
)",
               words);
      if (a.target->parameters().empty())
         out_.put("   Kem::Ptr<$T> $x~Is($parameters); // the existing one, or a new one", words);
      else
         out_.put("   // The existing one, or a new one. An existing one with other inputs raises a range "
                  "exception.\n"
                  "   Kem::Ptr<$T> $x~Is($parameters);",
                  words);
      if (a.target->isBase)
         out_.put("   // Places it, which may be of a derived class, under its key; another one there is "
                  "removed.\n"
                  "   void $x~Is(Kem::Ptr<$T> const& child);",
                  words);
      out_.put(R"(   Kem::Ptr<$T> new$X($parameters); // replaces an existing one
   void $x~Del($kin key);
   void $x~DelAll();
)",
               words);
   }

   void putReferences(Attribute const& a, Words words) {
      words["Table"] = a.isOrdered ? "RbTreeMap" : "HashMap";
      out_.put(R"(   using $Map = Kem::$Table<$T, $K>;
   Kem::Ptr<$T> $x($kin key) const; // null when there is none
   $Map const& $x() const { return $x~_; }
   void $x~Is(Kem::Ptr<$T> const& record); // under its own key; null raises a range exception
   void $x~Del($kin key);
   void $x~DelAll();
)",
               words);
   }

   bool hasOwn(bool (*test)(Attribute const&)) const {
      for (auto const& a : entity_.own)
         if (test(a))
            return true;
      return false;
   }

   void putOverrides() {
      auto const collection = [](Attribute const& a) { return a.isCollection(); };
      auto const single = [](Attribute const& a) { return !a.isCollection(); };
      auto const settable = [](Attribute const& a) { return a.form == Form::scalar; };
      auto const children = [](Attribute const& a) { return a.form == Form::children; };
      auto const members = [](Attribute const& a) {
         return a.form == Form::map || a.form == Form::references;
      };
      auto const map = [](Attribute const& a) { return a.form == Form::map; };
      auto const references = [](Attribute const& a) {
         return a.form == Form::reference || a.form == Form::references;
      };
      out_.gap().put(R"(   // --- Kem::Entity
   char const* attributeString(Kem::AttrId id) const override;
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }
   Kem::AttrId attributeCount() const override { return kAttributeCount; }
   void encodeContents(Kem::AttributeSink& out) const override;
   void encodeDifference(Kem::Entity const& before, Kem::AttributeSink& out) const override;
)");
      if (entity_.key && entity_.key->owner == &entity_)
         out_.put(R"(   std::string keyText() const override;
   bool hasKey() const override { return true; }
   void encodeKey(Wire::Writer& out) const override;
   bool decodeKey(Wire::Reader& in) override;
)");
      if (hasOwn([](Attribute const& a) { return a.isInput; }))
         out_.put("   bool hasSameInputs(Kem::Entity const& other) const override;");
      if (hasOwn([](Attribute const&) { return true; }))
         out_.put("   bool isDefault(Kem::AttrId id) const override;");
      if (hasOwn(single))
         out_.put("   bool encodeScalar(Kem::AttrId id, Wire::Writer& out) const override;");
      if (hasOwn(settable))
         out_.put("   bool applySet(Kem::AttrId id, Wire::Reader& in) override;");
      if (hasOwn(members))
         out_.put("   bool encodeMember(Kem::AttrId id, void const* key, Wire::Writer& out) const override;");
      if (hasOwn(map))
         out_.put("   bool applyPut(Kem::AttrId id, Wire::Reader& in) override;");
      if (hasOwn(collection))
         out_.put(
             R"(   void encodeMemberKey(Kem::AttrId id, void const* key, Wire::Writer& out) const override;
   bool visitMemberKey(Kem::AttrId id, Wire::Reader& key,
                       Kem::FunctionRef<void(void const*)> visit) const override;
   bool applyErase(Kem::AttrId id, Wire::Reader& in) override;
)");
      if (hasOwn(references))
         out_.put("   bool applyReference(Kem::AttrId id, void const* key, Kem::Ptr<Kem::Entity> const& "
                  "target) override;");
      if (hasOwn(children))
         out_.put(R"(   Kem::Entity* childByKey(Kem::AttrId id, Wire::Reader& key) override;
   bool placeChild(Kem::AttrId id, Kem::Ptr<Kem::Entity> const& child) override;
   void forEachChild(Kem::FunctionRef<void(Kem::Entity&)> visit) override;
)");
   }

   void putData() {
      out_.gap().put(entity_.isBase ? " protected:\n   $C();" : " private:\n   $C();", words_);
      std::string const list = parameters(names_, entity_, entity_.nameSpace, Defaults::left);
      if (!list.empty())
         out_.put(list.find(',') == std::string::npos ? "   explicit $C($list);" : "   $C($list);",
                  {{"C", entity_.name}, {"list", list}});
      if (entity_.own.empty() && entity_.locals.empty())
         return;
      out_.gap();
      if (entity_.isBase)
         out_.put(" private:");
      for (auto const& l : entity_.locals)
         out_.put("   Kem::Ptr<Kem::Entity> $x~_;", {{"x", l.name}});
      for (auto const& a : entity_.own) {
         Words words = wordsOf(names_, entity_, a);
         if (a.form == Form::scalar) {
            std::string const initial = names_.initial(*a.value, a.initial, entity_.nameSpace);
            words["initial"] = initial.empty() ? "" : " = " + initial;
            out_.put("   $T $x~_$initial;", words);
         } else {
            out_.put(a.form == Form::reference ? "   Kem::Ptr<$T> $x~_;" : "   $Map $x~_;", words);
         }
      }
   }

   // --- The base of reactors

   void putNotifiee() {
      Words words = words_;
      words["Parent"] = entity_.base ? words_["Base"] + "::NotifieeConst" : "Kem::Notifiee";
      out_.gap().put("// Follows one record: a reactor overrides, in public, the on... that it wants.\n"
                     "class $C::NotifieeConst : public $Parent {\n public:\n   ~NotifieeConst() override;",
                     words);
      out_.gap();
      if (hasOwn([](Attribute const& a) { return a.isCollection(); }))
         out_.put(R"(   // Of a collection x there are three, all delivered in a later turn of the loop:
   // onX(key)           The member of this key came, went or changed. Once a key, however many changes.
   // onX()              Something in the collection changed. Once, after the keyed ones.
   // onXkemImmediate()  Look at the whole collection: changes were missed, by a reactor that was registered
   //                    again or, in the place of the other two, by one whose delivery was off.)");
      for (auto const& a : entity_.own)
         if (a.isCollection())
            out_.put("   virtual void on$X($kin key) {}\n   virtual void on$X() {}\n"
                     "   virtual void on$X~kemImmediate() {}",
                     wordsOf(names_, entity_, a));
         else if (!a.isReadOnly())
            out_.put("   virtual void on$X() {}", wordsOf(names_, entity_, a));
      out_.gap().put(R"(   Kem::Ptr<$C const> notifier() const;
   // The record already bound: nothing. Another one: unbinds, binds, and runs handleInitialized().
   void notifierIs(Kem::Ptr<$C const> const& record);

 protected:
   explicit NotifieeConst(Kem::Interests interests);
   template <class Derived>
   explicit NotifieeConst(Derived*) : NotifieeConst(interestsOf<Derived>()) {}
)",
                     words);
      putInterests();
      out_.gap().put("   void onAttribute(Kem::AttrId id) override;");
      bool hasCollection = hasOwn([](Attribute const& a) { return a.isCollection(); });
      if (hasCollection) {
         out_.put(R"(   void onMember(Kem::AttrId id) override;
   void onCollectionNotification(Kem::AttrId id) override;
   void memberPending(Kem::AttrId id, void const* key) override;
   void memberPendingClear(Kem::AttrId id) override;

 private:)");
         for (auto const& a : entity_.own)
            if (a.isCollection())
               out_.put("   std::unique_ptr<Kem::PendingKeys<$K>> pending$X~_; // made when first needed",
                        wordsOf(names_, entity_, a));
      }
      out_.put("};");
   }

   void putInterests() {
      out_.gap().put(R"(   template <class Derived>
   static constexpr Kem::Interests interestsOf() {
      static_assert(std::is_final_v<Derived>, "a reactor is final: what it overrides is found out here");)");
      if (entity_.base)
         out_.put("      Kem::Interests wanted = $Base::NotifieeConst::interestsOf<Derived>();", words_);
      else
         out_.put("      Kem::Interests wanted;");
      for (auto const& a : entity_.own) {
         Words const words = wordsOf(names_, entity_, a);
         if (a.isCollection())
            out_.put("      RECORDS_WANTED_COLLECTION(wanted, Derived, NotifieeConst, on$X, $id, $kin);",
                     words);
         else if (!a.isReadOnly())
            out_.put("      RECORDS_WANTED(wanted, Derived, NotifieeConst, on$X, $id);", words);
      }
      out_.put("      return wanted;\n   }");
   }

   Names const& names_;
   Entity const& entity_;
   Words words_;
   Text out_;
};

} // namespace

std::string entityHeader(Names const& names, Entity const& entity) {
   return HeaderEmitter(names, entity).run();
}

} // namespace RecordGen
