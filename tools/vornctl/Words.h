// Numbers and names of the records in a network engineer's words, and back.
#pragma once

#include "Sulvi/EthAddr.h"
#include "Sulvi/IntfId.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/types.h"
#include "records/Interface/types.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vornctl {

// "access", "trunk", "tunnel", "tap", "tool", "routed"; "mode 9" for what has no name.
std::string modeText(Bridging::SwitchportMode mode);
std::string statusText(Bridging::VlanAdminState state); // "active", "suspended", "state 9"
// "both ways", "receives only", "sends only".
std::string directionText(Bridging::VlanPortDirection direction);
// As the tree names it: "rxAndTx"; "3" for what has no name.
std::string directionName(Bridging::VlanPortDirection direction);
// "tagged", "untagged", with a direction that isn't both ways behind it: "untagged, sends only".
std::string membershipText(Bridging::VlanPortConfig const& member);
// "up", "lower layer down"; "state 9" for what has no name.
std::string operStatusText(Interface::IntfOperStatus status);
// The same as JSON has it: "lowerLayerDown".
std::string operStatusName(Interface::IntfOperStatus status);
// "routed", "bridged"; "model 9" for what has no name.
std::string forwardingModelText(Interface::IntfForwardingModel model);
// "802.1Q", "none"; "encapsulation 9" for what has no name.
std::string encapsulationText(Interface::SubIntfEncapType type);

// The port that a text names: its full name, or "Et1", "eth3/1", "po5" in either case. Any other text is a
// name as it is. Raises UsageError for a text that can't be a name.
Sulvi::IntfId portFromText(std::string_view text);
// The same for any interface: also "vl10", "vlan10", "lo0", "ma1", and "10", which is Vlan10, where `numbersAreVlans`.
Sulvi::IntfId intfFromText(std::string_view text, bool numbersAreVlans = false);
// Raises UsageError for a text that isn't a number from 1 to 4094.
Bridging::VlanId vlanFromText(std::string_view text);

// The Ethernet address that a text is, such as "00:1c:73:00:00:01"; nothing for any other text.
std::optional<Sulvi::EthAddr> addressFromText(std::string_view text);

// Short names in natural order: "Et2", "Et10", "Po5".
std::vector<std::string> portList(std::vector<Sulvi::IntfId> ports);
// The shortest list, item by item: "1", "5-9". A set with nothing in it gives no item.
std::vector<std::string> vlanList(VornUtils::VlanIdSet const& vlans);

// "a", "a and b", "a, b and c".
std::string joined(std::vector<std::string> const& items);
// "1 port", "2 ports".
std::string counted(size_t count, std::string_view noun);
// The word as it is typed into a shell: in quotes where it isn't plain, since publishers choose names.
std::string shellWord(std::string const& word);
// "12 s", "5 min", "3 h", "2 d": how long ago or in how long.
std::string durationText(double seconds);

} // namespace Vornctl
