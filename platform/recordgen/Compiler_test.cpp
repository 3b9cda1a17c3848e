// The schema compiler itself: what it refuses and where, the order of places, the fingerprint, the reference.
#include "Emit.h"
#include "Lexer.h"
#include "Parser.h"
#include "Resolver.h"
#include "Text.h"

#include <gmock/gmock.h>

namespace {

using namespace RecordGen;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Compiled {
   Model model;
   std::vector<std::string> errors;
};

Compiled compile(std::string const& text) {
   Compiled c;
   addBuiltIns(c.model);
   try {
      parse(c.model, "x.schema", text);
      resolve(c.model);
   } catch (SchemaError const& error) {
      c.model.errors.push_back(error);
   }
   for (auto const& error : c.model.errors)
      c.errors.push_back(error.message());
   return c;
}

// One problem, told with its place.
void expectError(std::string const& text, std::string const& message) {
   EXPECT_THAT(compile(text).errors, ElementsAre("x.schema:" + message)) << text;
}

std::string attribute(std::string const& line) {
   return "namespace N;\n/// E.\nentity E {\n   /// A.\n   " + line + "\n}\n";
}

// --- Tokens

TEST(LexerTest, tokensKnowTheirPlaceAndTheirMeaning) {
   auto const all = tokens("f", "# no token\n/// First\n/// and second.\n  type X::Y = 0x1f;\n");
   ASSERT_EQ(all.size(), 8u);
   EXPECT_EQ(all[0].text, "type");
   EXPECT_EQ(all[0].meaning, "First and second.");
   EXPECT_EQ(all[0].at.line, 4);
   EXPECT_EQ(all[0].at.column, 3);
   EXPECT_EQ(all[2].text, "::");
   EXPECT_EQ(all[5].text, "0x1f");
   EXPECT_EQ(all[5].kind, Token::Kind::number);
   EXPECT_EQ(all[7].kind, Token::Kind::end);
}

TEST(LexerTest, rangeIsNotTakenForAFraction) {
   auto const all = tokens("f", "1..4094 -3 0.5 \"a b\" ->");
   std::vector<std::string> texts;
   for (auto const& t : all)
      texts.push_back(t.text);
   EXPECT_THAT(texts, ElementsAre("1", "..", "4094", "-3", "0.5", "a b", "->", ""));
}

// --- What is refused

TEST(CompilerTest, grammarIsCheckedWithPlaceAndReason) {
   expectError("namespace N\n", "2:1: expected `;`, found the end of the file");
   expectError("namespace N;\nstrct X {}\n",
               "2:1: expected `namespace`, `type`, `enum`, `struct`, `entity` or `tree`, found `strct`");
   expectError("type X : u8;\n", "1:6: `X` stands in no namespace");
   expectError(attribute("a : map u8;"), "5:14: expected `->`, found `;`");
   expectError(attribute("a : u8 = ;"), "5:13: expected a value: a number, a string or a name, found `;`");
   expectError(attribute("a : u8 = \"x;"), "5:13: the string has no end on its line");
   expectError(attribute("a : u8 = %;"), "5:13: nothing begins with '%'");
   expectError("namespace N; /// E.\n  entity E {}\n",
               "2:3: `entity` has to stand at the beginning of its line");
}

TEST(CompilerTest, namesMustBeKnownAndOfTheRightKind) {
   expectError(attribute("a : VlanId;"), "5:8: there is no type `VlanId`");
   expectError(attribute("a : E;"), "5:8: `E` is an entity; a value type is expected");
   expectError(attribute("a : ref u8;"), "5:12: `u8` is a value type; an entity is expected");
   expectError(attribute("a : ref F;"), "5:12: there is no entity `F`");
   expectError(attribute("a : children Kem::Name -> Kem::Dir;"),
               "5:30: a directory stands in directories only");
   expectError("namespace N;\n/// E.\nentity E : F {\n}\n", "3:12: there is no entity `F`");
   expectError("tree {\n   /// P.\n   \"a\" : N::E;\n}\n", "3:10: there is no entity `N::E`");
}

TEST(CompilerTest, namesAreResolvedFromTheInside) {
   auto const c = compile(
       "namespace A;\n/// T.\ntype T : u8;\nnamespace A::B;\n/// T.\ntype T : u16;\n/// E.\nentity E {\n"
       "   /// X.\n   x : T;\n   /// Y.\n   y : A::T;\n}\nnamespace A::C;\n/// F.\nentity F {\n"
       "   /// X.\n   x : T;\n}\n");
   ASSERT_THAT(c.errors, ElementsAre());
   EXPECT_EQ(c.model.entities[1]->own[0].value->fullName(), "A::B::T");
   EXPECT_EQ(c.model.entities[1]->own[1].value->fullName(), "A::T");
   EXPECT_EQ(c.model.entities[2]->own[0].value->fullName(), "A::T");
}

TEST(CompilerTest, nothingIsDeclaredTwice) {
   expectError("namespace N;\n/// A.\ntype T : u8;\n/// B.\ntype T : u8;\n", "5:6: `N::T` is declared twice");
   expectError("namespace N;\n/// A.\nentity T {\n}\n/// B.\nenum T : u8 { /// A.\n   a = 0;\n}\n",
               "6:6: `N::T` is declared twice");
   expectError("namespace N;\n/// A.\ntype M : u8;\nnamespace N::M;\n/// B.\ntype T : u8;\n",
               "3:6: `N::M` is a namespace, too");
   expectError(attribute("a : u8; /// B.\n a : u16;"), "6:2: `a` is declared twice");
   expectError("namespace N;\n/// A.\nenum T : u8 { /// A.\n   a = 0; /// B.\n   a = 1;\n}\n",
               "5:4: `a` is declared twice");
   expectError("namespace N;\n/// A.\nenum T : u8 { /// A.\n   a = 1; /// B.\n   b = 1;\n}\n",
               "5:4: `b` has the number of `a`");
   expectError("namespace N;\n/// A.\nstruct T {\n/// F.\n   f : u8;\n/// F.\n   f : u8;\n}\n",
               "7:4: `f` is declared twice");
}

TEST(CompilerTest, generatedNamesMustNotMeet) {
   expectError(attribute("a : u8; /// B.\n aIs : u16;"), "6:2: `aIs` and `a` both make `aIs`");
   expectError(attribute("a : map u8 -> bool; /// B.\n aDel : u16;"), "6:2: `aDel` and `a` both make `aDel`");
   expectError(attribute("parent : u8;"), "5:4: every record has something named `parent`");
   expectError(attribute("class : u8;"), "5:4: `class` is a word of C++");
   expectError("namespace N;\n/// E.\nenum T : u8 { /// A.\n   new = 0;\n}\n", "4:4: `new` is a word of C++");
   expectError(attribute("a__b : u8;"),
               "5:4: `a__b` is reserved in C++: a name neither begins with _ nor has two of them");
   expectError(attribute("Upper : u8;"), "5:4: the name of an attribute begins with a small letter");
}

TEST(CompilerTest, rangesFitTheirBase) {
   expectError("namespace N;\n/// T.\ntype T : u8 in 1..256;\n",
               "3:16: the range does not fit into u8: 256 is outside the range of `u8`, 0 to 255");
   expectError("namespace N;\n/// T.\ntype T : u8 in 5..4;\n", "3:16: the range is empty: 5 is above 4");
   expectError("namespace N;\n/// T.\ntype T : u8 in 1..4 = 5;\n",
               "3:23: bad default: 5 is outside the range of `N::T`, 1 to 4");
   expectError("namespace N;\n/// T.\ntype T : s16;\n",
               "3:10: `s16` can't be the base: of a type it is u8, u16, u32 or u64");
   expectError("namespace N;\n/// T.\nenum T : u16 { /// A.\n   a = 0;\n}\n",
               "3:10: `u16` can't be the base: of an enumeration it is u8 or u32");
   expectError("namespace N;\n/// T.\nenum T : u8 { /// A.\n   a = 256;\n}\n",
               "4:4: 256 does not fit into u8");
}

TEST(CompilerTest, defaultsAreValuesOfTheirType) {
   expectError(attribute("a : u8 = 256;"), "5:13: bad default: 256 is outside the range of `u8`, 0 to 255");
   expectError(attribute("a : u8 = -1;"), "5:13: bad default: -1 is outside the range of `u8`, 0 to 255");
   expectError(attribute("a : s16 = -32769;"), "5:14: bad default: -32769 is outside the range of `s16`");
   expectError(attribute("a : u8 = many;"), "5:13: bad default: expected an integer for a `u8`");
   expectError(attribute("a : bool = 1;"), "5:15: bad default: expected true or false");
   expectError(attribute("a : string = x;"), "5:17: bad default: expected a string in double quotes");
   expectError(attribute("a : double = \"x\";"), "5:17: bad default: expected a number");
   expectError(attribute("a : Sulvi::IntfId = \"Ethernet1\";"),
               "5:24: bad default: `Sulvi::IntfId` takes no default: it is the empty one");
   expectError(attribute("a : Sulvi::NamespaceName = \"" + std::string(151, 'n') + "\";"),
               "5:31: bad default: longer than 150 bytes");
   expectError(attribute("a : map u8 -> bool = 1;"), "5:25: only an attribute of one value has a default");
   expectError(attribute("key a : u8 = 1;"), "5:17: a key has no default");
   expectError("namespace N;\n/// T.\nenum T : u8 { /// A.\n   a = 0;\n}\n/// S.\nstruct S {\n   /// F.\n   "
               "f : T = b;\n}\n",
               "9:12: bad default: `b` is no enumerator of `N::T`");
}

TEST(CompilerTest, keysMustFit) {
   std::string const child = "namespace N;\n/// C.\nentity C {\n   /// K.\n   key k : u8;\n}\n";
   std::string const head = child + "/// E.\nentity E {\n   /// A.\n   ";
   expectError(head + "a : children u16 -> C;\n}\n", "10:17: the key is a `u16`, that of `N::C` is a `u8`");
   expectError(head + "a : refs u8 -> E;\n}\n", "10:19: `N::E` has no key, so it can't be a member");
   expectError(child + "/// E.\nentity E : C {\n   /// A.\n   key a : u8;\n}\n",
               "10:8: `a` is a second key besides `k`");
   expectError(attribute("a : map double -> bool;"), "5:12: a double can't be a key");
   expectError("namespace N;\n/// S.\nstruct S {\n   /// F.\n   f : u8;\n}\n/// E.\nentity E {\n   /// A.\n"
               "   a : map S -> bool;\n}\n",
               "10:12: the record `N::S` is no key: it says not what its fields are joined by");
}

TEST(CompilerTest, numbersOfAClosedEnumerationFollowOneAnother) {
   std::string const gap =
       "namespace N;\n/// T.\nenum T : u8 {\n   /// A.\n   a = 3;\n   /// B.\n   b = 5;\n}\n";
   expectError(gap,
               "3:6: `T` leaves a gap: the numbers of an enumeration that isn't open follow one another");
   std::string const open = std::string(gap).replace(gap.find(" {"), 1, " open ");
   auto const c = compile(open);
   EXPECT_THAT(c.errors, ElementsAre());
   EXPECT_EQ(c.model.types.back()->rangeText, "") << "an open one takes any number";
   auto const closed = compile(std::string(gap).replace(gap.find('5'), 1, "2"));
   EXPECT_THAT(closed.errors, ElementsAre());
   EXPECT_EQ(closed.model.types.back()->rangeText, "T::value < 2 or > 3 not allowed");
   EXPECT_THAT(document(c.model), HasSubstr("A `u8`; any other number is legal, too."));
   EXPECT_THAT(document(closed.model), HasSubstr("A `u8`; any other number is refused."));
}

TEST(CompilerTest, everyEnumeratorHasAMeaning) {
   expectError("namespace N;\n/// T.\nenum T : u8 {\n   a = 0;\n}\n",
               "4:4: `a` has no meaning: say it in a line before, behind ///");
}

TEST(CompilerTest, keyOfAMemberIsTheFirstFieldAndOfTheTypeOfTheCollectionsKey) {
   auto const schemaOf = [](std::string const& fields, std::string const& key) {
      return "namespace N;\n/// S.\nstruct S {\n" + fields + "}\n/// E.\nentity E {\n   /// A.\n   a : map " +
             key + " -> S;\n}\n";
   };
   std::string const number = "   /// K.\n   key k : u8;\n";
   std::string const other = "   /// F.\n   f : u8;\n";
   EXPECT_THAT(compile(schemaOf(number + other, "u8")).errors, ElementsAre());
   expectError(schemaOf(number + other, "u16"), "12:12: the key is a `u16`, that of `N::S` is a `u8`");
   expectError(schemaOf(other + number, "u8"), "7:8: the key comes first among the fields");
   expectError(schemaOf("   /// K.\n   key k : string;\n", "string"),
               "5:12: a key in a record has a type of fixed size, unlike `string`");
   expectError(schemaOf("   /// K.\n   key k : u8 = 3;\n", "u8"), "5:17: a key has no default");
   EXPECT_NE(fingerprint(compile(schemaOf(number, "u8")).model),
             fingerprint(compile(schemaOf("   /// K.\n   k : u8;\n", "u8")).model));
}

TEST(CompilerTest, formsMustMakeSense) {
   expectError(attribute("ordered a : u8;"), "5:12: `a` is no collection, so it has no order");
   expectError(attribute("input a : map u8 -> bool;"),
               "5:10: `a` is given to the constructor, so it holds one value");
   expectError(attribute("counter a : u8;"), "5:16: a counter is a u32 or a u64");
   expectError("namespace N;\n/// S.\nstruct S {\n   /// F.\n   f : S;\n}\n", "3:8: `S` contains itself");
   expectError("namespace N;\n/// A.\nentity A : B {\n}\n/// B.\nentity B : A {\n}\n",
               "6:12: `B` is a base of itself");
   expectError("namespace N;\n/// A.\nentity A : Kem::Dir {\n}\n", "3:12: nothing derives from `Kem::Dir`");
   expectError("namespace N;\nentity A {\n}\n",
               "2:8: `A` has no meaning: say it in a line before, behind ///");
}

TEST(CompilerTest, computedNumbersComeFromOneOfTheirType) {
   expectError(attribute("a : u32;\n   computed b : u32 = a;"), "6:24: expected `less`, found `;`");
   expectError(attribute("a : u32;\n   computed b : u32 = a less 1;"),
               "6:13: `b` has no meaning: say it in a line before, behind ///");
   std::string const head = "a : u32;\n   /// B.\n   ";
   expectError(attribute(head + "computed b : u32 = c less 1;"), "7:23: `E` has no attribute `c`");
   expectError(attribute(head + "computed b : u16 = a less 1;"),
               "7:23: an attribute of one unsigned number, and of the same type, is expected");
   expectError(attribute(head + "computed a : u32 = a less 1;"), "7:13: `a` is declared twice");
   expectError(attribute(head + "computed b : u32 = a less -1;"),
               "7:30: bad default: -1 is outside the range of `u32`, 0 to 4294967295");
   expectError(attribute(head + "computed parent : u32 = a less 1;"),
               "7:13: every record has something named `parent`");
}

TEST(CompilerTest, onlyABoolIsOverruledAndByAnEnumeratorOnly) {
   std::string const e = "namespace N;\n/// T.\nenum T : u8 {\n   /// 1.\n   one = 1;\n}\n/// E.\nentity E "
                         "{\n   /// A.\n   a : T;\n"
                         "   /// B.\n   b : ";
   expectError(e + "bool unless c = one;\n}\n", "12:20: `E` has no attribute `c`");
   expectError(e + "u8 unless a = one;\n}\n", "12:4: only a bool can be overruled by another attribute");
   expectError(e + "bool unless b = one;\n}\n", "12:20: an attribute of one enumerator is expected");
   expectError(e + "bool unless a;\n}\n", "12:21: expected `=`, found `;`");
   expectError(e + "bool unless a = two;\n}\n", "12:24: bad default: `two` is no enumerator of `N::T`");
   EXPECT_THAT(document(compile(e + "bool = true unless a = one;\n}\n").model),
               HasSubstr("| `b` | `bool` | `true` |  | B. Reads as false while `a` is `one`. |"));
}

TEST(CompilerTest, keysAreKeptApartInCollectionsOfOneKeyType) {
   std::string const b = "a : map u8 -> bool;\n   /// B.\n   b : ";
   expectError(attribute(b + "map u8 -> bool apart c;"), "7:29: `E` declares no attribute `c`");
   expectError(attribute(b + "map u16 -> bool apart a;"),
               "7:30: two collections with keys of one type can be kept apart");
   expectError(attribute(b + "u8 apart a;"), "7:17: two collections with keys of one type can be kept apart");
   expectError(attribute(b + "map u8 -> bool apart b;"),
               "7:29: two collections with keys of one type can be kept apart");
   expectError(attribute(b + "map u8 -> bool apart;"),
               "7:28: expected the collection that has none of these keys, found `;`");
   expectError(attribute(b + "map u8 -> u8 apart a;\n   /// C.\n   c : map u8 -> u8 apart b;"),
               "9:27: a collection can be kept apart from one other");
   auto const c = compile(attribute(b + "map u8 -> bool apart a;"));
   EXPECT_THAT(c.errors, ElementsAre());
   EXPECT_THAT(document(c.model), HasSubstr("| A. No key is in `b` too. |"));
   EXPECT_THAT(document(c.model), HasSubstr("| B. No key is in `a` too. |"));
   EXPECT_NE(fingerprint(c.model), fingerprint(compile(attribute(b + "map u8 -> bool;")).model));
}

TEST(CompilerTest, numberOfAValueRecordIsNonzeroWhileAnotherHasAValue) {
   std::string const b =
       "namespace N;\n/// T.\nenum T : u8 {\n   /// 0.\n   zero = 0;\n   /// 1.\n   one = 1;\n}\n"
       "/// S.\nstruct S {\n   /// A.\n   a : T;\n   /// B.\n   b : ";
   expectError(b + "u8 nonzero if a = one;\n}\n", "14:19: expected `while`, found `if`");
   expectError(b + "u8 nonzero while c = one;\n}\n", "14:25: `S` has no field `c`");
   expectError(b + "u8 nonzero while b = 1;\n}\n",
               "14:25: one number can be nonzero while another has a value");
   expectError(b + "string nonzero while a = one;\n}\n",
               "14:29: one number can be nonzero while another has a value");
   expectError(b + "u8 nonzero while a = two;\n}\n", "14:29: bad value: `two` is no enumerator of `N::T`");
   expectError(b + "u8 nonzero while a = zero;\n}\n", "14:4: the defaults of `S` break the condition on `b`");
   EXPECT_THAT(compile(b + "u8 = 3 nonzero while a = zero;\n}\n").errors, ElementsAre());
   auto const c = compile(b + "u8 nonzero while a = one;\n}\n");
   EXPECT_THAT(c.errors, ElementsAre());
   EXPECT_EQ(c.model.types.back()->fields[1].whileText, "S::b 0 while a is one not allowed");
   EXPECT_THAT(document(c.model), HasSubstr("| `b` | `u8` | `0` | B. Not 0 while `a` is `one`. |"));
   EXPECT_NE(fingerprint(c.model), fingerprint(compile(b + "u8;\n}\n").model));
}

TEST(CompilerTest, onlyEthernetAddressesAreMulticast) {
   expectError(attribute("a : map u8 -> bool multicast;"),
               "5:4: only keys that are Ethernet addresses can be multicast");
   expectError(attribute("a : Sulvi::EthAddr multicast;"),
               "5:4: only keys that are Ethernet addresses can be multicast");
   auto const c = compile(attribute("a : map Sulvi::EthAddr -> bool multicast;"));
   EXPECT_THAT(c.errors, ElementsAre());
   EXPECT_THAT(document(c.model), HasSubstr("| A. Each key is a multicast address. |"));
   EXPECT_NE(fingerprint(c.model), fingerprint(compile(attribute("a : map Sulvi::EthAddr -> bool;")).model));
}

TEST(CompilerTest, localObjectsHaveNamesOfTheirOwn) {
   expectError(attribute("a : u32;\n   /// B.\n   local b : u32;"), "7:12: expected `;`, found `:`");
   expectError(attribute("a : u32;\n   /// B.\n   local a;"), "7:10: `a` is declared twice");
   auto const c = compile(attribute("a : u32;\n   /// B.\n   local b;"));
   EXPECT_THAT(document(c.model), HasSubstr("| `b` *local* |  |  |  | B. |"));
   EXPECT_EQ(fingerprint(c.model), fingerprint(compile(attribute("a : u32;")).model));
}

TEST(CompilerTest, namespacesOfValueTypesDependOneWay) {
   expectError("namespace A;\n/// T.\ntype T : u8;\n/// S.\nstruct S {\n   /// F.\n   f : B::T;\n}\n"
               "namespace B;\n/// T.\ntype T : u8;\n/// S.\nstruct S {\n   /// F.\n   f : A::T;\n}\n",
               "7:8: value types of `A` and `B` hold each other, so neither header can come first");
}

TEST(CompilerTest, entityHasAtMost62Attributes) {
   auto const entity = [](int count) {
      std::string text = "namespace N;\n/// E.\nentity E {\n";
      for (int i = 0; i < count; ++i)
         text += "   /// A.\n   a" + std::to_string(i) + " : bool;\n";
      return text + "}\n";
   };
   EXPECT_THAT(compile(entity(62)).errors, ElementsAre());
   expectError(entity(63), "3:8: `E` has 63 attributes; more than 62 can't be");
}

TEST(CompilerTest, severalProblemsAreToldInOrder) {
   EXPECT_THAT(compile(attribute("b : X;\n   /// C.\n   c : Y;")).errors,
               ElementsAre("x.schema:5:8: there is no type `X`", "x.schema:7:8: there is no type `Y`"));
}

// --- Places

TEST(CompilerTest, directoriesOnTheWayComeFirst) {
   auto const c = compile(
       "namespace N;\n/// E.\nentity E {\n}\ntree {\n/// X.\n\"a/b/x\" : N::E;\n/// A.\n\"a\" : Kem::Dir;\n"
       "/// Y.\ncell \"a/y\" : N::E;\n}\n");
   ASSERT_THAT(c.errors, ElementsAre());
   std::vector<std::string> places;
   for (auto const& p : c.model.places)
      places.push_back((p.isCell ? "cell " : "") + p.path + ' ' + p.type->fullName() + ' ' + p.meaning);
   EXPECT_THAT(places, ElementsAre("a Kem::Dir A.", "a/b Kem::Dir ", "a/b/x N::E X.", "cell a Kem::Dir ",
                                   "cell a/y N::E Y."));
}

TEST(CompilerTest, placesNeedADirectoryAbove) {
   std::string const head = "namespace N;\n/// E.\nentity E {\n}\ntree {\n/// X.\n";
   expectError(head + "\"a/x\" : N::E;\n/// A.\n\"a\" : N::E;\n}\n",
               "7:1: \"a/x\" has no parent: \"a\" is a `N::E`, no directory");
   expectError(head + "\"a\" : N::E;\n/// A.\n\"a\" : N::E;\n}\n", "9:1: the place \"a\" is declared twice");
   expectError(head + "\"/a\" : N::E;\n}\n", "7:1: \"/a\" is no path: names with one / between them");
}

// --- Fingerprint

std::string const base =
    "namespace N;\n/// T.\ntype T : u8 in 1..9;\n/// E.\nentity E {\n   /// A.\n   a : T = 2;\n"
    "   /// B.\n   b : map u8 -> bool;\n}\n";

uint64_t fingerprintWith(std::string const& from, std::string const& to) {
   std::string text = base;
   if (!from.empty())
      text.replace(text.find(from), from.size(), to);
   auto const c = compile(text);
   EXPECT_THAT(c.errors, ElementsAre());
   return fingerprint(c.model);
}

TEST(CompilerTest, fingerprintFollowsTheWireFormAndNothingElse) {
   uint64_t const plain = fingerprintWith("", "");
   EXPECT_EQ(fingerprintWith("/// A.", "/// Something else. "), plain);
   EXPECT_EQ(fingerprintWith("entity E", "# a comment\nentity E"), plain);
   EXPECT_EQ(fingerprintWith("= 2;", "= 2 unit \"s\";"), plain);
   std::pair<char const*, char const*> const changes[] = {
       {"1..9", "1..8"},     {"1..9", "2..9"},         {": u8 in", ": u16 in"},
       {"= 2", "= 3"},       {"   a :", "   aa :"},    {"map", "ordered"},
       {"-> bool", "-> u8"}, {"a : T", "input a : T"}, {"entity E", "entity F"}};
   for (auto const& [from, to] : changes) {
      std::string const replacement =
          std::string(to) == "ordered" ? "map u16 -> bool; /// C.\n   c : map" : to;
      EXPECT_NE(fingerprintWith(from, replacement), plain) << to;
   }
}

// --- Texts

TEST(CompilerTest, referenceTellsEachThing) {
   auto const c = compile(base);
   std::string const text = document(c.model);
   EXPECT_THAT(text, HasSubstr("| `a` | [`N::T`](#N-T) | `2` |  | A. |"));
   auto const withComputed =
       compile(attribute("a : u32;\n   /// B.\n   computed b : u32 = a less 22 unit \"byte\";"));
   EXPECT_THAT(document(withComputed.model), HasSubstr("| `b` *computed* | `u32` | `a` - 22 | byte | B. |"));
   EXPECT_THAT(text, HasSubstr("| `b` | map `u8` -> `bool` |  |  | B. |"));
   EXPECT_THAT(
       text, HasSubstr("A `u8` from 1 to 9; any other is refused with \"T::value < 1 or > 9 not allowed\"."));
}

TEST(CompilerTest, headerTellsRangeDefaultUnitAndWhatIsNotified) {
   auto const c = compile("namespace N;\n/// T.\ntype T : u8 in 1..9 = 4;\n/// E.\nentity E {\n   /// A.\n"
                          "   a : T unit \"s\";\n   /// B.\n   b : map u8 -> bool;\n}\n");
   ASSERT_THAT(c.errors, ElementsAre());
   std::string const header = entityHeader(Names(c.model), *c.model.entities[1]);
   EXPECT_THAT(header, HasSubstr("   // A. Range 1 to 9, default 4, unit s.\n   T a() const"));
   EXPECT_THAT(header, HasSubstr("   // B.\n   using BMap"));
   EXPECT_THAT(header,
               testing::ContainsRegex("// onX\\(key\\) +[^\n]+\n(   //[^\n]*\n)*   virtual void onA"));
   auto const plain = compile(attribute("a : u8;"));
   EXPECT_THAT(entityHeader(Names(plain.model), *plain.model.entities[1]), Not(HasSubstr("onX(key)")))
       << "nothing to explain where there is no collection";
}

TEST(CompilerTest, classOfANameNearbyIsNotTakenForANamespace) {
   auto const c = compile("namespace A;\n/// T.\ntype T : u8;\nnamespace B;\n/// A.\nentity A {\n   /// X.\n"
                          "   x : A::T;\n}\n");
   ASSERT_THAT(c.errors, ElementsAre());
   EXPECT_THAT(entityHeader(Names(c.model), *c.model.entities[1]), HasSubstr("::A::T x() const"));
}

TEST(CompilerTest, longLinesAreFolded) {
   std::string const words(40, 'w');
   EXPECT_EQ(folded("short { line; }\n"), "short { line; }\n");
   EXPECT_EQ(folded("void f(int " + words + ") { g(" + words + ", " + words + "); }\n"),
             "void f(int " + words + ") {\n   g(" + words + ", " + words + ");\n}\n");
   EXPECT_EQ(folded("   call(" + words + ", " + words + ", " + words + ");\n"),
             "   call(" + words + ", " + words + ",\n        " + words + ");\n");
   auto const files = cppFiles(compile(base).model);
   EXPECT_THAT(files.at("records/N/E.h"), Not(testing::ContainsRegex("[^\n]{111}")));
   EXPECT_THAT(files.at("x.cpp"), Not(testing::ContainsRegex("[^\n]{111}")));
}

TEST(CompilerTest, bytesBecomeLiteralsOfTheSameBytes) {
   EXPECT_EQ(cppString(std::string("\0$a\"\\\x7f\x81", 7)), "\"\\000$a\\\"\\\\\\177\\201\"");
}

} // namespace
