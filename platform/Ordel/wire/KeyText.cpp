#include "Ordel/wire/KeyText.h"
#include "Kem/Exception.h"
#include "Kem/Wire.h"
#include "Ordel/wire/Protocol.h"
#include "Sulvi/EthAddr.h"
#include "Sulvi/IntfId.h"
#include "Sulvi/NamespaceName.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace Ordel {

using Records::Kind;
using Records::ValueType;

namespace {

template <class Number>
std::string numberText(Number number) {
   char text[32];
   return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

// The number of an unsigned kind, or of an enumeration; false at any other kind.
bool readUnsigned(ValueType const& type, Wire::Reader& in, uint64_t& number) {
   switch (type.kind) {
   case Kind::u8:
   case Kind::u16:
   case Kind::u32:
   case Kind::u64:
   case Kind::enumeration:
      break;
   default:
      return false;
   }
   number = 0;
   std::string_view const bytes = in.raw(type.size);
   if (in.good())
      std::memcpy(&number, bytes.data(), std::min<size_t>(bytes.size(), sizeof number));
   return true;
}

// Appends the text of one value. False when the bytes are none, or the type has no text form.
bool appendText(ValueType const& type, Wire::Reader& in, std::string& text) {
   uint64_t number = 0;
   if (readUnsigned(type, in, number)) {
      for (Records::EnumValue const& value : type.enumerators)
         if (in.good() && value.number == number) {
            text += value.name;
            return true;
         }
      text += numberText(number);
      return in.good();
   }
   switch (type.kind) {
   case Kind::boolean:
      text += in.boolean() ? "true" : "false";
      break;
   case Kind::s16:
      text += numberText(static_cast<int16_t>(in.u16()));
      break;
   case Kind::s32:
      text += numberText(static_cast<int32_t>(in.u32()));
      break;
   case Kind::s64:
      text += numberText(static_cast<int64_t>(in.u64()));
      break;
   case Kind::float64:
      text += numberText(in.f64());
      break;
   case Kind::string:
   case Kind::namespaceName:
      text += in.string();
      break;
   case Kind::intfId:
      text += Sulvi::IntfId::decode(in).stringValue().view();
      break;
   case Kind::ethAddr:
      text += Sulvi::EthAddr::decode(in).stringValue().view();
      break;
   case Kind::record: {
      if (!type.joint)
         return false;
      bool isFirst = true;
      for (Records::Field const& field : type.fields) {
         if (!isFirst)
            text += type.joint;
         isFirst = false;
         if (!appendText(*field.type, in, text))
            return false;
      }
      break;
   }
   default:
      return false;
   }
   return in.good();
}

// Writes the text as one value; the reason when it is none, else nothing.
class Parser {
  public:
   explicit Parser(Wire::Writer& out) : out_(out) {}

   std::string parse(ValueType const& type, std::string_view text) {
      switch (type.kind) {
      case Kind::boolean:
         if (text != "true" && text != "false")
            return expected(type, text, "true or false");
         out_.boolean(text == "true");
         return {};
      case Kind::u8:
      case Kind::u16:
      case Kind::u32:
      case Kind::u64:
         return parseUnsigned(type, text, "a number");
      case Kind::enumeration:
         for (Records::EnumValue const& value : type.enumerators)
            if (value.name == text) {
               out_.raw(&value.number, type.size);
               return {};
            }
         return parseUnsigned(type, text, "one of its names, or a number");
      case Kind::s16:
         return parseNumber<int16_t>(type, text);
      case Kind::s32:
         return parseNumber<int32_t>(type, text);
      case Kind::s64:
         return parseNumber<int64_t>(type, text);
      case Kind::float64:
         return parseNumber<double>(type, text);
      case Kind::string:
         if (text.size() > maxStringBytes)
            return "longer than " + std::to_string(maxStringBytes) + " bytes";
         out_.string(text);
         return {};
      case Kind::namespaceName:
         return parseBy<Sulvi::NamespaceName>(text);
      case Kind::intfId:
         return parseIntf(text);
      case Kind::ethAddr:
         return parseBy<Sulvi::EthAddr>(text);
      case Kind::record:
         return parseRecord(type, text);
      }
      return "is of a kind without a text form";
   }

  private:
   static std::string expected(ValueType const& type, std::string_view text, std::string_view what) {
      std::string error = text.size() <= 64 ? "\"" + std::string(text) + "\"" : "a long text";
      error += " is no ";
      error += type.name;
      error += ": ";
      error += what;
      error += " is expected";
      return error;
   }

   std::string parseUnsigned(ValueType const& type, std::string_view text, std::string_view what) {
      uint64_t number = 0;
      auto const [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
      bool const isNumber = status != std::errc::invalid_argument && end == text.data() + text.size();
      if (!isNumber)
         return expected(type, text, what);
      uint64_t const most = type.size >= 8 ? UINT64_MAX : (uint64_t{1} << 8 * type.size) - 1;
      bool const isWide = status == std::errc::result_out_of_range;
      if (type.rangeText && (isWide || number < type.min || number > type.max))
         return type.rangeText;
      if (isWide || number > most)
         return expected(type, text, "a number up to " + std::to_string(most));
      out_.raw(&number, type.size);
      return {};
   }

   template <class Number>
   std::string parseNumber(ValueType const& type, std::string_view text) {
      Number number{};
      auto const [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (status != std::errc() || end != text.data() + text.size() ||
          std::isnan(static_cast<double>(number)))
         return expected(type, text, "a number of its size");
      out_.raw(&number, sizeof number);
      return {};
   }

   template <class Value>
   std::string parseBy(std::string_view text) {
      try {
         Value(text).encode(out_);
         return {};
      } catch (Kem::Exception const& e) {
         return e.what();
      }
   }

   // By name, or by the number that a regular id has.
   std::string parseIntf(std::string_view text) {
      if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos)
         return parseBy<Sulvi::IntfId>(text);
      uint32_t number = 0;
      if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc() || number == 0 ||
          !Sulvi::IntfId::isRegularRep(number))
         return "no interface has this number; expected a name, such as Ethernet3/1, or the number that "
                "stands for it";
      Sulvi::u32ToIntfId(number).encode(out_);
      return {};
   }

   std::string parseRecord(ValueType const& type, std::string_view text) {
      if (!type.joint)
         return std::string(type.name) + " has no text form";
      std::string_view rest = text;
      for (size_t i = 0; i < type.fields.size(); ++i) {
         bool const isLast = i + 1 == type.fields.size();
         size_t const end = isLast ? rest.size() : rest.find(type.joint);
         if (end == std::string_view::npos)
            return expected(type, text,
                            std::to_string(type.fields.size()) + " fields joined by \"" + type.joint + "\"");
         std::string const error = parse(*type.fields[i].type, rest.substr(0, end));
         if (!error.empty())
            return error;
         rest.remove_prefix(isLast ? end : end + 1);
      }
      return {};
   }

   Wire::Writer& out_;
};

} // namespace

std::string keyText(ValueType const& type, std::string_view wire) {
   Wire::Reader in(wire);
   std::string text;
   if (appendText(type, in, text) && in.done())
      return text;
   constexpr char digits[] = "0123456789abcdef";
   text = "0x";
   for (char const c : wire) {
      text += digits[static_cast<uint8_t>(c) >> 4];
      text += digits[static_cast<uint8_t>(c) & 15];
   }
   return text;
}

KeyBytes keyFromText(ValueType const& type, std::string_view text) {
   Wire::Writer out;
   KeyBytes key;
   key.error = Parser(out).parse(type, text);
   if (key.isGood())
      key.bytes = out.view();
   return key;
}

} // namespace Ordel
