#include "Words.h"

#include "Failures.h"

#include "Kem/Exception.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <initializer_list>

namespace Vornctl {

namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

template <class Enum>
std::string numbered(char const* noun, Enum value) {
   return noun + (' ' + std::to_string(static_cast<unsigned>(value)));
}

// Whether `word`, of any case, is a beginning of `name` of at least two letters.
bool abbreviates(std::string_view word, std::string_view name) {
   return word.size() >= 2 && word.size() <= name.size() &&
          std::equal(word.begin(), word.end(), name.begin(), [](char a, char b) {
             return std::tolower(static_cast<unsigned char>(a)) ==
                    std::tolower(static_cast<unsigned char>(b));
          });
}

} // namespace

std::string modeText(Bridging::SwitchportMode mode) {
   using Bridging::SwitchportMode;
   switch (mode) {
   case SwitchportMode::access_:
      return "access";
   case SwitchportMode::trunk_:
      return "trunk";
   case SwitchportMode::dot1qTunnel_:
      return "tunnel";
   case SwitchportMode::tap_:
      return "tap";
   case SwitchportMode::tool_:
      return "tool";
   case SwitchportMode::routed_:
      return "routed";
   }
   return numbered("mode", mode);
}

std::string statusText(Bridging::VlanAdminState state) {
   switch (state) {
   case Bridging::VlanAdminState::active:
      return "active";
   case Bridging::VlanAdminState::suspended:
      return "suspended";
   }
   return numbered("state", state);
}

std::string directionText(Bridging::VlanPortDirection direction) {
   switch (direction) {
   case Bridging::VlanPortDirection::rxAndTx:
      return "both ways";
   case Bridging::VlanPortDirection::rxOnly:
      return "receives only";
   case Bridging::VlanPortDirection::txOnly:
      return "sends only";
   }
   return numbered("direction", direction);
}

std::string directionName(Bridging::VlanPortDirection direction) {
   switch (direction) {
   case Bridging::VlanPortDirection::rxAndTx:
      return "rxAndTx";
   case Bridging::VlanPortDirection::rxOnly:
      return "rxOnly";
   case Bridging::VlanPortDirection::txOnly:
      return "txOnly";
   }
   return std::to_string(static_cast<unsigned>(direction));
}

std::string membershipText(Bridging::VlanPortConfig const& member) {
   std::string text = member.tagged ? "tagged" : "untagged";
   if (member.direction != Bridging::VlanPortDirection::rxAndTx)
      text += ", " + directionText(member.direction);
   return text;
}

std::string operStatusText(Interface::IntfOperStatus status) {
   using Interface::IntfOperStatus;
   switch (status) {
   case IntfOperStatus::intfOperUp:
      return "up";
   case IntfOperStatus::intfOperDown:
      return "down";
   case IntfOperStatus::intfOperTesting:
      return "testing";
   case IntfOperStatus::intfOperUnknown:
      return "unknown";
   case IntfOperStatus::intfOperDormant:
      return "dormant";
   case IntfOperStatus::intfOperNotPresent:
      return "not present";
   case IntfOperStatus::intfOperLowerLayerDown:
      return "lower layer down";
   }
   return numbered("state", status);
}

std::string operStatusName(Interface::IntfOperStatus status) {
   std::string const text = operStatusText(status);
   std::string name;
   for (size_t i = 0; i < text.size(); ++i)
      if (text[i] != ' ')
         name += i > 0 && text[i - 1] == ' '
                     ? static_cast<char>(std::toupper(static_cast<unsigned char>(text[i])))
                     : text[i];
   return name;
}

std::string forwardingModelText(Interface::IntfForwardingModel model) {
   using Interface::IntfForwardingModel;
   switch (model) {
   case IntfForwardingModel::intfForwardingModelUnknown:
      return "unknown";
   case IntfForwardingModel::intfForwardingModelBridged:
      return "bridged";
   case IntfForwardingModel::intfForwardingModelAggregated:
      return "aggregated";
   case IntfForwardingModel::intfForwardingModelMirrored:
      return "mirrored";
   case IntfForwardingModel::intfForwardingModelBlocked:
      return "blocked";
   case IntfForwardingModel::intfForwardingModelRouted:
      return "routed";
   }
   return numbered("model", model);
}

std::string encapsulationText(Interface::SubIntfEncapType type) {
   using Interface::SubIntfEncapType;
   switch (type) {
   case SubIntfEncapType::subIntfEncapNone:
      return "none";
   case SubIntfEncapType::subIntfEncapDot1q:
      return "802.1Q";
   }
   return numbered("encapsulation", type);
}

namespace {

// The name with a beginning of one of these words before its first digit made whole.
std::string spelledOut(std::string_view text, std::initializer_list<std::string_view> kinds) {
   std::string name(text);
   size_t const digits = static_cast<size_t>(std::find_if(name.begin(), name.end(), isDigit) - name.begin());
   if (digits < name.size())
      for (std::string_view const kind : kinds)
         if (abbreviates(std::string_view(name).substr(0, digits), kind)) {
            name.replace(0, digits, kind);
            break;
         }
   return name;
}

Sulvi::IntfId intfOfName(std::string const& name, std::string const& noun) {
   if (name.empty())
      throw UsageError("the name of " + noun + " is wanted");
   try {
      return Sulvi::IntfId(name);
   } catch (Kem::RangeException const& error) {
      throw UsageError("no name of " + noun + ": " + error.what());
   }
}

} // namespace

Sulvi::IntfId portFromText(std::string_view text) {
   return intfOfName(spelledOut(text, {"Ethernet", "Port-Channel"}), "a port");
}

Sulvi::IntfId intfFromText(std::string_view text, bool numbersAreVlans) {
   if (numbersAreVlans && !text.empty() && std::all_of(text.begin(), text.end(), isDigit))
      return intfOfName("Vlan" + std::string(text), "an interface");
   return intfOfName(spelledOut(text, {"Ethernet", "Port-Channel", "Vlan", "Loopback", "Management"}),
                     "an interface");
}

Bridging::VlanId vlanFromText(std::string_view text) {
   bool const isNumber = !text.empty() && text.size() <= 4 && std::all_of(text.begin(), text.end(), isDigit);
   int const number = isNumber ? std::stoi(std::string(text)) : 0;
   if (number < Bridging::VlanId::min || number > Bridging::VlanId::max)
      throw UsageError("VLAN " + std::string(text) + ": a number from 1 to 4094 is wanted");
   return Bridging::VlanId(static_cast<uint16_t>(number));
}

std::optional<Sulvi::EthAddr> addressFromText(std::string_view text) {
   try {
      return Sulvi::EthAddr(text);
   } catch (Kem::RangeException const&) {
      return std::nullopt;
   }
}

std::vector<std::string> portList(std::vector<Sulvi::IntfId> ports) {
   std::sort(ports.begin(), ports.end());
   std::vector<std::string> names;
   for (Sulvi::IntfId const port : ports)
      names.push_back(port.shortName().str());
   return names;
}

std::vector<std::string> vlanList(VornUtils::VlanIdSet const& vlans) {
   std::vector<std::string> items;
   std::string const text = vlans.text();
   for (size_t at = 0; at < text.size();) {
      size_t const end = std::min(text.find(',', at), text.size());
      items.push_back(text.substr(at, end - at));
      at = end + 1;
   }
   return items;
}

std::string joined(std::vector<std::string> const& items) {
   std::string text;
   for (size_t i = 0; i < items.size(); ++i)
      text += (i == 0 ? "" : i + 1 < items.size() ? ", " : " and ") + items[i];
   return text;
}

std::string counted(size_t count, std::string_view noun) {
   return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

std::string shellWord(std::string const& word) {
   constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.:/-";
   if (!word.empty() && word[0] != '-' && word.find_first_not_of(plain) == std::string::npos)
      return word;
   std::string quoted = "'";
   for (char const c : word)
      quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
   return quoted + "'";
}

std::string durationText(double seconds) {
   struct Unit {
      double seconds;
      char const* name;
   };
   constexpr Unit units[] = {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}};
   for (auto const& unit : units)
      if (seconds >= 2 * unit.seconds || unit.seconds == 1) {
         char text[32];
         std::snprintf(text, sizeof text, "%.0f %s", std::max(0.0, seconds) / unit.seconds, unit.name);
         return text;
      }
   return {};
}

} // namespace Vornctl
