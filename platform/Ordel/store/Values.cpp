#include "Ordel/store/Values.h"
#include "Kem/Assert.h"
#include "Ordel/store/SeededHash.h"
#include "Ordel/wire/Protocol.h"
#include "Ordel/wire/Selector.h"
#include "Sulvi/IntfId.h"
#include "Sulvi/NamespaceName.h"

#include <new>

namespace Ordel {

using Records::Kind;
using Records::ValueType;

namespace {

struct TextHeader {
   uint32_t size;
   uint32_t hash;
};

// Passes one string. False: cut off, or with more bytes for its length than it needs.
bool passString(Wire::Reader& in, size_t& size) {
   char const* const before = in.position();
   std::string_view const text = in.string();
   if (!in.good())
      return false;
   size = text.size();
   return static_cast<size_t>(in.position() - before) == size + (size < 255 ? 1 : 5);
}

// Such a name is a number in the wrong place: interfaces are named, and a regular id has a number of its own.
bool isBareNumber(std::string_view name) {
   return !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isFloatNan(uint64_t bits) {
   return (bits & 0x7fffffffffffffffu) > 0x7ff0000000000000u;
}

uint64_t readNumber(Wire::Reader& in, size_t size) {
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

bool passValue(ValueType const& type, Wire::Reader& in, Problem* problem);

// The number in a field of a record whose fields are all good.
uint64_t fieldNumber(ValueType const& record, std::string_view bytes, size_t field) {
   Wire::Reader in(bytes);
   for (size_t i = 0; i < field; ++i)
      passValue(*record.fields[i].type, in, nullptr);
   return readNumber(in, record.fields[field].type->size);
}

// The first field that is 0 though another field of the record forbids it; null when there is none.
Records::Field const* forbiddenZero(ValueType const& record, std::string_view bytes) {
   for (size_t i = 0; i < record.fields.size(); ++i) {
      Records::Field const& field = record.fields[i];
      if (field.whileField >= 0 && fieldNumber(record, bytes, i) == 0 &&
          fieldNumber(record, bytes, static_cast<size_t>(field.whileField)) == field.whileNumber)
         return &field;
   }
   return nullptr;
}

// Passes one value and checks it. `problem` may be null where only the answer counts.
bool passValue(ValueType const& type, Wire::Reader& in, Problem* problem) {
   auto const refuse = [&](std::string_view reason) {
      if (problem && in.good()) {
         problem->reason = reason;
         problem->isMalformed = false;
      }
      return false;
   };
   switch (type.kind) {
   case Kind::boolean: {
      uint8_t const v = in.u8();
      return in.good() && (v <= 1 || refuse("neither false nor true"));
   }
   case Kind::float64: {
      uint64_t const bits = in.u64();
      return in.good() && (!isFloatNan(bits) || refuse("not a number"));
   }
   case Kind::string:
   case Kind::namespaceName: {
      size_t size = 0;
      if (!passString(in, size))
         return false;
      if (type.kind == Kind::namespaceName && size > Sulvi::NamespaceName::maxBytes)
         return refuse("NamespaceName::bytes > 150 not allowed");
      return size <= maxStringBytes || refuse("longer than " + std::to_string(maxStringBytes) + " bytes");
   }
   case Kind::intfId:
      Sulvi::IntfId::decode(in);
      return in.good();
   case Kind::record: {
      char const* const begin = in.position();
      for (Records::Field const& field : type.fields) {
         if (passValue(*field.type, in, problem))
            continue;
         if (problem)
            problem->field = "." + std::string(field.name) + problem->field;
         return false;
      }
      auto const* const field = forbiddenZero(type, {begin, static_cast<size_t>(in.position() - begin)});
      if (field && problem)
         problem->field = "." + std::string(field->name);
      return !field || refuse(field->whileText);
   }
   default: {
      if (!type.rangeText) {
         in.raw(type.size);
         return in.good();
      }
      uint64_t const number = readNumber(in, type.size);
      return in.good() && ((number >= type.min && number <= type.max) || refuse(type.rangeText));
   }
   }
}

} // namespace

Text makeText(std::string_view bytes) {
   void* const memory = std::malloc(sizeof(TextHeader) + bytes.size());
   if (!memory)
      throw std::bad_alloc();
   TextHeader const header{static_cast<uint32_t>(bytes.size()), seededHash(bytes)};
   std::memcpy(memory, &header, sizeof header);
   std::memcpy(static_cast<char*>(memory) + sizeof header, bytes.data(), bytes.size());
   return reinterpret_cast<Text>(memory);
}

std::string_view textView(Text text) {
   auto const* header = reinterpret_cast<TextHeader const*>(text);
   return {reinterpret_cast<char const*>(header + 1), header->size};
}

uint32_t textHash(Text text) {
   return reinterpret_cast<TextHeader const*>(text)->hash;
}

Codec::Codec(ValueType const& type, Use use) : type_(type), use_(use) {
   if (type.kind == Kind::intfId) {
      storage_ = Storage::intf;
      size_ = 4;
   } else if (type.size == 0 || (use == Use::key && type.size > 8)) {
      storage_ = Storage::text;
      size_ = 8;
   } else {
      storage_ = Storage::plain;
      size_ = type.size;
      addChecks(type, 0);
   }
}

void Codec::addChecks(ValueType const& type, size_t offset) {
   auto const at = static_cast<uint8_t>(offset);
   if (type.kind == Kind::boolean)
      checks_.push_back({at, 1, Check::Condition::isInRange, 0, 1});
   else if (type.kind == Kind::float64)
      checks_.push_back({at, 8, Check::Condition::isNumber, 0, 0});
   else if (type.rangeText)
      checks_.push_back({at, type.size, Check::Condition::isInRange, type.min, type.max});
   std::vector<uint8_t> offsets;
   for (Records::Field const& field : type.fields) {
      addChecks(*field.type, offset);
      offsets.push_back(static_cast<uint8_t>(offset));
      offset += field.type->size;
   }
   for (size_t i = 0; i < type.fields.size(); ++i) {
      Records::Field const& field = type.fields[i];
      if (field.whileField < 0)
         continue;
      auto const other = static_cast<size_t>(field.whileField);
      checks_.push_back({offsets[i], field.type->size, Check::Condition::isNonzeroWhile, field.whileNumber, 0,
                         offsets[other], type.fields[other].type->size});
   }
}

bool Codec::readVarying(Wire::Reader& in, Packed& out) const {
   if (storage_ == Storage::intf) {
      auto const id = Sulvi::IntfId::decode(in);
      out.rep = id.rep();
      out.bytes = reinterpret_cast<char const*>(&out.rep);
      out.size = 4;
      return in.good() && (id.isRegular() || use_ != Use::key || !isBareNumber(id.stringValue().view()));
   }
   out.bytes = in.position();
   if (!passValue(type_, in, nullptr))
      return false;
   out.size = static_cast<size_t>(in.position() - out.bytes);
   if (use_ == Use::selector && out.size > 1) {
      Wire::Reader again(out.view());
      Selector selector;
      std::string error;
      return Selector::parse(again.string(), selector, error);
   }
   return true;
}

Problem Codec::explain(std::string_view bytes) const {
   Problem problem;
   Wire::Reader in(bytes);
   bool const isPassed = passValue(type_, in, &problem);
   if (isPassed && use_ == Use::key && type_.kind == Kind::intfId) {
      problem.isMalformed = false;
      problem.reason = "a bare number is no name of an interface";
   } else if (isPassed && use_ == Use::selector) {
      Wire::Reader again(bytes);
      Selector selector;
      if (!Selector::parse(again.string(), selector, problem.reason))
         problem.isMalformed = false;
   }
   if (problem.isMalformed)
      problem.reason = "malformed bytes for " + std::string(type_.name);
   return problem;
}

std::string_view Codec::view(char const* kept, std::string_view zero, std::string& scratch) const {
   switch (storage_) {
   case Storage::plain:
      return {kept, size_};
   case Storage::intf: {
      uint32_t rep;
      std::memcpy(&rep, kept, 4);
      auto const id = Sulvi::IntfId::fromRep(rep);
      if (id.isRegular())
         return {kept, 4}; // the representation is the wire form
      Wire::Writer out;
      id.encode(out);
      scratch.assign(out.view());
      return scratch;
   }
   case Storage::text:
      break;
   }
   Text text;
   std::memcpy(&text, kept, 8);
   return text ? textView(text) : zero;
}

} // namespace Ordel
