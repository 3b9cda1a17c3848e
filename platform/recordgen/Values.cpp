#include "Values.h"

#include "Kem/Wire.h"

#include <charconv>
#include <cstring>

namespace RecordGen {

namespace {

bool isSigned(Kind kind) {
   return kind == Kind::s16 || kind == Kind::s32 || kind == Kind::s64;
}

// Of the number that stands for a value of the type: an enumeration has its base.
size_t numberSize(ValueType const& type) {
   switch (type.kind) {
   case Kind::boolean:
   case Kind::u8:
      return 1;
   case Kind::u16:
   case Kind::s16:
      return 2;
   case Kind::u32:
   case Kind::s32:
      return 4;
   case Kind::u64:
   case Kind::s64:
      return 8;
   case Kind::enumeration:
      return type.cppBase == "uint8_t" ? 1 : 4;
   default:
      return 0;
   }
}

bool readDouble(std::string const& text, double& value) {
   auto const end = text.data() + text.size();
   auto const result = std::from_chars(text.data(), end, value);
   return result.ec == std::errc() && result.ptr == end;
}

std::string numberProblem(ValueType const& type, Literal const& literal) {
   uint64_t number;
   bool isNegative;
   if (literal.kind != Literal::Kind::number || !readNumber(literal.text, number, isNegative))
      return "expected an integer for a `" + type.fullName() + "`";
   if (isSigned(type.kind)) {
      int64_t const half = static_cast<int64_t>(maxOf(Kind::u64) >> (65 - 8 * numberSize(type)));
      auto const value = static_cast<int64_t>(number);
      if (isNegative ? value < -half - 1 : number > static_cast<uint64_t>(half))
         return literal.text + " is outside the range of `" + type.fullName() + '`';
   } else if (isNegative || number < type.min || number > type.max) {
      return literal.text + " is outside the range of `" + type.fullName() + "`, " +
             std::to_string(type.min) + " to " + std::to_string(type.max);
   }
   return "";
}

} // namespace

uint64_t maxOf(Kind kind) {
   switch (kind) {
   case Kind::boolean:
      return 1;
   case Kind::u8:
      return 0xff;
   case Kind::u16:
      return 0xffff;
   case Kind::u32:
      return 0xffffffff;
   default:
      return ~uint64_t(0);
   }
}

bool readNumber(std::string const& text, uint64_t& number, bool& isNegative) {
   isNegative = text.starts_with('-');
   std::string_view digits = std::string_view(text).substr(isNegative ? 1 : 0);
   int base = 10;
   if (digits.starts_with("0x")) {
      base = 16;
      digits.remove_prefix(2);
   }
   auto const result = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
   if (result.ec != std::errc() || result.ptr != digits.data() + digits.size())
      return false;
   if (isNegative) {
      if (number > uint64_t(1) << 63)
         return false;
      number = ~number + 1;
   }
   return true;
}

size_t wireSize(ValueType const& type) {
   switch (type.kind) {
   case Kind::float64:
      return 8;
   case Kind::ethAddr:
      return 6;
   case Kind::record: {
      size_t total = 0;
      for (auto const& f : type.fields) {
         size_t const size = wireSize(*f.type);
         if (size == 0)
            return 0;
         total += size;
      }
      return total;
   }
   default:
      return numberSize(type);
   }
}

std::string literalProblem(ValueType const& type, Literal const& literal) {
   if (!literal)
      return "";
   bool const isString = literal.kind == Literal::Kind::string;
   double number;
   switch (type.kind) {
   case Kind::boolean:
      return literal.kind == Literal::Kind::word && (literal.text == "true" || literal.text == "false")
                 ? ""
                 : "expected true or false";
   case Kind::float64:
      return literal.kind == Literal::Kind::number && readDouble(literal.text, number) ? ""
                                                                                       : "expected a number";
   case Kind::string:
      return isString ? "" : "expected a string in double quotes";
   case Kind::namespaceName:
      if (!isString)
         return "expected a string in double quotes";
      return literal.text.size() <= type.max ? "" : "longer than " + std::to_string(type.max) + " bytes";
   case Kind::enumeration:
      return literal.kind == Literal::Kind::word && type.findEnumerator(literal.text)
                 ? ""
                 : '`' + literal.text + "` is no enumerator of `" + type.fullName() + '`';
   case Kind::intfId:
   case Kind::ethAddr:
      return '`' + type.fullName() + "` takes no default: it is the empty one";
   case Kind::record:
      return "a value record takes no default: it is that of its fields";
   default:
      return numberProblem(type, literal);
   }
}

uint64_t numberOf(ValueType const& type, Literal const& literal) {
   if (type.kind == Kind::boolean)
      return literal && literal.text == "true";
   if (type.isEnum())
      return literal ? type.findEnumerator(literal.text)->number : type.enumerators.front().number;
   uint64_t number = type.min;
   bool isNegative;
   if (literal)
      readNumber(literal.text, number, isNegative);
   else if (type.initial)
      readNumber(type.initial.text, number, isNegative);
   return number;
}

std::string wireForm(ValueType const& type, Literal const& literal) {
   Wire::Writer out;
   switch (type.kind) {
   case Kind::float64: {
      double number = 0;
      if (literal)
         readDouble(literal.text, number);
      out.f64(number);
      break;
   }
   case Kind::string:
   case Kind::namespaceName:
      out.string(literal ? literal.text : "");
      break;
   case Kind::intfId:
      out.u32(0);
      break;
   case Kind::ethAddr:
      out.raw("\0\0\0\0\0\0", 6);
      break;
   case Kind::record: {
      std::string fields;
      for (auto const& f : type.fields)
         fields += wireForm(*f.type, f.initial);
      return fields;
   }
   default: {
      uint64_t const number = numberOf(type, literal);
      out.raw(&number, numberSize(type));
   }
   }
   return std::string(out.view());
}

std::string valueText(ValueType const& type, Literal const& literal) {
   switch (type.kind) {
   case Kind::boolean:
      return numberOf(type, literal) ? "true" : "false";
   case Kind::float64:
      return literal ? literal.text : "0";
   case Kind::string:
   case Kind::namespaceName:
      return '"' + (literal ? literal.text : "") + '"';
   case Kind::enumeration:
      return literal ? literal.text : type.enumerators.front().name;
   case Kind::intfId:
   case Kind::ethAddr:
   case Kind::record:
      return "";
   default:
      if (literal)
         return literal.text;
      return type.initial ? type.initial.text : std::to_string(type.min);
   }
}

} // namespace RecordGen
