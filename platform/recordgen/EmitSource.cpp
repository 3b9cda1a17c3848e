// The source of an entity: what its mutators do, its wire form, and the delivery to its reactors.
#include "Emit.h"
#include "EntityWords.h"
#include "Values.h"

#include <algorithm>

namespace RecordGen {

namespace {

using Test = bool (*)(Attribute const&);

bool isCollection(Attribute const& a) {
   return a.isCollection();
}
bool isScalar(Attribute const& a) {
   return a.form == Form::scalar;
}
bool isMap(Attribute const& a) {
   return a.form == Form::map;
}
bool isChildren(Attribute const& a) {
   return a.form == Form::children;
}
bool isReferences(Attribute const& a) {
   return a.form == Form::references;
}
bool isReference(Attribute const& a) {
   return a.form == Form::reference;
}
bool isAny(Attribute const&) {
   return true;
}

class SourceEmitter {
  public:
   SourceEmitter(Names const& names, Entity const& entity) : names_(names), entity_(entity) {
      words_ = {{"C", entity.name},
                {"Base", entity.base ? names.of(*entity.base, entity.nameSpace) : "Kem::Entity"},
                {"full", entity.fullName()},
                {"number", std::to_string(entity.id)}};
   }

   std::string run() {
      out_.put("// --- " + entity_.fullName()).gap();
      putConstruction();
      for (auto const& a : entity_.own) {
         words_ = wordsOf(names_, entity_, a);
         switch (a.form) {
         case Form::scalar:
            putScalar(a);
            break;
         case Form::reference:
            putReference();
            break;
         case Form::map:
            putMap(a);
            break;
         case Form::children:
            putChildren(a);
            break;
         case Form::references:
            putReferences();
            break;
         }
      }
      words_ = {{"C", entity_.name},
                {"Base", entity_.base ? names_.of(*entity_.base, entity_.nameSpace) : "Kem::Entity"}};
      putNames();
      putKey();
      putWhole();
      putScalarForm();
      putMemberForm();
      putApply();
      putChildAccess();
      putNotifiee();
      return out_.str();
   }

  private:
   void putConstruction() {
      Words words = words_;
      std::string const& ns = entity_.nameSpace;
      words["base"] = entity_.base ? "&" + words_["Base"] + "::typeInfo_" : "nullptr";
      words["parameters"] = parameters(names_, entity_, ns, Defaults::left);
      words["arguments"] = arguments(entity_);
      std::vector<std::string> initializers;
      if (entity_.base && !arguments(*entity_.base).empty())
         initializers.push_back(words_["Base"] + '(' + arguments(*entity_.base) + ')');
      for (auto const& a : entity_.own)
         if (a.isKey || a.isParameter())
            initializers.push_back(a.name + "_(" + a.name + ')');
      words["initializers"] = join(initializers, ", ");
      out_.put(R"(Kem::TypeInfo const $C::typeInfo_ = {"$full", $number, $base, [] {
   return Kem::Ptr<Kem::Entity>(Kem::Ptr<$C>::adopt(new $C));
}};

Kem::Ptr<$C> $C::make($parameters) {)",
               words);
      if (words["arguments"].empty()) {
         out_.put("   return Kem::Ptr<$C>::adopt(new $C);\n}\n\n$C::$C() = default;", words);
      } else {
         out_.put("   return Kem::Ptr<$C>::adopt(new $C($arguments));\n}\n\n$C::$C() = default;", words);
         out_.put("$C::$C($parameters) : $initializers {}", words);
      }
      out_.put("$C::~$C() = default;", words).gap();
   }

   // --- Attributes

   void putScalar(Attribute const& a) {
      if (!a.isReadOnly())
         out_.put("void $C::$x~Is($in value) { scalarIs($x~_, $id, value); }", words_);
      if (a.isCounter)
         out_.put("void $C::$x~Inc($T count) { $x~Is(static_cast<$T>($x~_ + count)); }\n"
                  "void $C::$x~Dec($T count) { $x~Is(static_cast<$T>($x~_ - count)); }",
                  words_);
      out_.gap();
   }

   void putReference() {
      out_.put("Kem::Ptr<$T> $C::$x() const { return $x~_; }\n"
               "void $C::$x~Is(Kem::Ptr<$T> const& value) { scalarIs($x~_, $id, value); }",
               words_)
          .gap();
   }

   void putMap(Attribute const& a) {
      Words words = words_;
      words["member"] = a.value->keyField() ? "value.under(key)" : "value";
      if (a.value->kind == Kind::boolean)
         out_.put("bool $C::$x($kin key) const {\n   auto const* value = $x~_.find(key);\n"
                  "   return value && *value;\n}",
                  words_);
      else
         out_.put("$T const* $C::$x($kin key) const { return $x~_.find(key); }", words_);
      out_.put(R"(void $C::$x~Is($kin key, $in value) { memberIs($x~_, $id, key, $member); }
void $C::$x~Del($kin key) { memberDel($x~_, $id, key); }
void $C::$x~DelAll() { memberDelAll($x~_, $id); }
)",
               words)
          .gap();
   }

   void putFind() {
      out_.put("Kem::Ptr<$T> $C::$x($kin key) const {\n   auto const* standing = $x~_.find(key);\n"
               "   return standing ? *standing : nullptr;\n}",
               words_);
   }

   void putChildren(Attribute const& a) {
      Words words = words_;
      words["parameters"] = parameters(names_, *a.target, entity_.nameSpace, Defaults::left, "key");
      words["arguments"] = arguments(*a.target, "key");
      putFind();
      out_.put("Kem::Ptr<$T> $C::$x~Is($parameters) {\n   if (auto const* standing = $x~_.find(key)) {",
               words);
      for (auto const* input : a.target->parameters())
         if (input->isInput)
            out_.put(R"(      if (!((*standing)->$input() == $input))
         Kem::throwReinstantiating("$input", Records::text((*standing)->$input()), Records::text($input));)",
                     {{"input", input->name}});
      out_.put(R"(      return *standing;
   }
   return new$X($arguments);
}
Kem::Ptr<$T> $C::new$X($parameters) {
   auto child = $T::make($arguments);
   childPlace($x~_, $id, key, child);
   return child;
})",
               words);
      if (a.target->isBase)
         out_.put(R"(void $C::$x~Is(Kem::Ptr<$T> const& child) {
   if (!child)
      Kem::throwNullParameter("$x", "$full");
   if ($x(child->$tkey()) != child)
      childPlace($x~_, $id, child->$tkey(), child);
})",
                  words);
      out_.put("void $C::$x~Del($kin key) { childDel($x~_, $id, key); }\n"
               "void $C::$x~DelAll() { childDelAll($x~_, $id); }",
               words)
          .gap();
   }

   void putReferences() {
      putFind();
      out_.put(R"(void $C::$x~Is(Kem::Ptr<$T> const& record) {
   if (!record)
      Kem::throwNullParameter("$x", "$full");
   memberIs($x~_, $id, record->$tkey(), record);
}
void $C::$x~Del($kin key) { memberDel($x~_, $id, key); }
void $C::$x~DelAll() { memberDelAll($x~_, $id); }
)",
               words_)
          .gap();
   }

   // --- What the class tells of itself

   void putNames() {
      std::vector<std::string> names;
      for (auto const* a : entity_.all)
         names.push_back(cppString(a->name));
      out_.gap().put("char const* $C::attributeString(Kem::AttrId id) const {", words_);
      if (names.empty()) {
         out_.put("   return nullptr;\n}").gap();
         return;
      }
      out_.put("   static constexpr char const* names[] = {");
      for (auto const& line : wrapped(join(names, ", "), 100))
         out_.put("      " + line);
      out_.put("   };\n   return id < kAttributeCount ? names[id] : nullptr;\n}").gap();
   }

   void putKey() {
      if (!entity_.key || entity_.key->owner != &entity_)
         return;
      // In a directory it is under its name.
      out_.put(
              R"(std::string $C::keyText() const { return name().empty() ? Records::text($x~_) : Entity::keyText(); }
void $C::encodeKey(Wire::Writer& out) const {
   if (name().empty())
      Records::encode(out, $x~_);
   else
      Entity::encodeKey(out);
}
bool $C::decodeKey(Wire::Reader& in) {
   $x~_ = Records::decode<$T>(in);
   return in.good();
}
)",
              wordsOf(names_, entity_, *entity_.key))
          .gap();
   }

   void putWhole() {
      bool const hasInput =
          std::any_of(entity_.own.begin(), entity_.own.end(), [](auto& a) { return a.isInput; });
      if (hasInput) {
         out_.put("bool $C::hasSameInputs(Kem::Entity const& other) const {\n"
                  "   auto const& that = static_cast<$C const&>(other);",
                  words_);
         std::vector<std::string> tests;
         if (entity_.base)
            tests.push_back(words_["Base"] + "::hasSameInputs(other)");
         for (auto const& a : entity_.own)
            if (a.isInput)
               tests.push_back(fill("$x~_ == that.$x~_", {{"x", a.name}}));
         out_.put("   return " + join(tests, " && ") + ";\n}").gap();
      }
      putContents();
      putDifference();
   }

   void putContents() {
      out_.put("void $C::encodeContents(Kem::AttributeSink& out) const {", words_);
      if (entity_.base)
         out_.put("   $Base::encodeContents(out);", words_);
      std::vector<std::string> singles;
      for (auto const& a : entity_.own) {
         if (a.isKey)
            // Its place gives the key, except in a directory, which has names.
            out_.put("   if (!name().empty() && !isDefault($id))\n      out.scalarChanged(*this, $id);",
                     wordsOf(names_, entity_, a));
         else if (!a.isCollection())
            singles.push_back('k' + capital(a.name));
      }
      if (singles.size() == 1) {
         out_.put("   if (!isDefault($id))\n      out.scalarChanged(*this, $id);", {{"id", singles[0]}});
      } else if (!singles.empty()) {
         auto const lines = wrapped(join(singles, ", "), 80);
         out_.put("   for (Kem::AttrId const id : {" + join(lines, "\n                                ") +
                  "})\n"
                  "      if (!isDefault(id))\n         out.scalarChanged(*this, id);");
      }
      for (auto const& a : entity_.own)
         if (a.isCollection())
            out_.put(isChildren(a) ? "   encodeChildren($x~_, $id, out);"
                                   : "   encodeMembers($x~_, $id, out);",
                     wordsOf(names_, entity_, a));
      out_.put("}").gap();
   }

   void putDifference() {
      out_.put("void $C::encodeDifference(Kem::Entity const& before, Kem::AttributeSink& out) const {",
               words_);
      if (entity_.base)
         out_.put("   $Base::encodeDifference(before, out);", words_);
      bool const isUsed =
          std::any_of(entity_.own.begin(), entity_.own.end(), [](auto& a) { return !a.isReadOnly(); });
      if (isUsed)
         out_.put("   auto const& old = static_cast<$C const&>(before);", words_);
      for (auto const& a : entity_.own) {
         if (a.isReadOnly())
            continue;
         char const* const pattern = isChildren(a) ? "   encodeChildDifference(old.$x~_, $x~_, $id, out);"
                                     : a.isCollection()
                                         ? "   encodeMemberDifference(old.$x~_, $x~_, $id, out);"
                                         : "   if (!($x~_ == old.$x~_))\n"
                                           "      out.scalarChanged(*this, $id);";
         out_.put(pattern, wordsOf(names_, entity_, a));
      }
      out_.put("}").gap();
   }

   // --- Switches over attributes

   // A function of one case for each attribute that passes the test; the base class answers for the others.
   // Nothing when there is no such attribute.
   template <class Case>
   void putSwitch(Test test, std::string const& head, std::string const& otherwise, Case const& body,
                  std::string const& tail = "") {
      bool isOpen = false;
      for (auto const& a : entity_.own) {
         if (!test(a))
            continue;
         if (!isOpen)
            out_.put(head, words_).put("   switch (id) {");
         isOpen = true;
         std::string const text = body(a);
         if (!text.empty())
            out_.put(text, wordsOf(names_, entity_, a));
      }
      if (isOpen)
         out_.put("   default: " + otherwise + "\n   }", words_).put(tail + "}").gap();
   }

   void putScalarForm() {
      putSwitch(isAny, "bool $C::isDefault(Kem::AttrId id) const {", "return $Base::isDefault(id);",
                [&](Attribute const& a) { return "   case $id: return " + defaultTest(a) + ';'; });
      putSwitch([](Attribute const& a) { return !a.isCollection(); },
                "bool $C::encodeScalar(Kem::AttrId id, Wire::Writer& out) const {",
                "return $Base::encodeScalar(id, out);",
                [](Attribute const& a) -> std::string {
                   return isReference(a)
                              ? "   case $id: out.string($x~_ ? $x~_->fullName() : std::string()); break;"
                              : "   case $id: Records::encode(out, $x~_); break;";
                },
                "   return true;\n");
   }

   std::string defaultTest(Attribute const& a) const {
      if (a.isCollection())
         return "$x~_.empty()";
      if (isReference(a))
         return "!$x~_";
      std::string const initial = names_.initial(*a.value, a.initial, entity_.nameSpace);
      switch (a.value->kind) {
      case Kind::boolean:
         return initial == "true" ? "$x~_" : "!$x~_";
      case Kind::string:
         return initial.empty() ? "$x~_.empty()" : "$x~_.view() == std::string_view(" + initial + ')';
      case Kind::intfId:
         return "$x~_.empty()";
      default:
         return initial.empty() || a.value->kind == Kind::namespaceName ? "$x~_ == $T(" + initial + ')'
                                                                        : "$x~_ == " + initial;
      }
   }

   void putMemberForm() {
      putSwitch([](Attribute const& a) { return isMap(a) || isReferences(a); },
                "bool $C::encodeMember(Kem::AttrId id, void const* key, Wire::Writer& out) const {",
                "return $Base::encodeMember(id, key, out);",
                [](Attribute const& a) {
                   return std::string("   case $id: return Records::") +
                          (isMap(a) ? "encodeMember" : "encodeReference") +
                          "(out, $x~_, *static_cast<$K const*>(key));";
                });
      putSwitch(isCollection,
                "void $C::encodeMemberKey(Kem::AttrId id, void const* key, Wire::Writer& out) const {",
                entity_.base ? "$Base::encodeMemberKey(id, key, out);" : "break;", [](Attribute const&) {
                   return "   case $id: Records::encode(out, *static_cast<$K const*>(key)); break;";
                });
      putSwitch(isCollection,
                "bool $C::visitMemberKey(Kem::AttrId id, Wire::Reader& key,\n"
                "                        Kem::FunctionRef<void(void const*)> visit) const {",
                "return $Base::visitMemberKey(id, key, visit);",
                [](Attribute const&) { return "   case $id: return Records::visitKey<$K>(key, visit);"; });
   }

   void putApply() {
      putSwitch(isScalar, "bool $C::applySet(Kem::AttrId id, Wire::Reader& in) {",
                "return $Base::applySet(id, in);", [](Attribute const& a) {
                   // Inputs arrive after the creation, before anybody can have followed the record.
                   std::string const store = a.isReadOnly() ? "$x~_ = value;" : "$x~Is(value);";
                   return "   case $id: {\n      auto const value = Records::decode<$T>(in);\n"
                          "      if (in.good())\n         " +
                          store + "\n      return in.good();\n   }";
                });
      putSwitch(isMap, "bool $C::applyPut(Kem::AttrId id, Wire::Reader& in) {",
                "return $Base::applyPut(id, in);", [](Attribute const& a) {
                   Field const* const own = a.value->keyField();
                   return "   case $id: {\n      auto const key = Records::decode<$K>(in);\n"
                          "      auto const value = Records::decode<$T>(in);\n" +
                          (own ? "      if (!(value." + own->name + " == key))\n         in.fail();\n" : "") +
                          "      if (in.good())\n         $x~Is(key, value);\n      return in.good();\n   }";
                });
      putSwitch(isCollection, "bool $C::applyErase(Kem::AttrId id, Wire::Reader& in) {",
                "return $Base::applyErase(id, in);", [](Attribute const&) {
                   return "   case $id: {\n      auto const key = Records::decode<$K>(in);\n"
                          "      if (in.good())\n         $x~Del(key);\n      return in.good();\n   }";
                });
      putSwitch(
          [](Attribute const& a) { return isReference(a) || isReferences(a); },
          "bool $C::applyReference(Kem::AttrId id, void const* key, Kem::Ptr<Kem::Entity> const& target) {",
          "return $Base::applyReference(id, key, target);",
          [](Attribute const& a) -> std::string {
             std::string const start = "   case $id: {\n      auto const record = Kem::ptrCast<$T>(target);\n"
                                       "      if (target && !record)\n         return false;\n";
             if (isReference(a))
                return start + "      $x~Is(record);\n      return true;\n   }";
             return start + R"(      auto const& member = *static_cast<$K const*>(key);
      if (record)
         memberIs($x~_, $id, member, record);
      else
         $x~Del(member);
      return true;
   })";
          });
   }

   void putChildAccess() {
      putSwitch(isChildren, "Kem::Entity* $C::childByKey(Kem::AttrId id, Wire::Reader& key) {",
                "return $Base::childByKey(id, key);",
                [](Attribute const&) { return "   case $id: return Records::childAt<$K>($x~_, key);"; });
      putSwitch(isChildren, "bool $C::placeChild(Kem::AttrId id, Kem::Ptr<Kem::Entity> const& child) {",
                "return $Base::placeChild(id, child);", [](Attribute const&) {
                   return "   case $id: {\n      auto const record = Kem::ptrCast<$T>(child);\n"
                          "      if (record)\n         childPlace($x~_, $id, record->$tkey(), record);\n"
                          "      return static_cast<bool>(record);\n   }";
                });
      bool isOpen = false;
      for (auto const& a : entity_.own) {
         if (!isChildren(a))
            continue;
         if (!isOpen)
            out_.put("void $C::forEachChild(Kem::FunctionRef<void(Kem::Entity&)> visit) {", words_);
         if (!isOpen && entity_.base)
            out_.put("   $Base::forEachChild(visit);", words_);
         isOpen = true;
         out_.put("   $x~_.forEach([&](auto const&, auto const& child) { visit(*child); });",
                  wordsOf(names_, entity_, a));
      }
      if (isOpen)
         out_.put("}").gap();
   }

   // --- Reactors

   void putNotifiee() {
      words_["Parent"] = entity_.base ? words_["Base"] + "::NotifieeConst" : "Kem::Notifiee";
      // Within the class its own base is named without the namespace.
      words_["parent"] = entity_.base ? words_["Base"] + "::NotifieeConst" : "Notifiee";
      out_.put(R"($C::NotifieeConst::NotifieeConst(Kem::Interests interests) : $Parent(interests) {}
$C::NotifieeConst::~NotifieeConst() = default;

Kem::Ptr<$C const> $C::NotifieeConst::notifier() const {
   return Kem::Ptr<$C const>(static_cast<$C const*>(boundNotifier()));
}
void $C::NotifieeConst::notifierIs(Kem::Ptr<$C const> const& record) {
   if (notifierBind(record) && record && !isZombie())
      handleInitialized();
}
)",
               words_)
          .gap();
      std::string const other = entity_.base ? "return $Base::NotifieeConst::" : "";
      auto const otherwise = [&](std::string const& call) {
         return other.empty() ? "return;" : other + call;
      };
      Test const heard = [](Attribute const& a) { return !a.isReadOnly(); };
      if (std::any_of(entity_.own.begin(), entity_.own.end(), heard))
         putSwitch(heard, "void $C::NotifieeConst::onAttribute(Kem::AttrId id) {",
                   otherwise("onAttribute(id);"),
                   [](Attribute const&) { return "   case $id: return on$X();"; });
      else
         out_.put("void $C::NotifieeConst::onAttribute(Kem::AttrId id) {" +
                      (entity_.base ? std::string(" $Base::NotifieeConst::onAttribute(id); }")
                                    : std::string("}")),
                  words_)
             .gap();
      putSwitch(isCollection, "void $C::NotifieeConst::onMember(Kem::AttrId id) {",
                otherwise("onMember(id);"),
                [](Attribute const&) { return "   case $id: return on$X(takePending(*pending$X~_, id));"; });
      putSwitch(isCollection, "void $C::NotifieeConst::onCollectionNotification(Kem::AttrId id) {",
                otherwise("onCollectionNotification(id);"),
                [](Attribute const&) { return "   case $id: return on$X~kemImmediate();"; });
      putSwitch(isCollection, "void $C::NotifieeConst::memberPending(Kem::AttrId id, void const* key) {",
                otherwise("memberPending(id, key);"), [](Attribute const&) {
                   return "   case $id:\n      if (!pending$X~_)\n"
                          "         pending$X~_ = std::make_unique<Kem::PendingKeys<$K>>();\n"
                          "      return pending$X~_->add(*static_cast<$K const*>(key));";
                });
      putSwitch(
          isCollection, "void $C::NotifieeConst::memberPendingClear(Kem::AttrId id) {",
          otherwise("memberPendingClear(id);"), [](Attribute const&) {
             return "   case $id:\n      if (pending$X~_)\n         pending$X~_->clear();\n      return;";
          });
   }

   Names const& names_;
   Entity const& entity_;
   Words words_;
   Text out_;
};

} // namespace

std::string entitySource(Names const& names, Entity const& entity, std::set<std::string>& headers) {
   headers.insert(headerOf(entity));
   for (auto const& a : entity.own)
      if (a.target)
         headers.insert(headerOf(*a.target));
   return SourceEmitter(names, entity).run();
}

} // namespace RecordGen
