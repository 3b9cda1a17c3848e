#include "Plaze/TableType.h"

#include "Kem/Assert.h"
#include "Kem/Wire.h"
#include "Sulvi/IntfId.h"

namespace Plaze {

using Records::Kind;
using Records::ValueType;

namespace {

constexpr uint32_t maxNamespaceNameBytes = 150;

Records::Attribute const& attribute(std::string_view entity, std::string_view name) {
   auto const* const type = Records::schema().entity(entity);
   KEM_ASSERT(type);
   int const at = type->find(name);
   KEM_ASSERT(at >= 0);
   return type->attributes[static_cast<size_t>(at)];
}

// The key of learned hosts serves these tables only and so is in no entity
// that could be asked for its type.
ValueType const& hostKeyType() {
   static Records::Field const fields[] = {
       {"fid", attribute("Bridging::FdbStatus", "fid").value,
        "Filtering database that the host was learned in."},
       {"addr", attribute("Bridging::FdbStatus", "learnedHost").key, "Address of the host."}};
   static std::string const zero(8, '\0');
   static ValueType const type{.name = "Bridging::HostKey",
                               .kind = Kind::record,
                               .size = 8,
                               .min = 0,
                               .max = 0,
                               .rangeText = nullptr,
                               .enumerators = {},
                               .fields = fields,
                               .joint = '/',
                               .zero = zero,
                               .meaning = "Key of a learned host."};
   return type;
}

uint32_t maxWireBytes(ValueType const& type) {
   switch (type.kind) {
   case Kind::intfId:
      return 4 + 1 + static_cast<uint32_t>(Sulvi::IntfId::maxBytes);
   case Kind::namespaceName:
      return 1 + maxNamespaceNameBytes;
   case Kind::record: {
      uint32_t sum = 0;
      for (auto const& field : type.fields)
         sum += maxWireBytes(*field.type);
      return sum;
   }
   default:
      // A string without a bound has no place in a slot.
      KEM_ASSERT(type.size > 0);
      return type.size;
   }
}

uint64_t fingerprint(uint64_t sum, ValueType const& type) {
   sum = Layout::mix(Layout::mix(sum, static_cast<uint64_t>(type.kind)), type.size);
   for (auto const& field : type.fields) {
      for (char const c : field.name)
         sum = Layout::mix(sum, static_cast<unsigned char>(c));
      sum = fingerprint(sum, *field.type);
   }
   return Layout::mix(sum, type.fields.size());
}

uint64_t unsignedNumber(Kind kind, uint8_t size, Wire::Reader& in) {
   switch (size) {
   case 1:
      return in.u8();
   case 2:
      return in.u16();
   case 4:
      return in.u32();
   default:
      return in.u64();
   }
}

void check(ValueType const& type, Wire::Reader& in) {
   switch (type.kind) {
   case Kind::boolean:
      in.boolean();
      return;
   case Kind::u8:
   case Kind::u16:
   case Kind::u32:
   case Kind::u64: {
      uint64_t const number = unsignedNumber(type.kind, type.size, in);
      if (type.rangeText && (number < type.min || number > type.max))
         in.fail();
      return;
   }
   case Kind::intfId:
      Sulvi::IntfId::decode(in);
      return;
   case Kind::namespaceName:
      if (in.string().size() > maxNamespaceNameBytes)
         in.fail();
      return;
   case Kind::string:
      in.string();
      return;
   case Kind::record:
      for (auto const& field : type.fields)
         check(*field.type, in);
      return;
   default:
      in.raw(type.size);
   }
}

} // namespace

Shape TableType::shape() const {
   return {std::string(name), fingerprint(fingerprint(0, *key), *value), maxWireBytes(*key),
           maxWireBytes(*value)};
}

std::span<TableType const> tableTypes() {
   static TableType const types[] = {
       {"Plaze::Bridging::Status", "bridging/status", "Learned hosts by filtering database and address.",
        &hostKeyType(), attribute("Bridging::FdbStatus", "learnedHost").value},
       {"Plaze::Interface::AllIntfCounterDir", "interface/counter/subintf/current",
        "Counters by subinterface.", attribute("Interface::AllEthIntfCounterPtrDir", "intfCounter").key,
        attribute("Interface::EthIntfCounter", "counters").value}};
   return types;
}

TableType const* tableType(std::string_view name) {
   for (auto const& type : tableTypes())
      if (type.name == name)
         return &type;
   return nullptr;
}

bool isWellFormed(ValueType const& type, std::string_view wire) {
   Wire::Reader in(wire);
   check(type, in);
   return in.good() && in.done();
}

} // namespace Plaze
