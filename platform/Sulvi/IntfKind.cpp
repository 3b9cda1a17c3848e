#include "Sulvi/IntfKind.h"

namespace Sulvi {

namespace {

std::optional<uint32_t> numberOfSub(IntfId id, IntfKind kind) {
   if (id.kind() != kind)
      return std::nullopt;
   return id.lastNumber();
}

IntfId parentOfSub(IntfId id, IntfKind kind) {
   if (id.kind() != kind)
      return {};
   std::string_view const name = id.stringValue();
   return IntfId(name.substr(0, name.rfind('.')));
}

} // namespace

std::optional<uint32_t> EthIntfId::subIntf(IntfId id) {
   return numberOfSub(id, IntfKind::ethernetSub);
}

IntfId EthIntfId::parentIntfIdFromSubIntf(IntfId id) {
   return parentOfSub(id, IntfKind::ethernetSub);
}

std::optional<uint32_t> PortChannelIntfId::subIntf(IntfId id) {
   return numberOfSub(id, IntfKind::portChannelSub);
}

IntfId PortChannelIntfId::parentIntfIdFromSubIntf(IntfId id) {
   return parentOfSub(id, IntfKind::portChannelSub);
}

uint16_t VlanIntfId::vlanId(IntfId id) {
   if (!isVlanIntfId(id))
      return 0;
   uint32_t const number = id.firstNumber();
   return number > UINT16_MAX ? UINT16_MAX : static_cast<uint16_t>(number);
}

bool SubIntfId::isSubIntfId(IntfId id) {
   IntfKind const kind = id.kind();
   return kind == IntfKind::ethernetSub || kind == IntfKind::portChannelSub || kind == IntfKind::otherSub;
}

} // namespace Sulvi
