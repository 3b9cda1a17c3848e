#include "BridgeModel.h"

#include <cstdlib>
#include <sstream>

namespace Model {

namespace {

constexpr char agentsInput[] =
    "eth"; // the agent's own input: a default record for each switchport-like interface
constexpr unsigned agentsPriority = 10;
constexpr unsigned routedModel = 5;

// The VLANs of a list; what isn't a number or a range from 1 to 4094 is no VLAN.
// Worked out once for each list.
std::set<unsigned> const& vlansOf(std::string const& list) {
   static std::map<std::string, std::set<unsigned>> known;
   auto const [entry, isNew] = known.try_emplace(list);
   auto& vlans = entry->second;
   if (!isNew)
      return vlans;
   std::stringstream items(list);
   for (std::string item; std::getline(items, item, ',');) {
      std::erase_if(item, [](char c) { return c == ' '; });
      auto const hyphen = item.find('-');
      auto const number = [](std::string const& text) -> unsigned {
         if (text.empty() || text.find_first_not_of("0123456789") != text.npos || text.size() > 9)
            return 0;
         return static_cast<unsigned>(std::atoi(text.c_str()));
      };
      unsigned const first = number(item.substr(0, hyphen));
      unsigned const last = hyphen == item.npos ? first : number(item.substr(hyphen + 1));
      if (first < 1 || last > 4094)
         continue;
      for (unsigned vlan = first; vlan <= last; ++vlan)
         vlans.insert(vlan);
   }
   return vlans;
}

bool intersects(std::set<std::string> const& a, std::set<std::string> const& b) {
   for (auto const& name : a)
      if (b.contains(name))
         return true;
   return false;
}

// A subinterface has neither allowed nor asymmetric VLANs.
bool isSubinterface(std::string const& intf) {
   return intf.find('.') != intf.npos;
}

bool canBeSwitchport(std::string const& intf) {
   for (auto const* const other : {"Vlan", "Loopback", "Management", "Internal", "Vxlan"})
      if (intf.starts_with(other))
         return false;
   return true;
}

// The whole input that gives the VLANs; null when none takes part.
std::pair<std::string, Input const*> vlanInput(Intent const& intent) {
   std::pair<std::string, Input const*> best{"", nullptr};
   for (auto const& [name, input] : intent.inputs)
      if (input.vlanPriority > (best.second ? best.second->vlanPriority : 0))
         best = {name, &input};
   return best;
}

struct Choice {
   std::string input;
   Port port;
};

std::map<std::string, Choice> chosenPorts(Intent const& intent) {
   // The agent's input stands among the others by its name.
   auto inputs = intent.inputs;
   auto& own = inputs[agentsInput];
   own.portPriority = agentsPriority;
   for (auto const& intf : intent.ethernetIntfs)
      if (canBeSwitchport(intf))
         own.ports[intf];
   std::map<std::string, Choice> chosen;
   std::map<std::string, unsigned> priorities;
   for (auto const& [name, input] : inputs)
      for (auto const& [intf, port] : input.ports)
         if (input.portPriority > priorities[intf]) {
            priorities[intf] = input.portPriority;
            chosen[intf] = {name, port};
         }
   return chosen;
}

// Collects what is wrong.
class Report {
  public:
   template <class A, class B>
   void same(std::string const& what, A const& expected, B const& actual) {
      if (!(expected == actual))
         text_ << what << ": expected " << expected << ", is " << actual << "\n";
   }
   void wrong(std::string const& what) { text_ << what << "\n"; }
   std::string text() const { return text_.str(); }

  private:
   std::ostringstream text_;
};

std::string text(std::map<std::string, Member> const& members) {
   std::ostringstream out;
   for (auto const& [intf, m] : members)
      out << intf << (m.tagged ? " tagged" : "") << (m.mapped ? " mapped" : "") << " " << m.direction << "; ";
   return out.str();
}

std::string text(std::set<std::string> const& names) {
   std::string all;
   for (auto const& name : names)
      all += name + ' ';
   return all;
}

struct Expected {
   std::map<unsigned, ResolvedVlan> vlans; // the user's
   std::map<std::string, ResolvedPort> ports;
};

bool isMember(std::string const& intf, Port const& port, ResolvedPort const& resolved, unsigned number,
              ResolvedVlan const& vlan) {
   if (vlan.isSuspended)
      return false;
   switch (resolved.mode) {
   case routed:
      return false; // of none of the user's VLANs
   case tunnel:
      return resolved.native == number;
   case access:
      return resolved.isAsym ? vlansOf(port.asym).contains(number) : resolved.native == number;
   default:
      break;
   }
   if (isSubinterface(intf))
      return false;
   auto const& list = resolved.mode == tap    ? port.tapAllowed
                      : resolved.mode == tool ? port.toolAllowed
                                              : port.trunkAllowed;
   return vlansOf(list).contains(number) &&
          (vlan.trunkGroups.empty() || intersects(vlan.trunkGroups, port.trunkGroups));
}

Member membership(ResolvedPort const& resolved, unsigned number) {
   if (resolved.mode == tool)
      return {.direction = 2};
   if (resolved.mode == tap)
      return {.direction = 1};
   if (resolved.isAsym)
      return {};
   return {.tagged = resolved.native != number};
}

Expected compute(Intent const& intent) {
   Expected expected;
   auto const [inputName, input] = vlanInput(intent);
   if (input)
      for (auto const& [number, vlan] : input->vlans)
         expected.vlans[number] = {.isSuspended = vlan.isSuspended,
                                   .source = inputName,
                                   .name = vlan.name,
                                   .trunkGroups = vlan.trunkGroups};
   for (auto const& [intf, choice] : chosenPorts(intent)) {
      Port const& port = choice.port;
      ResolvedPort resolved;
      resolved.mode = port.enabled ? port.mode : int(routed);
      bool const isForwarding = port.enabled && port.mode != tap && port.mode != tool;
      resolved.learns = port.learns && isForwarding;
      resolved.floods = port.floods && isForwarding;
      resolved.tpid = port.tpid;
      resolved.isAsym = port.mode == access && !port.asym.empty() && !isSubinterface(intf);
      resolved.takesTagged = !resolved.isAsym;
      resolved.filters = !resolved.isAsym || vlansOf(port.asym).contains(port.accessVlan);
      unsigned const wanted = resolved.mode == trunk ? port.trunkNative : port.accessVlan;
      switch (resolved.mode) {
      case tap:
         resolved.native = port.tapNative;
         break;
      case tool:
         resolved.native = 1;
         break;
      case routed:
         break; // see checkRouted
      default:
         resolved.native = expected.vlans.contains(wanted) ? wanted : 0;
      }
      for (auto& [number, vlan] : expected.vlans)
         if (isMember(intf, port, resolved, number, vlan))
            vlan.members[intf] = membership(resolved, number);
      expected.ports[intf] = resolved;
   }
   return expected;
}

void checkVlans(Intent const& intent, Expected const& expected, Resolved const& actual, Report& report) {
   for (auto const& [number, vlan] : expected.vlans) {
      std::string const place = "VLAN " + std::to_string(number);
      auto const found = actual.vlans.find(number);
      if (found == actual.vlans.end() || found->second.internal) {
         report.wrong(place + " is missing");
         continue;
      }
      auto const& is = found->second;
      report.same(place + " suspended", vlan.isSuspended, is.isSuspended);
      // A VLAN that another input has alike keeps the name of the one it was made from.
      if (is.source != vlan.source && !intent.publishersEver.contains(is.source))
         report.same(place + " source", vlan.source, is.source);
      report.same(place + " name", vlan.name, is.name);
      report.same(place + " trunk groups", text(vlan.trunkGroups), text(is.trunkGroups));
      report.same(place + " members", text(vlan.members), text(is.members));
      if (is.isSuspended && is.hasCpu)
         report.wrong(place + " is suspended and has the CPU port");
   }
   for (auto const& [number, vlan] : actual.vlans)
      if (!vlan.internal && !expected.vlans.contains(number))
         report.wrong("VLAN " + std::to_string(number) + " is nobody's");
}

void checkPorts(Intent const& intent, Expected const& expected, Resolved const& actual, Report& report) {
   auto const chosen = chosenPorts(intent);
   for (auto const& [intf, port] : expected.ports) {
      auto const found = actual.ports.find(intf);
      if (found == actual.ports.end()) {
         report.wrong(intf + " is missing");
         continue;
      }
      auto const& is = found->second;
      report.same(intf + " mode", port.mode, is.mode);
      if (port.mode != routed)
         report.same(intf + " native VLAN", port.native, is.native);
      report.same(intf + " learns", port.learns, is.learns);
      report.same(intf + " floods", port.floods, is.floods);
      report.same(intf + " tpid", port.tpid, is.tpid);
      // While a port is no switchport these wait for it to become one.
      if (chosen.at(intf).port.enabled) {
         report.same(intf + " asymmetric", port.isAsym, is.isAsym);
         report.same(intf + " takes tagged frames", port.takesTagged, is.takesTagged);
         report.same(intf + " filters", port.filters, is.filters);
      }
      auto const from = actual.chosen.find(intf);
      report.same(intf + " chosen from", chosen.at(intf).input,
                  from == actual.chosen.end() ? std::string("nowhere") : from->second);
   }
   for (auto const& [intf, port] : actual.ports)
      if (!expected.ports.contains(intf))
         report.wrong(intf + " is nobody's");
   for (auto const& [intf, input] : actual.chosen)
      if (!chosen.contains(intf))
         report.wrong(intf + " is chosen from " + input + ", which has none");
}

// Internal VLANs: who has which number depends on what came first, but these hold whenever all is at rest.
void checkRouted(Intent const& intent, Expected const& expected, Resolved const& actual, Report& report) {
   auto const chosen = chosenPorts(intent);
   std::map<unsigned, std::string> owners;
   for (auto const& [intf, port] : expected.ports) {
      auto const found = actual.ports.find(intf);
      if (port.mode != routed || found == actual.ports.end()) {
         if (actual.waiting.contains(intf))
            report.wrong(intf + " is no routed port and waits for an internal VLAN");
         continue;
      }
      unsigned const native = found->second.native;
      auto const model = intent.forwardingModel.find(intf);
      bool const mayHaveOne = intent.ethernetIntfs.contains(intf) && !intent.shutIntfs.contains(intf) &&
                              model != intent.forwardingModel.end() && model->second == routedModel;
      if (native == 0) {
         if (mayHaveOne && !actual.waiting.contains(intf) && !intent.hasTimePassed)
            report.wrong(intf + " has no internal VLAN and doesn't wait for one");
         continue;
      }
      if (actual.waiting.contains(intf))
         report.wrong(intf + " has an internal VLAN and waits for one");
      if (!mayHaveOne)
         report.wrong(intf + " has an internal VLAN and can't use it");
      if (auto const [other, isNew] = owners.emplace(native, intf); !isNew)
         report.wrong(intf + " shares its internal VLAN with " + other->second);
      auto const vlan = actual.vlans.find(native);
      if (vlan == actual.vlans.end() || !vlan->second.internal) {
         report.wrong(intf + " has VLAN " + std::to_string(native) + ", which is no internal VLAN");
         continue;
      }
      report.same(intf + " internal VLAN's name", intf, vlan->second.name);
      report.same(intf + " internal VLAN's source", std::string("internal"), vlan->second.source);
      // A port in routed mode that gets its VLAN while another VLAN is evaluated joins
      // it at its own next evaluation.
      bool const mayBeLate = chosen.at(intf).port.enabled && vlan->second.members.empty();
      if (!mayBeLate)
         report.same(intf + " internal VLAN's members", text({{intf, Member{}}}), text(vlan->second.members));
      if (!vlan->second.hasCpu)
         report.wrong(intf + " internal VLAN lacks the CPU port");
   }
   auto const [inputName, input] = vlanInput(intent);
   for (auto const& [number, vlan] : actual.vlans) {
      if (!vlan.internal)
         continue;
      std::string const place = "internal VLAN " + std::to_string(number);
      if (!owners.contains(number))
         report.wrong(place + " is nobody's");
      if (input && input->vlans.contains(number))
         report.wrong(place + " is the user's");
      if (intent.vlanIntfs.contains(number))
         report.wrong(place + " has a VLAN interface");
   }
}

void checkSettings(Intent const& intent, Resolved const& actual, Report& report) {
   auto const [inputName, input] = vlanInput(intent);
   report.same("source detail", input ? input->detail : std::string(), actual.detail);
   report.same("range min", intent.rangeMin, actual.rangeMin);
   report.same("range max", intent.rangeMax, actual.rangeMax);
   report.same("allocates descending", intent.allocatesDescending, actual.allocatesDescending);
   report.same("aging time", intent.agingTime, actual.agingTime);
   report.same("passes pause", intent.passesPause, actual.passesPause);
   unsigned forwardingMode = intent.supportedModes.empty() ? 0 : intent.supportedModes[0];
   for (unsigned const mode : intent.supportedModes)
      if (mode == intent.forwardingMode && mode != 0)
         forwardingMode = mode;
   report.same("forwarding mode", forwardingMode, actual.forwardingMode);
   report.same("reserved addresses", text(intent.reserved), text(actual.reserved));
   std::map<unsigned, unsigned> fids;
   for (auto const& [vlan, fid] : intent.fids)
      if (fid != 0)
         fids[vlan] = fid;
   if (fids != actual.fids)
      report.wrong("filtering databases differ");
}

} // namespace

std::string differences(Intent const& intent, Resolved const& actual) {
   Report report;
   Expected const expected = compute(intent);
   checkVlans(intent, expected, actual, report);
   checkPorts(intent, expected, actual, report);
   checkRouted(intent, expected, actual, report);
   checkSettings(intent, actual, report);
   return report.text();
}

} // namespace Model
