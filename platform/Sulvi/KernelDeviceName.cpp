#include "Sulvi/KernelDeviceName.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace Sulvi {

namespace {

constexpr std::string_view vlanWord = "vlan";

// What of a name is read: the bytes before a NUL, and at most the longest name.
std::string cut(std::string_view name) {
   return std::string(name.substr(0, std::min(name.find('\0'), maxKernelDeviceNameBytes)));
}

// The letters of ASCII only, whatever the locale.
char toLower(char c) {
   return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool beginsWithNumbered(std::string_view name, std::string_view word) {
   return name.size() > word.size() && name.starts_with(word) && name[word.size()] >= '1' &&
          name[word.size()] <= '9';
}

} // namespace

Kem::String8 kernelDeviceName(IntfId intfId) {
   std::string name = cut(intfId.shortName());
   for (char& c : name)
      c = c == '/' ? '_' : toLower(c);
   return name;
}

IntfId getIntfIdFromKernelDeviceName(std::string_view deviceName) {
   std::string name = cut(deviceName);
   std::replace(name.begin(), name.end(), '_', '/');
   if (beginsWithNumbered(name, "et"))
      name.replace(0, 2, "Ethernet");
   else if (beginsWithNumbered(name, "po"))
      name.replace(0, 2, "Port-Channel");
   static_assert(maxKernelDeviceNameBytes - 2 + std::string_view("Port-Channel").size() <= IntfId::maxBytes);
   return IntfId(name);
}

bool isSubIntf(std::string_view name) {
   return name.find('.') != std::string_view::npos;
}

Kem::String8 vlanDeviceName(uint32_t vlanId) {
   return std::string(vlanWord) + std::to_string(vlanId);
}

std::optional<uint32_t> vlanIdFromDeviceName(std::string_view name) {
   if (!name.starts_with(vlanWord))
      return std::nullopt;
   std::string_view const digits = name.substr(vlanWord.size());
   uint32_t vlanId = 0;
   auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), vlanId);
   if (error != std::errc() || end != digits.data() + digits.size() ||
       (digits[0] == '0' && digits.size() > 1))
      return std::nullopt;
   return vlanId;
}

} // namespace Sulvi
