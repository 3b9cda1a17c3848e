// A switch for scenario tests of bridging: a database, the agent on it, and what was resolved as short texts.
//
//    Scenario::Switch bridge;
//    bridge.load(leafSwitch);
//    bridge.settle();
//    EXPECT_EQ(bridge.port("Ethernet1"), "access_ 10");
//    EXPECT_EQ(bridge.vlansOf("Ethernet25"), "10t 11t 99");
#pragma once

#include "Processes.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Scenario {

using Json = nlohmann::ordered_json; // dumps come in natural order

inline std::string const leafSwitch = EXAMPLE_FOLDER "/leaf-switch.json";
inline std::string const leafProvisioning = EXAMPLE_FOLDER "/leaf-provisioning.json";
inline std::string const cliInput = "bridging/input/config/cli";
inline std::string const noInternalVlan = "interface/errdisable/cause/no-internal-vlan";

class Switch {
  public:
   // With the agent running.
   explicit Switch(std::vector<std::string> const& agentArguments = {}) : agentArguments_(agentArguments) {
      startAgent();
   }

   Database& database() { return database_; }
   Agent& agent() { return *agent_; }
   Process& agentProcess() { return agent_->process(); }
   // Returns when it is ready.
   void startAgent() { agent_ = std::make_unique<Agent>(database_, agentArguments_); }
   void killAgent() {
      agent_->process().signal(SIGKILL);
      EXPECT_EQ(agent_->process().wait(), 128 + SIGKILL);
   }

   // --- What a test does; what isn't done fails the test.
   void done(std::vector<std::string> const& arguments, std::string_view input = {}) {
      Result const result = database_.ctl(arguments, input);
      EXPECT_EQ(result.status, 0) << arguments[0] << ' ' << (arguments.size() > 1 ? arguments[1] : "") << ": "
                                  << result.errors;
   }
   void set(std::string const& selector, std::string const& value) { done({"set", selector, value}); }
   void erase(std::string const& selector) { done({"delete", selector}); }
   void load(std::string const& file) { done({"load", file}); }
   void load(Json const& document) { done({"load", "-"}, document.dump()); }
   void settle() { done({"settle", "--timeout", "20"}); }

   // --- What exists.
   std::string get(std::string const& selector) const { return database_.get(selector); }
   Json read(std::string const& selector) const {
      std::string const text = get(selector);
      Json value = Json::parse(text, nullptr, false);
      EXPECT_FALSE(value.is_discarded()) << selector << ": " << text;
      return value;
   }
   std::string dump(std::string const& selector = "bridging") const {
      Result const result = database_.ctl({"dump", selector});
      EXPECT_EQ(result.status, 0) << result.errors;
      return result.output;
   }
   // Whether the selector leads to something.
   bool exists(std::string const& selector) const { return database_.ctl({"get", selector}).status == 0; }

   // The resolved mode and native VLAN of a port, such as "trunk_ 99"; "none" where it has no record.
   std::string port(std::string const& intf) const {
      std::string const selector =
          "bridging/config.switchIntfConfig[" + intf + "].switchportModeAndNativeVlan";
      if (!exists(selector))
         return "none";
      Json const value = read(selector);
      return value["switchportMode"].get<std::string>() + " " +
             std::to_string(value["nativeVlan"].get<int>());
   }
   // The members of a resolved VLAN, such as "Cpu-t Ethernet1 Ethernet25-t", each with the signs of `signs`;
   // "none" where there is no such VLAN.
   std::string members(int vlan) const {
      std::string const selector = "bridging/config.vlanConfig[" + std::to_string(vlan) + "].intf";
      if (!exists(selector))
         return "none";
      std::string text;
      Json const memberships = read(selector);
      for (auto const& [intf, membership] : memberships.items())
         text +=
             (text.empty() ? "" : " ") + intf + (signs(membership).empty() ? "" : "-" + signs(membership));
      return text;
   }
   // The resolved VLANs that a port is a member of, such as "10t 11t 99".
   std::string vlansOf(std::string const& intf) const {
      std::string text;
      Json const vlans = read("bridging/config.vlanConfig");
      for (auto const& [number, vlan] : vlans.items())
         if (auto const found = vlan["intf"].find(intf); found != vlan["intf"].end())
            text += (text.empty() ? "" : " ") + number + signs(*found);
      return text;
   }
   // The ports that wait for an internal VLAN.
   std::vector<std::string> waiting() const { return keys(noInternalVlan + ".intfStatus"); }
   std::vector<std::string> keys(std::string const& selector) const {
      std::vector<std::string> names;
      Json const members = read(selector);
      for (auto const& [name, value] : members.items())
         names.push_back(name);
      return names;
   }

  private:
   // "t" tagged, "m" mapped, "r" receives only, "s" sends only.
   static std::string signs(Json const& membership) {
      std::string text = membership["tagged"].get<bool>() ? "t" : "";
      text += membership["mappedUntagged"].get<bool>() ? "m" : "";
      text += membership["direction"] == "rxOnly" ? "r" : membership["direction"] == "txOnly" ? "s" : "";
      return text;
   }

   Database database_;
   std::vector<std::string> agentArguments_;
   std::unique_ptr<Agent> agent_;
};

} // namespace Scenario
