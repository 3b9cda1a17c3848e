// vornctl on a real database with a real agent: what a person sees of a switch that has just been configured,
// changes, and goes wrong.
#include "Processes.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Scenario;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

struct VornctlTest : testing::Test {
   Database database;

   void done(std::vector<std::string> const& arguments) {
      Result const result = database.ctl(arguments);
      EXPECT_EQ(result.status, 0) << arguments[0] << ' ' << arguments[1] << ": " << result.errors;
   }
   void settle() { done({"settle", "--timeout", "20"}); }
   // The example switch, resolved.
   void configure() {
      done({"load", EXAMPLE_FOLDER "/leaf-switch.json"});
      done({"load", EXAMPLE_FOLDER "/leaf-provisioning.json"});
      settle();
   }
   Result vornctl(std::vector<std::string> const& arguments, Environment const& environment) const {
      std::vector<std::string> command{program("vornctl")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      return run(command, {}, environment);
   }
   Result vornctl(std::vector<std::string> const& arguments) const {
      return vornctl(arguments, database.environment());
   }
   std::string shown(std::vector<std::string> const& arguments) const {
      Result const result = vornctl(arguments);
      EXPECT_EQ(result.status, 0) << result.errors;
      EXPECT_EQ(result.errors, "");
      return result.output;
   }
   json shownJson(std::vector<std::string> arguments) const {
      arguments.push_back("--json");
      return json::parse(shown(arguments));
   }
};

TEST_F(VornctlTest, showsWhatDynamicSourcesAskFor) {
   Agent agent(database);
   configure();
   for (char const* source : {"overlay", "lab"})
      done({"create", std::string("bridging/input/dynvlan/vlan/") + source, "Bridging::Input::VlanIdSet"});
   done({"set", "bridging/input/dynvlan/vlan/overlay.configPriority", "20"});
   done({"set", "bridging/input/dynvlan/vlan/overlay.vlans", "\"10,300\""});
   done({"set", "bridging/input/dynvlan/vlan/lab.vlans", "\"300\""});
   settle();
   EXPECT_EQ(shown({"show", "dynamic-vlan"}), "VLAN  Source   Priority  Status            Other claims\n"
                                              "----  -------  --------  ----------------  ------------\n"
                                              "10    overlay        20  waits behind cli\n"
                                              "300   overlay        20  exists            lab 0\n");
   EXPECT_EQ(shownJson({"show", "dynamic-vlan", "300"})["dynamicVlans"]["300"]["source"], "overlay");
   EXPECT_EQ(vornctl({"show", "dynamic-vlan", "11"}).status, 1);
   // A trunk that a source widens.
   EXPECT_EQ(vornctl({"why", "Et25", "300"}).status, 1);
   done({"create", "bridging/input/dynvlan/allowedvlan/overlay", "Bridging::Input::AllowedVlans"});
   done({"set", "bridging/input/dynvlan/allowedvlan/overlay.vlans[Ethernet25]", "\"300\""});
   settle();
   EXPECT_THAT(shown({"why", "Et25", "300"}), HasSubstr("> Trunk groups   VLAN 300 has none"));
   EXPECT_THAT(shown({"why", "Et25", "300"}), HasSubstr("allowed by the dynamic source overlay\n"));
}

TEST_F(VornctlTest, showsWhatTheAgentResolved) {
   Agent agent(database);
   configure();

   EXPECT_THAT(shown({"show", "vlan", "10"}), StartsWith("VLAN  Name     Status  Ports\n"));
   auto const vlans = shownJson({"show", "vlan"})["vlans"];
   EXPECT_EQ(vlans["10"]["name"], "servers");
   EXPECT_EQ(vlans["10"]["ports"]["Ethernet1"]["tagged"], false);
   EXPECT_EQ(vlans["10"]["ports"]["Ethernet25"]["tagged"], true);
   EXPECT_FALSE(vlans["10"]["ports"].contains("Ethernet7")) << "the second publisher took it away";
   EXPECT_EQ(vlans["130"]["status"], "suspended");
   EXPECT_EQ(vlans["1006"]["isInternal"], true);

   // The record that won is in another publisher's input: the reference is followed.
   auto const port = shownJson({"show", "switchport", "Et8"})["ports"]["Ethernet8"];
   EXPECT_EQ(port["input"], "provisioning");
   EXPECT_EQ(port["inputPriority"], 60);
   EXPECT_EQ(port["mode"], "trunk");
   EXPECT_EQ(port["taggedVlans"], "100-102");
   EXPECT_EQ(port["untaggedVlans"], "99");

   auto const inputs = shownJson({"show", "inputs"});
   EXPECT_EQ(inputs["vlans"]["input"], "cli");
   EXPECT_EQ(inputs["ports"]["Ethernet1"]["input"], "cli");
   EXPECT_EQ(inputs["ports"]["Ethernet7"]["input"], "provisioning");
   EXPECT_EQ(inputs["ports"]["Ethernet7"]["losers"].size(), 2u);
   EXPECT_EQ(inputs["ports"]["Ethernet42"]["input"], "eth");
   EXPECT_EQ(inputs["inputs"]["provisioning"]["portsWon"], 3);

   // Three numbers for four routed ports.
   auto const internal = shownJson({"show", "internal-vlan"});
   EXPECT_EQ(internal["internalVlans"].size(), 3u);
   ASSERT_EQ(internal["portsWithout"].size(), 1u);
   std::string const without = internal["portsWithout"].begin().key();
   EXPECT_EQ(internal["portsWithout"][without]["isErrdisabled"], true);
   auto const disabled = shownJson({"show", "errdisable"})["ports"];
   EXPECT_TRUE(disabled[without]["causes"].contains("no-internal-vlan"));
   double const ago = disabled[without]["causes"]["no-internal-vlan"]["secondsAgo"];
   EXPECT_GE(ago, 0);
   EXPECT_LT(ago, 120) << "on the clock of the agent";
}

TEST_F(VornctlTest, explainsAMembershipAndFollowsItsChange) {
   Agent agent(database);
   configure();
   Result const member = vornctl({"why", "Et25", "10"});
   EXPECT_EQ(member.status, 0);
   EXPECT_THAT(member.output, StartsWith("Ethernet25 is a member of VLAN 10: tagged.\n"));

   Result const closed = vornctl({"why", "Ethernet8", "10"});
   EXPECT_EQ(closed.status, 1);
   EXPECT_EQ(closed.errors, "") << "an answer, no error";
   EXPECT_THAT(closed.output, HasSubstr("provisioning decides the port by its number 60; lost: cli 50"));
   EXPECT_THAT(closed.output,
               HasSubstr("> Allowed VLANs  the list 99-102 (trunkAllowedVlans) lacks VLAN 10\n"));
   // Its advice helps.
   std::string const selector =
       "bridging/input/config/provisioning.switchIntfConfig[Ethernet8].trunkAllowedVlans";
   EXPECT_THAT(closed.output, HasSubstr("add 10 to\n    " + selector));
   done({"set", selector, "10,99-102"});
   settle();
   EXPECT_EQ(vornctl({"why", "Ethernet8", "10"}).status, 0);

   for (auto const& [port, vlan, wanted] :
        {std::tuple("Ethernet1", "130", "> VLAN status  suspended"),
         std::tuple("Ethernet33", "30", "> Trunk groups   VLAN 30 is open to trunks of storage-fabric only"),
         std::tuple("Ethernet1", "777", "> VLAN         doesn't exist: cli"),
         std::tuple("Ethernet41", "10", "> Access port  a port without a native VLAN"),
         std::tuple("Ethernet1", "1006", "> Internal VLAN  VLAN 1006 is the internal VLAN of")}) {
      Result const answer = vornctl({"why", port, vlan});
      EXPECT_EQ(answer.status, 1) << port << ' ' << vlan;
      EXPECT_THAT(answer.output, HasSubstr(wanted));
   }
}

// For every port and VLAN of the example the rules say what the agent did.
TEST_F(VornctlTest, rulesAndResolvedStateAgreeOnTheWholeExample) {
   Agent agent(database);
   configure();
   auto const ports = shownJson({"show", "switchport"})["ports"];
   size_t members = 0;
   for (auto const& port : {"Ethernet1", "Ethernet8", "Ethernet30", "Ethernet33", "Ethernet35", "Ethernet38",
                            "Ethernet39", "Ethernet40", "Ethernet41", "Ethernet45", "Port-Channel1"})
      for (auto const& vlan : {"10", "30", "41", "99", "110", "130", "201", "1006"}) {
         ASSERT_TRUE(ports.contains(port));
         auto const answer = json::parse(vornctl({"why", port, vlan, "--json"}).output);
         EXPECT_EQ(answer["isMember"], answer["isMemberByRules"]) << port << ' ' << vlan;
         members += answer["isMember"] == true;
      }
   EXPECT_GT(members, 10u);
}

// What dynamic sources publish counts in the answer just as far as the agent applies it.
TEST_F(VornctlTest, dynamicSourcesCountForTheRulesAsForTheAgent) {
   Agent agent(database);
   configure();
   done({"create", "bridging/input/dynvlan/vlan/mvrp", "Bridging::Input::VlanIdSet"});
   done({"set", "bridging/input/dynvlan/vlan/mvrp.vlans", "10,99-102"});
   std::string const fabric = "bridging/input/dynvlan/allowedvlan/fabric";
   done({"create", fabric, "Bridging::Input::AllowedVlans"});
   done({"set", fabric + ".vlans[Ethernet8]", "10"});
   done({"set", fabric + ".trunkGroup", R"({"storage-fabric": {"intfList": {"Ethernet33": true}}})"});
   settle();
   for (auto const& [port, vlan] :
        {std::pair("Ethernet8", "10"), {"Ethernet8", "100"}, {"Ethernet33", "30"}}) {
      auto const answer = json::parse(vornctl({"why", port, vlan, "--json"}).output);
      EXPECT_EQ(answer["isMember"], answer["isMemberByRules"]) << port << ' ' << vlan;
   }
}

TEST_F(VornctlTest, backlogIsThatOfTheRunningAgent) {
   std::string const status = "cell/1/agent/status/Vorn";
   EXPECT_EQ(shownJson({"show", "backlog"})["agent"], "absent");
   EXPECT_THAT(shown({"show", "backlog"}), HasSubstr("none has left any figures"));
   int first = 0;
   {
      Agent agent(database);
      first = agent.process().pid();
      done({"wait", status + ".pid", std::to_string(first)});
      EXPECT_EQ(shownJson({"show", "backlog"})["agent"], "running");
      // The agent renews its figures by itself.
      auto watcher = database.startCtl({"watch", "--initial", status + ".deferredStage[VlanConfigCodef]"});
      ASSERT_TRUE(watcher->readLine());
      configure();
      int processed = 0;
      while (processed < 30) {
         auto const line = watcher->readLine();
         ASSERT_TRUE(line) << processed;
         processed = json::parse(*line)["value"]["updatesProcessed"];
      }
      auto const backlog = shownJson({"show", "backlog"});
      EXPECT_EQ(backlog["deferredStages"]["VlanConfigCodef"]["backlog"], 0);
      EXPECT_TRUE(backlog["deferredStages"].contains("SwitchIntfConfigCodef"));
      EXPECT_EQ(backlog["agentPid"], first);
      EXPECT_GT(backlog["attributeLog"]["kernBufferSize"], 0);
      EXPECT_GT(backlog["attributeLog"]["operationsWritten"], 0);
      agent.process().signal(SIGKILL);
      agent.process().wait();
   }
   // What it left is still shown, and marked as such.
   auto const left = shownJson({"show", "backlog"});
   EXPECT_EQ(left["agent"], "absent");
   EXPECT_EQ(left["figuresOfPid"], first);
   EXPECT_THAT(vornctl({"why", "Et1", "10"}).output, HasSubstr("The agent is not connected to the database"));
   Agent next(database);
   auto const again = shownJson({"show", "backlog"});
   EXPECT_EQ(again["agent"], "running") << "the first figures come with the rest of the start";
   EXPECT_EQ(again["figuresOfPid"], next.process().pid());
}

// The records of all others come from here: those of the interface manager, of the bridging agent, of the platform.
struct RoutedInterfaces : VornctlTest {
   RoutedInterfaces() {
      load(R"({
         "bridging/config": {"bridgeMacAddr": "02:00:00:00:00:02"},
         "interface/config/eth/vlan": {"intfConfig": {"Vlan10": {"source": "cli"}, "Vlan4095": {}}},
         "interface/status/eth/vlan": {"intfStatus": {"Vlan10": {
            "intfConfig": {"$ref": "interface/config/eth/vlan.intfConfig[Vlan10]"},
            "operStatus": "intfOperLowerLayerDown", "operStatusChange": {"time": 1, "count": 2}}}},
         "cell/1/interface/status/eth/vlan/local": {"intfStatusLocal": {"Vlan10": {}}},
         "interface/status/all": {"intfStatus": {
            "Loopback0": {"operStatus": "intfOperUp", "deviceName": "lo"},
            "Ethernet1": {"operStatus": "intfOperDown"}}},
         "interface/config/subintf": {"intfConfig": {
            "Ethernet1.7": {"vlanId": 100, "encapType": "subIntfEncapDot1q"}}},
         "interface/status/subintf": {"intfStatus": {"Ethernet1.7": {
            "intfConfig": {"$ref": "interface/config/subintf.intfConfig[Ethernet1.7]"},
            "operStatus": "intfOperLowerLayerDown"}}},
         "cell/1/interface/status/subintf/local": {"intfStatusLocal": {"Ethernet1.7": {}}},
         "cell/1/interface/nsconfig": {"intfNamespaceConfig": {
            "Ethernet1.7": {"netNsName": "no-such-namespace"}}}
      })");
   }
   void load(std::string const& records) {
      done({"load", database.folder().fileOf("records.json", records)});
   }
   std::string why(char const* intf, int wantedStatus) {
      Result const result = vornctl({"why", intf});
      EXPECT_EQ(result.status, wantedStatus) << result.output;
      EXPECT_EQ(result.errors, "") << "an answer, no error";
      return result.output;
   }
};

TEST_F(RoutedInterfaces, areShownWithWhatTheKernelHas) {
   auto const all = shownJson({"show", "interface"})["interfaces"];
   EXPECT_EQ(all.size(), 5u);
   // The one device that every namespace has.
   EXPECT_EQ(all["Loopback0"]["kernel"]["index"], 1);
   EXPECT_EQ(all["Loopback0"]["state"], "up");
   EXPECT_EQ(all["Vlan10"]["kernel"], nullptr);
   EXPECT_EQ(all["Vlan10"]["row"], 8);
   EXPECT_EQ(all["Vlan10"]["stateByRules"], all["Vlan10"]["state"]);
   EXPECT_EQ(all["Vlan10"]["source"], "static");
   EXPECT_EQ(all["Vlan4095"]["hasStatus"], false);
   EXPECT_EQ(all["Ethernet1.7"]["parentState"], "down");
   EXPECT_EQ(all["Ethernet1.7"]["configuredNamespace"], "no-such-namespace");
   EXPECT_THAT(shown({"show", "interface"}),
               HasSubstr("lower layer down  it has no forwarding port in its VLAN"));
   EXPECT_THAT(shown({"show", "interface", "lo0"}), HasSubstr("device                lo, index 1\n"));
   EXPECT_EQ(shownJson({"show", "vlan-interface", "10"})["vlanInterfaces"].size(), 1u);
   EXPECT_EQ(shownJson({"show", "subinterface", "et1.7"})["subinterfaces"].size(), 1u);
   auto const netNses = shownJson({"show", "namespace"})["namespaces"];
   EXPECT_EQ(netNses["default"]["exists"], true);
   EXPECT_EQ(netNses["no-such-namespace"]["exists"], false);
   EXPECT_EQ(netNses["no-such-namespace"]["configuredInterfaces"], json({"Ethernet1.7"}));
}

TEST_F(RoutedInterfaces, areExplainedAndFollowTheirRecords) {
   EXPECT_THAT(why("Vlan10", 1), StartsWith("Vlan10 is lower layer down: it has no forwarding port"));
   EXPECT_THAT(why("Vlan10", 1), HasSubstr("  - VLAN 10 doesn't exist"));
   EXPECT_THAT(why("vl4095", 1), HasSubstr("> Name  no VLAN has that number"));
   EXPECT_THAT(why("et1.7", 1), HasSubstr("> Parent          Ethernet1 is down\n"));
   EXPECT_THAT(why("et1.7", 1), HasSubstr("> Namespace  the namespace no-such-namespace"));
   EXPECT_THAT(why("et1", 1), HasSubstr("> Status         down, as its own agent says\n"));
   EXPECT_THAT(why("lo0", 0), StartsWith("Loopback0 is up.\n"));
   // Its advice helps.
   std::string const selector = "interface/config/eth/vlan.intfConfig[Vlan10].autoState";
   EXPECT_THAT(why("Vlan10", 1), HasSubstr(selector));
   done({"set", selector, "false"});
   EXPECT_THAT(why("Vlan10", 1), HasSubstr("> Autostate         off for this interface"));
   EXPECT_THAT(why("Vlan10", 1), HasSubstr("By these rules it would be up"));
   // So does that about an interface that nobody configures.
   done({"set", "interface/config/eth/vlan.intfConfig[Vlan10].enabledStateLocal", "enabledStateShutdown"});
   EXPECT_THAT(why("Vlan10", 1), HasSubstr("> Enabled        it is shut down by configuration"));
   done({"delete", "interface/config/eth/vlan.intfConfig[Vlan10]"});
   auto const orphan = json::parse(vornctl({"why", "Vlan10", "--json"}).output);
   EXPECT_EQ(orphan["advice"],
             json({"configure it: ordelctl set 'interface/config/eth/vlan.intfConfig[Vlan10]' '{}'"}));
   done({"set", "interface/config/eth/vlan.intfConfig[Vlan10]", "{}"});
   EXPECT_THAT(why("Vlan10", 1), Not(HasSubstr("nobody configures it")));
}

// Who claims it is in the tree of a source of its own.
TEST_F(RoutedInterfaces, ofDynamicSourcesAreThere) {
   done({"create", "interface/input/dynvlanintf/overlay", "Interface::Input::DynVlanIntfConfigDir"});
   done({"set", "interface/input/dynvlanintf/overlay.intfConfig[Vlan20]", "{}"});
   EXPECT_EQ(shownJson({"show", "vlan-interface", "20"})["vlanInterfaces"]["Vlan20"]["source"], "overlay");
   EXPECT_THAT(why("Vlan20", 1), HasSubstr("> Status         it has no record in interface/status/eth/vlan"));
}

TEST_F(RoutedInterfaces, areSaidToHaveNoAgent) {
   EXPECT_THAT(why("Vlan10", 1), HasSubstr("The agent is not connected to the database"));
   Agent agent(database);
   EXPECT_EQ(shownJson({"show", "interface"})["agentPid"], agent.process().pid());
   EXPECT_THAT(why("Vlan10", 1), Not(HasSubstr("not connected")));
}

TEST_F(VornctlTest, exitStatusesAndErrorsAreThoseOfTheTools) {
   struct Case {
      std::vector<std::string> arguments;
      int status;
      std::string error;
   };
   for (auto const& [arguments, status, error] : std::vector<Case>{
            {{"show", "vlan", "99"}, 1, "vornctl: VLAN 99: there is no such VLAN\n"},
            {{"show", "switchport", "Et99"}, 1, "vornctl: Ethernet99: there is no such port\n"},
            {{"why", "Et99", "10"}, 1, "vornctl: Ethernet99: there is no such port\n"},
            {{"show", "mac", "static", "99"}, 1, "vornctl: VLAN 99: there is no such VLAN\n"},
            {{"show", "vlan", "5000"}, 2, "vornctl: VLAN 5000: a number from 1 to 4094 is wanted\n"},
            {{"why", "Et1", "none"}, 2, "vornctl: VLAN none: a number from 1 to 4094 is wanted\n"},
            {{"frobnicate"}, 2, "vornctl: there is no command frobnicate; see vornctl --help\n"},
            {{"show", "nothing"}, 2, "vornctl: there is no command show nothing; see vornctl --help\n"},
            {{"show", "vlan", "1", "2"},
             2,
             "vornctl: The following argument was not expected: 2; see vornctl --help\n"},
            {{"why", "Et1"}, 1, "vornctl: Ethernet1: there is no such interface\n"},
            {{"why"}, 2, "vornctl: INTF is required; see vornctl --help\n"},
            {{"why", "00:1c:73:00:00:01"},
             2,
             "vornctl: why 00:1c:73:00:00:01: the number of a VLAN is wanted behind an address\n"},
            {{"show", "interface", "Et1"}, 1, "vornctl: Ethernet1: there is no such interface\n"},
            {{"show", "interface", std::string(97, 'x')},
             2,
             "vornctl: no name of an interface: IntfId::bytes > 96 not allowed\n"},
            {{"show", "vlan-interface", "10"}, 1, "vornctl: Vlan10: there is no such VLAN interface\n"},
            {{"show", "subinterface", "Et1.7"}, 1, "vornctl: Ethernet1.7: there is no such subinterface\n"},
            {{"--socket", "/nonexistent/sock", "show", "vlan"},
             4,
             "vornctl: /nonexistent/sock: No such file or directory\n"}}) {
      Result const result = vornctl(arguments);
      EXPECT_EQ(result.status, status) << error;
      EXPECT_EQ(result.errors, error);
      EXPECT_EQ(result.output, "");
   }
   EXPECT_EQ(vornctl({"show", "vlan"}, {{"ORDEL_SOCKET", "/nonexistent/sock"}}).status, 4);
   EXPECT_EQ(vornctl({"show", "vlan", "--socket", database.socket()}, {{"ORDEL_SOCKET", "/nonexistent/sock"}})
                 .status,
             0);
   EXPECT_THAT(vornctl({"--version"}).output, StartsWith("vornctl "));
   for (std::vector<std::string> const& arguments : {std::vector<std::string>{"--help"},
                                                     {"show", "--help"},
                                                     {"show", "vlan", "--help"},
                                                     {"show", "mac", "static", "--help"},
                                                     {"show", "interface", "--help"},
                                                     {"show", "vlan-interface", "--help"},
                                                     {"show", "subinterface", "--help"},
                                                     {"show", "namespace", "--help"},
                                                     {"why", "--help"}}) {
      Result const help = vornctl(arguments);
      EXPECT_EQ(help.status, 0);
      EXPECT_THAT(help.output, HasSubstr("Usage"));
   }
}

TEST_F(VornctlTest, databaseThatEndsIsReported) {
   database.stop();
   Result const result = vornctl({"show", "vlan"});
   EXPECT_EQ(result.status, 4);
   EXPECT_THAT(result.errors, StartsWith("vornctl: " + database.socket() + ": "));
}

} // namespace
