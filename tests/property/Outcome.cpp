#include "Outcome.h"

#include <sstream>

namespace Model {

namespace {

// Collects what differs.
class Report {
  public:
   template <class T>
   void same(std::string const& what, T const& expected, T const& actual) {
      if (!(expected == actual))
         text_ << what << ": expected " << expected << ", is " << actual << "\n";
   }
   // Calls compare(key, expected, actual) for what both have, and reports what one of them lacks.
   template <class Key, class Value, class Compare>
   void members(std::string const& what, std::map<Key, Value> const& expected,
                std::map<Key, Value> const& actual, Compare&& compare) {
      for (auto const& [key, value] : expected)
         if (auto const found = actual.find(key); found == actual.end())
            text_ << what << " " << key << " is missing\n";
         else
            compare(key, value, found->second);
      for (auto const& [key, value] : actual)
         if (!expected.contains(key))
            text_ << what << " " << key << " is nobody's\n";
   }
   std::string text() const { return text_.str(); }

  private:
   std::ostringstream text_;
};

std::string textOf(std::map<std::string, Member> const& members) {
   std::ostringstream out;
   for (auto const& [intf, m] : members)
      out << intf << (m.tagged ? " tagged" : "") << (m.mapped ? " mapped" : "") << " " << m.direction << "; ";
   return out.str();
}

std::string textOf(std::set<std::string> const& names) {
   std::string all;
   for (auto const& name : names)
      all += name + ' ';
   return all;
}

std::string textOf(Role const& role) {
   return std::to_string(role.type) + " of " + std::to_string(role.primary);
}

std::string textOf(std::map<Tags, Tags> const& translations) {
   std::string all;
   for (auto const& [from, to] : translations)
      all += tagsText(from) + " to " + tagsText(to) + "; ";
   return all;
}

std::string textOf(SviMapping const& mapping) {
   std::string all = mapping.servesAll ? "all; " : "";
   for (unsigned const secondary : mapping.served)
      all += std::to_string(secondary) + ' ';
   return all;
}

std::string textOf(MergedFdb const& fdb) {
   std::string all;
   for (auto const& [address, host] : fdb.hosts)
      all += address + " on " + host.intf + " " + std::to_string(host.type) + "; ";
   for (auto const& [address, members] : fdb.groups)
      all += address + " to " + textOf(members) + "; ";
   return all;
}

void compareVlan(Report& report, std::string const& place, ResolvedVlan const& expected,
                 ResolvedVlan const& actual) {
   report.same(place + " internal", expected.internal, actual.internal);
   report.same(place + " suspended", expected.isSuspended, actual.isSuspended);
   report.same(place + " source", expected.source, actual.source);
   report.same(place + " name", expected.name, actual.name);
   report.same(place + " role", textOf(expected.role), textOf(actual.role));
   report.same(place + " trunk groups", textOf(expected.trunkGroups), textOf(actual.trunkGroups));
   report.same(place + " members", textOf(expected.members), textOf(actual.members));
}

void comparePort(Report& report, std::string const& intf, ResolvedPort const& expected,
                 ResolvedPort const& actual) {
   report.same(intf + " mode", expected.mode, actual.mode);
   report.same(intf + " native VLAN", expected.native, actual.native);
   report.same(intf + " learns", expected.learns, actual.learns);
   report.same(intf + " floods", expected.floods, actual.floods);
   report.same(intf + " takes tagged frames", expected.takesTagged, actual.takesTagged);
   report.same(intf + " asymmetric", expected.isAsym, actual.isAsym);
   report.same(intf + " filters", expected.filters, actual.filters);
   report.same(intf + " tpid", expected.tpid, actual.tpid);
   report.same(intf + " arriving tags", textOf(expected.ingress), textOf(actual.ingress));
   report.same(intf + " leaving tags", textOf(expected.egress), textOf(actual.egress));
   report.same(intf + " arriving native", expected.ingressNative, actual.ingressNative);
   report.same(intf + " leaving native", expected.egressNative, actual.egressNative);
}

} // namespace

std::string differences(Outcome const& expected, Outcome const& actual) {
   Report report;
   report.members("VLAN", expected.vlans, actual.vlans, [&](unsigned number, auto const& a, auto const& b) {
      compareVlan(report, "VLAN " + std::to_string(number), a, b);
   });
   report.members("port", expected.ports, actual.ports,
                  [&](auto const& intf, auto const& a, auto const& b) { comparePort(report, intf, a, b); });
   report.members("waiting", expected.waiting, actual.waiting,
                  [&](auto const& intf, double a, double b) { report.same(intf + " waits since", a, b); });
   report.members(
       "chosen", expected.chosen, actual.chosen,
       [&](auto const& intf, auto const& a, auto const& b) { report.same(intf + " chosen from", a, b); });
   report.members("default record", expected.defaults, actual.defaults,
                  [&](auto const& intf, bool a, bool b) { report.same(intf + " enabled by default", a, b); });
   report.same("source detail", expected.detail, actual.detail);
   report.same("range min", expected.rangeMin, actual.rangeMin);
   report.same("range max", expected.rangeMax, actual.rangeMax);
   report.same("allocates descending", expected.allocatesDescending, actual.allocatesDescending);
   report.same("aging time", expected.agingTime, actual.agingTime);
   report.same("passes pause", expected.passesPause, actual.passesPause);
   report.same("forwarding mode", expected.forwardingMode, actual.forwardingMode);
   report.same("reserved addresses", textOf(expected.reserved), textOf(actual.reserved));
   report.members("filtering database of VLAN", expected.fids, actual.fids,
                  [&](unsigned number, unsigned a, unsigned b) {
                     report.same("filtering database of VLAN " + std::to_string(number), a, b);
                  });
   report.members("mapping of primary VLAN", expected.sviMappings, actual.sviMappings,
                  [&](unsigned number, auto const& a, auto const& b) {
                     report.same("mapping of primary VLAN " + std::to_string(number), textOf(a), textOf(b));
                  });
   auto const compareFdbs = [&](char const* what, auto const& wanted, auto const& is) {
      report.members(what, wanted, is, [&](unsigned number, auto const& a, auto const& b) {
         report.same(what + (" " + std::to_string(number)), textOf(a), textOf(b));
      });
   };
   compareFdbs("merged hosts of VLAN", expected.merged, actual.merged);
   compareFdbs("hosts of VLAN", expected.fdbs, actual.fdbs);
   return report.text();
}

} // namespace Model
