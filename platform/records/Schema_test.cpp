// The catalogue: its descriptors hold together, and agree with the classes.
#include "records/Schema.h"

#include "Kem/Dir.h"
#include "Kem/Exception.h"
#include "Sulvi/NamespaceName.h"
#include "records/Bridging.h"
#include "records/Bridging/Input.h"
#include "records/EventMon/types.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/TypeInfo.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>

namespace {

using Records::Form;
using testing::ThrowsMessage;

auto const& all = Records::schema();

TEST(SchemaTest, typeNumbersArePositions) {
   ASSERT_GT(all.entities.size(), 60u);
   EXPECT_EQ(all.entities[0].name, "Kem::Dir");
   std::set<std::string_view> names;
   for (size_t i = 0; i < all.entities.size(); ++i) {
      EXPECT_EQ(all.entities[i].id, i);
      EXPECT_TRUE(names.insert(all.entities[i].name).second) << all.entities[i].name;
      EXPECT_EQ(all.entity(all.entities[i].name), &all.entities[i]);
   }
   EXPECT_EQ(all.entity("Bridging::Nothing"), nullptr);
}

TEST(SchemaTest, attributesOfABaseComeFirst) {
   auto const* cli = all.entity("Bridging::Input::CliConfig");
   auto const* input = all.entity("Bridging::Input::Config");
   ASSERT_TRUE(cli && input && cli->isA(*input) && !input->isA(*cli));
   for (size_t i = 0; i < input->attributes.size(); ++i)
      EXPECT_EQ(cli->attributes[i].name, input->attributes[i].name);
   EXPECT_EQ(cli->find("hostAgingTime"), static_cast<int>(input->attributes.size()));
   EXPECT_EQ(cli->find("nothing"), -1);
}

TEST(SchemaTest, attributesAreWhole) {
   for (auto const& entity : all.entities) {
      EXPECT_LE(entity.attributes.size(), 62u) << entity.name;
      EXPECT_FALSE(entity.meaning.empty()) << entity.name;
      for (auto const& a : entity.attributes) {
         SCOPED_TRACE(std::string(entity.name) + '.' + std::string(a.name));
         bool const isCollection = a.form != Form::scalar && a.form != Form::reference;
         EXPECT_EQ(a.key != nullptr, isCollection);
         EXPECT_EQ(a.value != nullptr, a.form == Form::scalar || a.form == Form::map);
         EXPECT_EQ(a.target != nullptr, !a.value && !entity.isDirectory());
         EXPECT_FALSE(a.meaning.empty());
         if (a.form == Form::scalar && a.value->size != 0) {
            EXPECT_EQ(a.initial.size(), a.value->size);
         }
         if (a.target && isCollection) {
            ASSERT_GE(a.target->keyAttribute, 0);
            EXPECT_EQ(a.target->attributes[static_cast<size_t>(a.target->keyAttribute)].value, a.key);
         }
         if (a.value && a.value->size != 0) {
            EXPECT_EQ(a.value->zero.size(), a.value->size);
         }
      }
      if (entity.keyAttribute >= 0) {
         EXPECT_TRUE(entity.attributes[static_cast<size_t>(entity.keyAttribute)].isInput);
      }
   }
}

TEST(SchemaTest, conditionsOnKeysGoBothWaysAndAreOfStaticHostsAndGroups) {
   for (auto const& entity : all.entities)
      for (size_t i = 0; i < entity.attributes.size(); ++i) {
         auto const& a = entity.attributes[i];
         if (a.isMulticast) {
            EXPECT_EQ(a.key->kind, Records::Kind::ethAddr) << entity.name;
         }
         if (a.apart >= 0) {
            auto const& other = entity.attributes[static_cast<size_t>(a.apart)];
            EXPECT_EQ(other.apart, static_cast<int>(i)) << entity.name;
            EXPECT_EQ(other.key, a.key) << entity.name;
         }
      }
   auto const& input = *all.entity("Bridging::Input::FdbConfig");
   auto const& group = input.attributes[static_cast<size_t>(input.find("ethGroup"))];
   EXPECT_TRUE(group.isMulticast);
   EXPECT_EQ(group.apart, input.find("configuredHost"));
}

TEST(SchemaTest, secondaryVlanNamesItsPrimary) {
   auto const* const vlan = all.entity("Bridging::Input::VlanConfig");
   ASSERT_TRUE(vlan);
   auto const& role = *vlan->attributes[static_cast<size_t>(vlan->find("vlanTypeAndPrimaryVlan"))].value;
   EXPECT_EQ(role.fields[0].whileField, -1);
   EXPECT_EQ(role.fields[1].whileField, 0);
   EXPECT_EQ(role.fields[1].whileNumber, static_cast<uint64_t>(Bridging::VlanType::secondary_));
   EXPECT_STREQ(role.fields[1].whileText,
                "VlanTypeAndPrimaryVlan::primaryVlan 0 while vlanType is secondary_ not allowed");
}

TEST(SchemaTest, classesAgreeWithTheirDescriptors) {
   for (auto const& type : all.entities) {
      auto const* info = Records::typeInfo(type.id);
      ASSERT_NE(info, nullptr);
      EXPECT_EQ(info->name, type.name);
      EXPECT_EQ(info->id, type.id);
      EXPECT_EQ(info->base ? info->base->name : "", type.base ? std::string(type.base->name) : "");
      auto const record = info->make();
      ASSERT_EQ(record->attributeCount(), type.attributes.size());
      for (size_t i = 0; i < type.attributes.size(); ++i) {
         auto const& a = type.attributes[i];
         auto const id = static_cast<Kem::AttrId>(i);
         EXPECT_EQ(record->attributeString(id), a.name);
         Wire::Writer out;
         EXPECT_EQ(record->encodeScalar(id, out), a.form == Form::scalar || a.form == Form::reference)
             << a.name;
         if (a.form == Form::scalar) {
            EXPECT_EQ(out.view(), a.initial) << type.name << '.' << a.name;
            EXPECT_TRUE(record->isDefault(id)) << type.name << '.' << a.name;
            Wire::Reader in(a.initial);
            EXPECT_TRUE(record->applySet(id, in) && in.done()) << type.name << '.' << a.name;
         }
      }
      EXPECT_EQ(record->attributeString(static_cast<Kem::AttrId>(type.attributes.size())), nullptr);
   }
   EXPECT_EQ(Records::typeInfo(static_cast<uint16_t>(all.entities.size())), nullptr);
   EXPECT_EQ(Records::typeInfo(Kem::noTypeId), nullptr);
}

TEST(SchemaTest, parentsOfPlacesComeFirst) {
   std::set<std::pair<bool, std::string>> directories, seen;
   for (auto const& p : all.places) {
      std::string const path(p.path);
      EXPECT_TRUE(seen.emplace(p.isCell, path).second) << path;
      if (size_t const end = path.rfind('/'); end != std::string::npos) {
         EXPECT_TRUE(directories.contains({p.isCell, path.substr(0, end)})) << path;
      }
      if (p.type->isDirectory())
         directories.emplace(p.isCell, path);
   }
   EXPECT_TRUE(seen.contains({false, "bridging/input/config/cli"}));
   EXPECT_TRUE(seen.contains({true, "stage/boot/status"}));
   EXPECT_TRUE(directories.contains({false, "bridging/input"})) << "directories on the way are places, too";
}

TEST(SchemaTest, defaultsStandInTheirWireForm) {
   auto const* cli = all.entity("Bridging::Input::CliConfig");
   auto const& aging = cli->attributes[static_cast<size_t>(cli->find("hostAgingTime"))];
   Wire::Reader in(aging.initial);
   EXPECT_EQ(in.f64(), 300);
   EXPECT_EQ(aging.unit, "s");
   auto const* status = all.entity("Stage::Status");
   EXPECT_EQ(status->attributes[static_cast<size_t>(status->find("stageClass"))].initial,
             std::string("\x0e") + "bootStageClass");
}

// --- Ranges

template <class T>
void expectRange(uint64_t low, uint64_t high, char const* text) {
   EXPECT_EQ(T(low).value(), low);
   EXPECT_EQ(T(high).value(), high);
   EXPECT_EQ(T().value(), low);
   if (low > 0) {
      EXPECT_THAT([&] { T(low - 1); }, ThrowsMessage<Kem::RangeException>(text));
   }
   EXPECT_THAT([&] { T(high + 1); }, ThrowsMessage<Kem::RangeException>(text));
   EXPECT_THAT([&] { T(-1); }, ThrowsMessage<Kem::RangeException>(text));
}

TEST(RangeTest, vlanNumbers) {
   expectRange<Bridging::VlanId>(1, 4094, "VlanId::value < 1 or > 4094 not allowed");
   expectRange<Bridging::VlanIdOrNone>(0, 4094, "VlanIdOrNone::value > 4094 not allowed");
   expectRange<Bridging::VlanIdOrAny>(1, 4095, "VlanIdOrAny::value < 1 or > 4095 not allowed");
   expectRange<Bridging::Fid>(0, 65535, "Fid::value > 65535 not allowed");
   expectRange<Bridging::VlanTpidOrNone>(0, 65535, "VlanTpidOrNone::value > 65535 not allowed");
   expectRange<EventMon::EventCount>(1, 4294967295, "EventCount::value < 1 or > 4294967295 not allowed");
}

TEST(RangeTest, namespaceNames) {
   std::string const longest(150, 'n');
   EXPECT_EQ(Sulvi::NamespaceName(longest).stringValue(), longest);
   EXPECT_THAT([&] { Sulvi::NamespaceName(longest + 'n'); },
               ThrowsMessage<Kem::RangeException>("NamespaceName::bytes > 150 not allowed"));
}

TEST(RangeTest, descriptorsCarryTheSameBounds) {
   std::set<Records::ValueType const*> types;
   for (auto const& entity : all.entities)
      for (auto const& a : entity.attributes)
         for (auto const* type : {a.key, a.value})
            if (type && type->rangeText)
               types.insert(type);
   bool hasVlanId = false;
   for (auto const* type : types) {
      std::string const high = std::to_string(type->max);
      EXPECT_THAT(type->rangeText, testing::HasSubstr("> " + high + " not allowed")) << type->name;
      if (type->min > 0) {
         EXPECT_THAT(type->rangeText, testing::HasSubstr("< " + std::to_string(type->min) + " or"));
      }
      hasVlanId = hasVlanId || type->name == "Bridging::VlanId";
   }
   EXPECT_TRUE(hasVlanId);
}

// --- Size: 4094 VLANs with 512 ports each are 2.1 million memberships in one process.

TEST(SizeTest, membershipOfAPortTakesFewBytes) {
   auto const vlan = Bridging::VlanConfig::make(10);
   for (int i = 0; i < 512; ++i)
      vlan->intfIs("Ethernet" + std::to_string(i / 32 + 1) + '/' + std::to_string(i % 32 + 1),
                   {.tagged = true});
   EXPECT_LT(vlan->intf().memoryBytes() / 512, 64u);
}

TEST(CatalogueTest, initialModeIsGivenAndCanBeChanged) {
   auto const config = Bridging::Input::Config::make();
   using Mode = Bridging::Input::SwitchportMode;
   auto const port = config->newSwitchIntfConfig("Ethernet1", Mode::trunk_);
   EXPECT_EQ(port->switchportMode(), Mode::trunk_);
   EXPECT_EQ(config->switchIntfConfigIs("Ethernet1", Mode::access_), port);
   EXPECT_EQ(port->switchportMode(), Mode::trunk_);
   port->switchportModeIs(Mode::routed_);
   EXPECT_EQ(port->switchportMode(), Mode::routed_);
}

TEST(CatalogueTest, resolvedPortIsMadeWithItsModeAndNativeVlan) {
   auto const config = Bridging::Config::make();
   Bridging::SwitchportModeAndNativeVlan const trunk{Bridging::SwitchportMode::trunk_, 20};
   auto const port = config->switchIntfConfigIs("Ethernet1", trunk);
   EXPECT_EQ(port->switchportModeAndNativeVlan(), trunk);
   EXPECT_EQ(config->switchIntfConfigIs("Ethernet1", {}), port);
   EXPECT_EQ(port->switchportModeAndNativeVlan(), trunk) << "the existing one keeps what it has";
   port->switchportModeAndNativeVlanIs({Bridging::SwitchportMode::access_, 7});
   EXPECT_EQ(port->switchportModeAndNativeVlan().nativeVlan, 7);
}

TEST(CatalogueTest, packetIsAFrameWithoutHeaderTagAndCheckSequence) {
   auto const capabilities = Bridging::HwCapabilities::make();
   capabilities->maxFrameSizeIs(9236);
   EXPECT_EQ(capabilities->maxFrameSizeWithoutL2Encapsulation(), 9214u);
   capabilities->maxFrameSizeIs(21);
   EXPECT_EQ(capabilities->maxFrameSizeWithoutL2Encapsulation(), 0u);
}

TEST(CatalogueTest, changeOfTheOperationalStateIsOfTheStatusRecord) {
   auto const status = Interface::VlanIntfStatus::make("Vlan10");
   status->operStatusChangeIs(Interface::IntfStatus::OperStatusChange{.time = 12.5, .count = 3});
   EXPECT_EQ(status->operStatusChange().time, 12.5);
   EXPECT_EQ(status->operStatusChange().count, 3u);
}

TEST(CatalogueTest, internalVlanIsAnInput) {
   auto const config = Bridging::Config::make();
   config->vlanConfigIs(1006, true);
   EXPECT_THAT(
       [&] { config->vlanConfigIs(1006); },
       ThrowsMessage<Kem::RangeException>(
           "Reinstantiating the pointer interface where constructor parameter attribute _internal has a "
           "different value of true than the current value of false not allowed"));
   EXPECT_EQ(config->vlanConfig(1006)->fullName(), ".vlanConfig[1006]");
}

} // namespace
