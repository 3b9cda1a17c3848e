#include "Ordel/wire/Operations.h"

namespace Ordel {

using Records::Kind;

void skipValue(Records::ValueType const& type, Wire::Reader& in) {
   if (type.size > 0) {
      in.raw(type.size);
      return;
   }
   switch (type.kind) {
   case Kind::intfId:
      if (in.u32() == 0xffffffff)
         in.string();
      return;
   case Kind::record:
      for (Records::Field const& field : type.fields)
         skipValue(*field.type, in);
      return;
   default:
      in.string();
   }
}

bool OperationReader::next(Operation& operation) {
   if (in_.done())
      return false;
   operation = {};
   char const* const begin = in_.position();
   operation.op = static_cast<Op>(in_.u8());
   operation.attribute = in_.u8();
   if (operation.attribute >= type_.attributes.size()) {
      in_.fail();
      return false;
   }
   Records::Attribute const& attribute = type_.attributes[operation.attribute];
   auto const read = [&](Records::ValueType const* type) {
      char const* const from = in_.position();
      if (type)
         skipValue(*type, in_);
      else
         in_.string(); // a selector
      return std::string_view(from, static_cast<size_t>(in_.position() - from));
   };
   bool const isCollection = attribute.key != nullptr;
   if (isCollection == (operation.op == Op::set)) {
      in_.fail();
      return false;
   }
   if (isCollection)
      operation.key = read(attribute.key);
   switch (operation.op) {
   case Op::set:
   case Op::put:
      operation.value = read(attribute.value);
      break;
   case Op::create:
      operation.type = in_.u16();
      if (type_.isDirectory())
         operation.node = in_.u32();
      break;
   case Op::erase:
      break;
   default:
      in_.fail();
   }
   if (!in_.good())
      return false;
   operation.bytes = {begin, static_cast<size_t>(in_.position() - begin)};
   return true;
}

} // namespace Ordel
