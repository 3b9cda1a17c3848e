#include "Kem/String.h"

#include <cstring>
#include <new>
#include <ostream>

namespace Kem {

namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// The run of digits at the front of text, without leading zeros.
std::string_view significantDigits(std::string_view text) {
   size_t end = 0;
   while (end < text.size() && isDigit(text[end]))
      ++end;
   text = text.substr(0, end);
   while (text.size() > 1 && text.front() == '0')
      text.remove_prefix(1);
   return text;
}

} // namespace

String8::Rep* String8::make(std::string_view text) {
   if (text.empty())
      return nullptr;
   void* memory = ::operator new(sizeof(Rep) + text.size() + 1);
   auto* rep = new (memory) Rep{1, static_cast<uint32_t>(text.size()), emptyHash};
   std::memcpy(rep->bytes(), text.data(), text.size());
   rep->bytes()[text.size()] = '\0';
   for (unsigned char c : text)
      rep->hash = (rep->hash ^ c) * 16777619u;
   return rep;
}

void String8::destroy(Rep* rep) {
   rep->~Rep();
   ::operator delete(rep);
}

String8& String8::operator+=(std::string_view tail) {
   if (!tail.empty())
      *this = String8(str().append(tail));
   return *this;
}

std::strong_ordering compareNatural(std::string_view a, std::string_view b) {
   std::string_view const wholeA = a, wholeB = b;
   while (!a.empty() && !b.empty()) {
      if (isDigit(a.front()) && isDigit(b.front())) {
         auto const digitsA = significantDigits(a), digitsB = significantDigits(b);
         if (digitsA.size() != digitsB.size())
            return digitsA.size() <=> digitsB.size();
         if (auto order = digitsA <=> digitsB; order != 0)
            return order;
         while (!a.empty() && isDigit(a.front()))
            a.remove_prefix(1);
         while (!b.empty() && isDigit(b.front()))
            b.remove_prefix(1);
         continue;
      }
      auto const byteA = static_cast<unsigned char>(a.front()), byteB = static_cast<unsigned char>(b.front());
      if (byteA != byteB)
         return byteA <=> byteB;
      a.remove_prefix(1);
      b.remove_prefix(1);
   }
   if (a.empty() != b.empty())
      return a.empty() ? std::strong_ordering::less : std::strong_ordering::greater;
   return wholeA <=> wholeB; // equal but for leading zeros: the bytes decide, so that the order is total
}

std::ostream& operator<<(std::ostream& out, String8 const& text) {
   return out << text.view();
}

std::ostream& operator<<(std::ostream& out, Name const& name) {
   return out << name.view();
}

} // namespace Kem
