// A small schema written by hand, and what tests of the tree share: blocks of operations, and a tree as text.
//
//    tree     "config" Config, "input/config/cli" CliConfig, "input/dir" a directory; of a cell "status"
//    Group Config   key name, scalars of many types, a map of every kind of key, children, references
//    CliConfig : Config, Vlan (with the input `internal`), WideVlan : Vlan, Group (holds groups)
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/OperationWriter.h"
#include "Ordel/wire/Protocol.h"
#include "Ordel/wire/Selector.h"
#include "records/Schema.h"

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace TestRecords {

using namespace std::string_view_literals;
using Records::Attribute;
using Records::EntityType;
using Records::Form;
using Records::Kind;
using Records::ValueType;

enum TypeId : uint16_t { dirType, configType, cliConfigType, vlanType, wideVlanType, groupType };

// Attributes by number.
namespace Config {
enum : uint8_t {
   name,
   enabled,
   ratio,
   count,
   text,
   vlan,
   intf,
   peer,
   port,
   named,
   learned,
   xlate,
   vlanConfig,
   group,
   source,
   limits,
   ns,
   host,
   mode, // CliConfig only
};
}
namespace Vlan {
enum : uint8_t { vlanId, internal, configuredName, intf, extra };
}
namespace Group {
enum : uint8_t { name, member, group };
}

inline ValueType plain(std::string_view name, Kind kind, uint8_t size, std::string_view zero) {
   return {name, kind, size, 0, UINT64_MAX, nullptr, {}, {}, 0, zero, {}};
}

struct Tables {
   ValueType boolean = plain("bool", Kind::boolean, 1, "\0"sv);
   ValueType u8 = plain("u8", Kind::u8, 1, "\0"sv);
   ValueType u16 = plain("u16", Kind::u16, 2, "\0\0"sv);
   ValueType u32 = plain("u32", Kind::u32, 4, "\0\0\0\0"sv);
   ValueType u64 = plain("u64", Kind::u64, 8, "\0\0\0\0\0\0\0\0"sv);
   ValueType s32 = plain("s32", Kind::s32, 4, "\0\0\0\0"sv);
   ValueType float64 = plain("double", Kind::float64, 8, "\0\0\0\0\0\0\0\0"sv);
   ValueType string = plain("string", Kind::string, 0, "\0"sv);
   ValueType name = plain("Kem::Name", Kind::string, 0, "\0"sv);
   ValueType nsName = plain("Sulvi::NamespaceName", Kind::namespaceName, 0, "\0"sv);
   ValueType intfId = plain("Sulvi::IntfId", Kind::intfId, 0, "\0\0\0\0"sv);
   ValueType ethAddr = plain("Sulvi::EthAddr", Kind::ethAddr, 6, "\0\0\0\0\0\0"sv);
   ValueType vlanId{
       "Test::VlanId", Kind::u16, 2, 1, 4094, "VlanId::value < 1 or > 4094 not allowed", {}, {}, 0,
       "\1\0"sv,       {}};
   Records::EnumValue modes[2]{{"access_", 0}, {"trunk_", 1}};
   ValueType mode{
       "Test::Mode", Kind::enumeration, 1, 0, 1, "Mode::value > 1 not allowed", modes, {}, 0, "\0"sv, {}};
   ValueType openMode{"Test::OpenMode", Kind::enumeration, 1, 0, 255, nullptr, modes, {}, 0, "\0"sv, {}};
   Records::Field portFields[3]{{"tagged", &boolean, {}}, {"shut", &boolean, {}}, {"direction", &u32, {}}};
   ValueType port{"Test::Port", Kind::record, 6, 0, 0, nullptr, {}, portFields, 0, "\0\0\0\0\0\0"sv, {}};
   Records::Field learnedFields[3]{{"intf", &intfId, {}}, {"vlan", &vlanId, {}}, {"tag", &string, {}}};
   ValueType learned{
       "Test::Learned", Kind::record, 0, 0, 0, nullptr, {}, learnedFields, 0, "\0\0\0\0\1\0\0"sv, {}};
   Records::Field hostFields[3]{{"addr", &ethAddr, {}}, {"intf", &intfId, {}}, {"mode", &openMode, {}}};
   ValueType host{"Test::Host", Kind::record, 0, 0, 0, nullptr, {}, hostFields, 0, "\0\0\0\0\0\0\0\0\0\0\0"sv,
                  {},           true};
   Records::Field xlateFields[2]{{"outer", &u16, {}}, {"inner", &u16, {}}};
   ValueType xlate{"Test::Xlate", Kind::record, 4, 0, 0, nullptr, {}, xlateFields, '/', "\0\0\0\0"sv, {}};
   Records::Field limitFields[2]{{"low", &u64, {}}, {"high", &u64, {}}};
   ValueType limits{"Test::Limits",
                    Kind::record,
                    16,
                    0,
                    0,
                    nullptr,
                    {},
                    limitFields,
                    0,
                    "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv,
                    {}};

   std::vector<Attribute> dirAttributes, configAttributes, cliAttributes, vlanAttributes, wideAttributes,
       groupAttributes;
   EntityType entities[6];
   std::vector<Records::Place> places;
   Records::Schema schema;

   static Attribute scalar(std::string_view name, ValueType const& type, std::string_view initial = {},
                           bool isInput = false) {
      return {name,
              Form::scalar,
              isInput,
              false,
              false,
              nullptr,
              &type,
              nullptr,
              initial.empty() ? type.zero : initial,
              {},
              {}};
   }
   static Attribute collection(std::string_view name, Form form, ValueType const& key, ValueType const* value,
                               EntityType const* target) {
      return {name, form, false, false, false, &key, value, target, {}, {}, {}};
   }

   Tables() {
      dirAttributes = {collection("entityPtr", Form::children, name, nullptr, nullptr)};
      configAttributes = {
          scalar("name", name, {}, true),
          scalar("enabled", boolean, "\1"sv),
          scalar("ratio", float64),
          scalar("count", u32),
          scalar("text", string, "\4none"sv),
          scalar("vlan", vlanId),
          scalar("intf", intfId),
          {"peer", Form::reference, false, false, false, nullptr, nullptr, &entities[configType], {}, {}, {}},
          collection("port", Form::map, intfId, &port, nullptr),
          collection("named", Form::map, string, &boolean, nullptr),
          collection("learned", Form::map, ethAddr, &learned, nullptr),
          collection("xlate", Form::map, xlate, &limits, nullptr),
          collection("vlanConfig", Form::children, vlanId, nullptr, &entities[vlanType]),
          collection("group", Form::children, string, nullptr, &entities[groupType]),
          collection("source", Form::references, intfId, nullptr, &entities[vlanType]),
          scalar("limits", limits),
          scalar("ns", nsName),
          collection("host", Form::map, ethAddr, &host, nullptr),
      };
      cliAttributes = configAttributes;
      cliAttributes.push_back(scalar("mode", mode));
      vlanAttributes = {scalar("vlanId", vlanId, {}, true), scalar("internal", boolean, {}, true),
                        scalar("configuredName", string),
                        collection("intf", Form::map, intfId, &port, nullptr)};
      wideAttributes = vlanAttributes;
      wideAttributes.push_back(scalar("extra", u64));
      groupAttributes = {scalar("name", string, {}, true), collection("member", Form::map, u8, &s32, nullptr),
                         collection("group", Form::children, string, nullptr, &entities[groupType])};
      entities[dirType] = {"Kem::Dir", dirType, nullptr, dirAttributes, -1, {}};
      entities[configType] = {"Test::Config", configType, nullptr, configAttributes, 0, {}};
      entities[cliConfigType] = {
          "Test::CliConfig", cliConfigType, &entities[configType], cliAttributes, 0, {}};
      entities[vlanType] = {"Test::Vlan", vlanType, nullptr, vlanAttributes, 0, {}};
      entities[wideVlanType] = {"Test::WideVlan", wideVlanType, &entities[vlanType], wideAttributes, 0, {}};
      entities[groupType] = {"Test::Group", groupType, nullptr, groupAttributes, 0, {}};
      places = {{"config", &entities[configType], false, {}},
                {"input", &entities[dirType], false, {}},
                {"input/config", &entities[dirType], false, {}},
                {"input/config/cli", &entities[cliConfigType], false, {}},
                {"input/dir", &entities[dirType], false, {}},
                {"status", &entities[groupType], true, {}}};
      schema = {entities, places, 0x1234567890abcdef};
   }
};

inline Tables const& tables() {
   static Tables const theTables;
   return theTables;
}

inline Records::Schema const& schema() {
   return tables().schema;
}

// --- Blocks of operations

inline std::string bytesOf(ValueType const& type, std::string_view text) {
   return Ordel::keyFromText(type, text).bytes;
}
inline std::string stringBytes(std::string_view text) {
   return bytesOf(tables().string, text);
}
inline std::string intfBytes(std::string_view text) {
   return bytesOf(tables().intfId, text);
}
inline std::string u16Bytes(uint16_t number) {
   return std::string(reinterpret_cast<char const*>(&number), 2);
}
inline std::string u32Bytes(uint32_t number) {
   return std::string(reinterpret_cast<char const*>(&number), 4);
}
inline std::string portBytes(uint8_t tagged, uint8_t shut, uint32_t direction) {
   return std::string{static_cast<char>(tagged), static_cast<char>(shut)} + u32Bytes(direction);
}

using Step = std::pair<uint8_t, std::string>; // attribute, key in wire form

class Block {
  public:
   Block& at(uint32_t node, std::vector<Step> const& steps = {}) {
      write().at(node, static_cast<uint8_t>(steps.size()));
      for (auto const& [attribute, key] : steps)
         write().step(attribute, key);
      return *this;
   }
   Block& set(uint8_t attribute, std::string_view value) {
      write().set(attribute, value);
      return *this;
   }
   Block& put(uint8_t attribute, std::string_view key, std::string_view value) {
      write().put(attribute, key, value);
      return *this;
   }
   Block& erase(uint8_t attribute, std::string_view key) {
      write().erase(attribute, key);
      return *this;
   }
   Block& create(uint8_t attribute, std::string_view key, uint16_t type) {
      write().create(attribute, key, type);
      return *this;
   }
   // In a directory.
   Block& createNode(std::string_view name, uint16_t type, uint32_t node = 0) {
      write().createNode(stringBytes(name), type, node);
      return *this;
   }
   Block& raw(std::string_view bytes) {
      out_.raw(bytes.data(), bytes.size());
      return *this;
   }
   std::string_view view() const { return out_.view(); }
   operator std::string_view() const { return out_.view(); }

  private:
   Ordel::OperationWriter write() { return Ordel::OperationWriter(out_); }
   Wire::Writer out_;
};

// --- A tree as text

inline std::string hex(std::string_view bytes) {
   // Random tests print values of a megabyte, and tests are compiled without optimisation.
   std::string text(2 * bytes.size(), ' ');
   char* out = text.data();
   for (char const& byte : bytes) {
      *out++ = "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
      *out++ = "0123456789abcdef"[byte & 15];
   }
   return text;
}

// Every fact of the entity and below, a line each, sorted by key.
inline std::string dump(Ordel::Tree const& tree, Ordel::Entity const& entity, bool hasNumbers = true,
                        std::string const& indent = {}) {
   std::string text = indent + std::string(entity.type().name);
   if (hasNumbers && entity.isNode())
      text += " #" + std::to_string(entity.node());
   text += "\n";
   auto const& attributes = entity.type().attributes;
   for (unsigned i = 0; i < attributes.size(); ++i) {
      std::string const head = indent + " " + std::string(attributes[i].name);
      if (!attributes[i].key) {
         text += head + " = " + hex(tree.value(entity, i)) + "\n";
         continue;
      }
      std::map<std::string, std::string> lines;
      for (Ordel::Members member(tree, entity, i); member.next();)
         lines[std::string(member.key())] =
             member.entity() ? "\n" + dump(tree, *member.entity(), hasNumbers, indent + "  ")
                             : hex(member.value()) + "\n";
      if (lines.size() != tree.count(entity, i))
         text += "COUNT ";
      for (auto const& [key, line] : lines)
         text += head + " " + hex(key) + ": " + line;
   }
   return text;
}

inline std::string dump(Ordel::Tree const& tree, bool hasNumbers = true) {
   return dump(tree, tree.root(), hasNumbers);
}

} // namespace TestRecords
