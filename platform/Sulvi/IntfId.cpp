#include "Sulvi/IntfId.h"

#include "Kem/Assert.h"
#include "Kem/Exception.h"

#include <array>
#include <charconv>
#include <deque>
#include <ostream>
#include <unordered_map>

namespace Sulvi {

namespace {

constexpr int numberBits = 27;
constexpr uint32_t numberMask = (1u << numberBits) - 1;
constexpr uint32_t escapeToName = 0xffffffffu; // on the wire: the name follows as a string

// A form that has a code. Its index in `forms` is that code.
struct Form {
   IntfKind kind;
   std::string_view word;
   uint8_t levels;        // numbers joined by "/"
   bool hasSub;           // "." and one more number
   uint8_t width[4] = {}; // in bits, of each number, the one behind the "." last

   constexpr int numbers() const { return levels + (hasSub ? 1 : 0); }
};

constexpr std::array<Form, 16> forms{{
    {IntfKind::none, "", 0, false},
    {IntfKind::ethernet, "Ethernet", 1, false, {27}},
    {IntfKind::ethernet, "Ethernet", 2, false, {13, 14}},
    {IntfKind::ethernet, "Ethernet", 3, false, {9, 9, 9}},
    {IntfKind::ethernetSub, "Ethernet", 1, true, {13, 14}},
    {IntfKind::ethernetSub, "Ethernet", 2, true, {8, 7, 12}},
    {IntfKind::ethernetSub, "Ethernet", 3, true, {5, 6, 4, 12}},
    {IntfKind::portChannel, "Port-Channel", 1, false, {27}},
    {IntfKind::portChannelSub, "Port-Channel", 1, true, {13, 14}},
    {IntfKind::vlan, "Vlan", 1, false, {27}},
    {IntfKind::management, "Management", 1, false, {27}},
    {IntfKind::management, "Management", 2, false, {13, 14}},
    {IntfKind::loopback, "Loopback", 1, false, {27}},
    {IntfKind::internal, "Internal", 1, false, {27}},
    {IntfKind::vxlan, "Vxlan", 1, false, {27}},
    {IntfKind::cpu, "Cpu", 0, false},
}};

constexpr bool widthsFillTheField() {
   for (Form const& form : forms) {
      int bits = 0;
      for (int i = 0; i < form.numbers(); ++i)
         bits += form.width[i];
      if (form.numbers() > 0 && bits != numberBits)
         return false;
   }
   return true;
}
static_assert(widthsFillTheField());

// A word that names a kind, and what may follow it.
struct Word {
   IntfKind kind;
   std::string_view text;
   bool takesNumber;
   bool takesLevels; // any count of numbers joined by "/"
};

constexpr Word words[] = {
    {IntfKind::ethernet, "Ethernet", true, true},  {IntfKind::portChannel, "Port-Channel", true, false},
    {IntfKind::vlan, "Vlan", true, false},         {IntfKind::management, "Management", true, true},
    {IntfKind::loopback, "Loopback", true, false}, {IntfKind::internal, "Internal", true, true},
    {IntfKind::vxlan, "Vxlan", true, false},       {IntfKind::cpu, "Cpu", false, false},
};

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// Takes a decimal number without leading zeros off the front of text. A number over
// 32 bits is taken as 0xffffffff.
bool takeNumber(std::string_view& text, uint32_t& number) {
   size_t digits = 0;
   uint64_t value = 0;
   while (digits < text.size() && isDigit(text[digits])) {
      value = value * 10 + static_cast<uint64_t>(text[digits] - '0');
      if (value > UINT32_MAX)
         value = UINT32_MAX;
      ++digits;
   }
   if (digits == 0 || (digits > 1 && text[0] == '0'))
      return false;
   text.remove_prefix(digits);
   number = static_cast<uint32_t>(value);
   return true;
}

// What a name says. Only the numbers of forms that have a code are kept all.
struct Parsed {
   IntfKind kind = IntfKind::other;
   size_t levels = 0;
   bool hasSub = false;
   std::array<uint32_t, 4> number{};
   uint32_t first = 0;
   uint32_t last = 0;

   void add(uint32_t value, size_t at) {
      if (at < number.size())
         number[at] = value;
      if (at == 0)
         first = value;
      last = value;
   }
};

// A name without a "." part.
Parsed parseParent(std::string_view name) {
   for (Word const& word : words) {
      if (!name.starts_with(word.text))
         continue;
      Parsed parsed;
      std::string_view rest = name.substr(word.text.size());
      if (word.takesNumber) {
         do {
            uint32_t value;
            if (!takeNumber(rest, value))
               return Parsed{};
            parsed.add(value, parsed.levels++);
            if (rest.empty() || rest.front() != '/' || !word.takesLevels)
               break;
            rest.remove_prefix(1);
         } while (true);
      }
      if (!rest.empty())
         return Parsed{};
      parsed.kind = word.kind;
      return parsed;
   }
   return Parsed{};
}

Parsed parse(std::string_view name) {
   size_t const dot = name.rfind('.');
   if (dot == std::string_view::npos || dot == 0)
      return parseParent(name);
   std::string_view tail = name.substr(dot + 1);
   uint32_t value;
   if (!takeNumber(tail, value) || !tail.empty())
      return Parsed{};
   Parsed parsed = parseParent(name.substr(0, dot));
   if (parsed.kind == IntfKind::ethernet) {
      parsed.kind = IntfKind::ethernetSub;
   } else if (parsed.kind == IntfKind::portChannel) {
      parsed.kind = IntfKind::portChannelSub;
   } else {
      parsed = Parsed{};
      parsed.kind = IntfKind::otherSub;
   }
   parsed.add(value, parsed.levels);
   parsed.hasSub = true;
   return parsed;
}

// The representation of a regular name; 0 where the name has no code.
uint32_t packed(Parsed const& parsed) {
   for (uint32_t code = 1; code < forms.size(); ++code) {
      Form const& form = forms[code];
      if (form.kind != parsed.kind || form.levels != parsed.levels)
         continue;
      uint32_t rep = code;
      for (int i = 0; i < form.numbers(); ++i) {
         if (parsed.number[static_cast<size_t>(i)] >> form.width[i] != 0)
            return 0;
         rep = rep << form.width[i] | parsed.number[static_cast<size_t>(i)];
      }
      return form.numbers() == 0 ? rep << numberBits : rep;
   }
   return 0;
}

Form const& formOf(uint32_t rep) {
   return forms[rep >> numberBits & 15];
}

// The text of a regular id, on the stack.
class RegularText {
  public:
   explicit RegularText(uint32_t rep) {
      Form const& form = formOf(rep);
      char* at = text_;
      at += form.word.copy(at, sizeof text_);
      int shift = numberBits;
      for (int i = 0; i < form.numbers(); ++i) {
         shift -= form.width[i];
         if (i > 0)
            *at++ = i < form.levels ? '/' : '.';
         at = std::to_chars(at, text_ + sizeof text_, rep >> shift & ((1u << form.width[i]) - 1)).ptr;
      }
      size_ = static_cast<size_t>(at - text_);
   }
   std::string_view view() const { return {text_, size_}; }

  private:
   char text_[32]; // the longest is "Port-Channel134217727"
   size_t size_;
};

struct Irregular {
   Kem::String8 name;
   IntfKind kind;
   uint32_t firstNumber;
   uint32_t lastNumber;
};

struct Tables {
   std::deque<Irregular> irregular;                            // by index; entries don't move
   std::unordered_map<std::string_view, uint32_t> indexByName; // the keys are views of the entries
   std::unordered_map<uint32_t, Kem::String8> regularText;     // by representation
};

// Never destroyed, so that ids can be used while the process ends.
Tables& tables() {
   static auto& theTables = *new Tables;
   return theTables;
}

uint32_t indexOf(std::string_view name, Parsed const& parsed) {
   Tables& t = tables();
   auto const found = t.indexByName.find(name);
   if (found != t.indexByName.end())
      return found->second;
   KEM_ASSERT(t.irregular.size() < 0x7fffffffu);
   auto const index = static_cast<uint32_t>(t.irregular.size());
   t.irregular.push_back({name, parsed.kind, parsed.first, parsed.last});
   t.indexByName.emplace(t.irregular.back().name.view(), index);
   return index;
}

Irregular const& irregularOf(IntfId id) {
   Tables& t = tables();
   size_t const index = id.rep() & 0x7fffffffu;
   KEM_ASSERT(index < t.irregular.size());
   return t.irregular[index];
}

bool hasNul(std::string_view name) {
   return name.find('\0') != std::string_view::npos;
}

} // namespace

IntfId::IntfId(std::string_view name) {
   if (name.empty())
      return;
   if (name.size() > maxBytes)
      Kem::throwRange("IntfId::bytes > " + std::to_string(maxBytes) + " not allowed");
   if (hasNul(name))
      Kem::throwRange("IntfId with a NUL byte not allowed");
   Parsed const parsed = parse(name);
   rep_ = packed(parsed);
   if (rep_ == 0)
      rep_ = irregularBit | indexOf(name, parsed);
}

bool IntfId::isRegularRep(uint32_t rep) noexcept {
   if (rep & irregularBit)
      return false;
   return formOf(rep).numbers() > 0 || (rep & numberMask) == 0;
}

Kem::String8 const& IntfId::stringValue() const {
   if (!isRegular())
      return irregularOf(*this).name;
   auto& texts = tables().regularText;
   auto const found = texts.find(rep_);
   if (found != texts.end())
      return found->second;
   return texts.emplace(rep_, RegularText(rep_).view()).first->second;
}

Kem::String8 IntfId::shortName() const {
   static constexpr struct {
      std::string_view word, shortWord;
   } shortWords[] = {{"Ethernet", "Et"}, {"Port-Channel", "Po"}};

   Kem::String8 const& name = stringValue();
   for (auto const& [word, shortWord] : shortWords) {
      if (name.view().starts_with(word) && name.size() > word.size() && isDigit(name.view()[word.size()]))
         return Kem::String8(shortWord) + name.view().substr(word.size());
   }
   return name;
}

IntfKind IntfId::kind() const noexcept {
   return isRegular() ? formOf(rep_).kind : irregularOf(*this).kind;
}

uint32_t IntfId::firstNumber() const noexcept {
   if (!isRegular())
      return irregularOf(*this).firstNumber;
   Form const& form = formOf(rep_);
   return form.numbers() == 0 ? 0 : (rep_ & numberMask) >> (numberBits - form.width[0]);
}

uint32_t IntfId::lastNumber() const noexcept {
   if (!isRegular())
      return irregularOf(*this).lastNumber;
   Form const& form = formOf(rep_);
   return form.numbers() == 0 ? 0 : rep_ & ((1u << form.width[form.numbers() - 1]) - 1);
}

std::strong_ordering IntfId::compareNames(IntfId a, IntfId b) noexcept {
   if (a == b)
      return std::strong_ordering::equal;
   auto const withName = [](IntfId id, auto const& use) {
      return id.isRegular() ? use(RegularText(id.rep_).view()) : use(irregularOf(id).name.view());
   };
   return withName(a, [&](std::string_view nameA) {
      return withName(b, [&](std::string_view nameB) { return Kem::compareNatural(nameA, nameB); });
   });
}

void IntfId::encode(Wire::Writer& writer) const {
   if (isRegular()) {
      writer.u32(rep_);
      return;
   }
   writer.u32(escapeToName);
   writer.string(irregularOf(*this).name);
}

IntfId IntfId::decode(Wire::Reader& reader) {
   uint32_t const rep = reader.u32();
   if (rep != escapeToName) {
      if (isRegularRep(rep))
         return fromRep(rep);
      reader.fail();
      return {};
   }
   std::string_view const name = reader.string();
   if (name.empty() || name.size() > maxBytes || hasNul(name)) {
      reader.fail();
      return {};
   }
   Parsed const parsed = parse(name);
   if (packed(parsed) != 0) {
      reader.fail();
      return {};
   }
   return fromRep(irregularBit | indexOf(name, parsed));
}

uint32_t intfToU32(IntfId id) {
   if (!id.isRegular())
      Kem::throwRange("IntfId " + id.stringValue().str() + " has no number");
   return id.rep();
}

IntfId u32ToIntfId(uint32_t number) {
   if (!IntfId::isRegularRep(number))
      Kem::throwRange("number " + std::to_string(number) + " is no IntfId");
   return IntfId::fromRep(number);
}

std::ostream& operator<<(std::ostream& out, IntfId id) {
   return out << id.stringValue().view();
}

} // namespace Sulvi
