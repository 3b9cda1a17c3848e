#include "Vorn/Rules/SubIntfIds.h"

#include "Sulvi/IntfKind.h"

namespace Vorn {

std::optional<uint32_t> subIntfNumber(Sulvi::IntfId intfId) {
   if (auto const number = Sulvi::EthIntfId::subIntf(intfId))
      return number;
   return Sulvi::PortChannelIntfId::subIntf(intfId);
}

Sulvi::IntfId parentOfSubIntf(Sulvi::IntfId intfId) {
   auto const parent = Sulvi::EthIntfId::parentIntfIdFromSubIntf(intfId);
   return parent.empty() ? Sulvi::PortChannelIntfId::parentIntfIdFromSubIntf(intfId) : parent;
}

std::string subIntfIdProblem(Sulvi::IntfId intfId) {
   auto const number = subIntfNumber(intfId);
   if (!number)
      return "not a subinterface of an Ethernet port or a port channel";
   if (*number >= subIntfNumberLimit)
      return "its number is above " + std::to_string(subIntfNumberLimit - 1);
   return {};
}

} // namespace Vorn
