// Intent of careless and hostile publishers, through the database and the real agent: what can't mean anything is
// refused or left out, the agent stays the same process, and what it makes of the rest is what an agent makes
// that meets the same tree for the first time.
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;
using ::testing::HasSubstr;

std::string const claims = "bridging/input/dynvlan/vlan/";
std::string const allowances = "bridging/input/dynvlan/allowedvlan/";
std::string const inputs = "bridging/input/config/";

std::string cliVlan(int vlan) {
   return cliInput + ".vlanConfig[" + std::to_string(vlan) + "]";
}
std::string cliPort(std::string const& intf) {
   return cliInput + ".switchIntfConfig[" + intf + "]";
}
Json role(int primary) {
   return {{"vlanTypeAndPrimaryVlan", {{"vlanType", "secondary_"}, {"primaryVlan", primary}}}};
}

// Commands for `ordelctl batch`, sent together.
class Batch {
  public:
   explicit Batch(Switch& bridge) : bridge_(bridge) {}
   void set(std::string const& selector, Json const& value) { add({"set", selector, value}); }
   void erase(std::string const& selector) { add({"delete", selector}); }
   void create(std::string const& place, std::string const& type) { add({"create", place, type}); }
   void run() {
      bridge_.done({"batch"}, text_);
      text_.clear();
   }

  private:
   void add(Json const& command) { text_ += command.dump() + "\n"; }
   Switch& bridge_;
   std::string text_;
};

struct BadIntentTest : testing::Test {
   BadIntentTest() {
      bridge.load(leafSwitch);
      bridge.settle();
   }
   // The agent took it: it is alive, idle, and holds what a new one would.
   void isTaken(std::string const& what) {
      SCOPED_TRACE(what);
      bridge.settle();
      ASSERT_TRUE(bridge.agentProcess().isRunning()) << bridge.agentProcess().errors().text();
      std::string const here = resolved(bridge.database()), fresh = madeByANewAgent();
      if (here != fresh)
         ADD_FAILURE()
             << nlohmann::json::diff(nlohmann::json::parse(here), nlohmann::json::parse(fresh)).dump(1);
   }
   void isRefused(std::vector<std::string> const& arguments, std::string const& reason,
                  std::string_view input = {}) {
      Result const result = bridge.database().ctl(arguments, input);
      EXPECT_EQ(result.status, 3);
      EXPECT_THAT(result.errors, HasSubstr(reason));
   }
   // All that agents make of what publishers ask for.
   static std::string resolved(Database const& database) {
      std::string text = "[";
      for (char const* const place : {"bridging/config", "bridging/switchIntfConfig", "bridging/fdbConfigDir",
                                      "bridging/input/config/eth"})
         text += (text.size() > 1 ? "," : "") + database.ctl({"dump", place}).output;
      return text + "]";
   }
   // What publishers asked for is put into another database, and another agent works it off.
   std::string madeByANewAgent() {
      Database database;
      for (std::string const place :
           {"interface/config/eth/intf", "interface/status/eth/intf", "interface/config/eth/vlan",
            "bridging/hwcapabilities", "bridging/input/dynvlan", "bridging/input/config"}) {
         Result const loaded = database.ctl({"load", "-"}, bridge.dump(place));
         EXPECT_EQ(loaded.status, 0) << loaded.errors;
      }
      // Except what the agent itself put there.
      std::string deletions;
      for (std::string const& port : bridge.keys(inputs + "eth.switchIntfConfig"))
         deletions += Json{"delete", inputs + "eth.switchIntfConfig[" + port + "]"}.dump() + "\n";
      EXPECT_EQ(database.ctl({"batch"}, deletions).status, 0);
      Agent agent(database);
      Result const settled = database.ctl({"settle", "--timeout", "20"});
      EXPECT_EQ(settled.status, 0) << settled.errors;
      return resolved(database);
   }
   // The agent sees what is done meanwhile in one turn.
   template <class Action>
   void whileStopped(Action const& action) {
      pid_t const pid = bridge.agentProcess().pid();
      bridge.agentProcess().signal(SIGSTOP);
      siginfo_t info;
      EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED), 0);
      action();
      bridge.agentProcess().signal(SIGCONT);
   }
   std::string complaints() { return bridge.agentProcess().errors().text(); }

   Switch bridge;
};

TEST_F(BadIntentTest, secondaryThatNamesNoPrimaryIsRefused) {
   bridge.set(cliPort("Ethernet1") + ".accessVlan", "10");
   bridge.settle();
   std::string const before = bridge.dump();
   std::string const reason =
       ".vlanTypeAndPrimaryVlan.primaryVlan: VlanTypeAndPrimaryVlan::primaryVlan 0 while vlanType is "
       "secondary_ not allowed";
   isRefused({"set", cliVlan(10) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": "secondary_"})"},
             cliVlan(10) + reason);
   isRefused({"load", "-"}, cliVlan(10) + reason,
             Json{{cliInput, {{"vlanConfig", {{"10", role(0)}}}}}}.dump());
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
   // A role without a rule may be without a primary.
   bridge.set(cliVlan(10) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": 7, "primaryVlan": 0})");
   isTaken("role 7");
}

TEST_F(BadIntentTest, listsWithGarbageAreReadAsFarAsTheyGo) {
   std::string const longList = [] {
      std::string text;
      while (text.size() < 60000)
         text += "1-400,x,";
      return text;
   }();
   Json const lists = {"",
                       ",",
                       "-",
                       "1-",
                       "-5",
                       "0",
                       "4095",
                       "10-5",
                       "10--12",
                       "10,10",
                       "10 ,11",
                       "1e1",
                       "0x10",
                       "\u0001\n10",
                       "10;11",
                       "ä,10",
                       "99999999999999999999999",
                       "0-5000",
                       "4094-4096",
                       ",,10,,",
                       "10-11-12",
                       longList};
   bridge.load(
       Json{{cliInput,
             {{"switchIntfConfig",
               {{"Ethernet2", {{"switchportMode", "tap_"}}}, {"Ethernet3", {{"switchportMode", "tool_"}}}}}}},
            {claims + "x", {{"$type", "Bridging::Input::VlanIdSet"}}},
            {allowances + "x", {{"$type", "Bridging::Input::AllowedVlans"}}}});
   for (Json const& list : lists) {
      Batch batch(bridge);
      batch.set(cliPort("Ethernet1") + ".asymVlans", list);
      batch.set(cliPort("Ethernet2") + ".tapAllowedVlans", list);
      batch.set(cliPort("Ethernet3") + ".toolAllowedVlans", list);
      batch.set(cliPort("Ethernet3") + ".toolDot1qRemoveVlans", list);
      batch.set(cliPort("Ethernet25") + ".trunkAllowedVlans", list);
      batch.set(claims + "x.vlans", list);
      batch.set(allowances + "x.vlans[Ethernet26]", list);
      batch.run();
      bridge.settle();
      ASSERT_TRUE(bridge.agentProcess().isRunning()) << list << '\n' << complaints();
   }
   isTaken("the longest list");
   EXPECT_THAT(complaints(), HasSubstr("x dynamic VLANs left out, no VLAN numbers: 99999999999999999999999"));
   EXPECT_LT(complaints().size(), 100000u) << "the lists are longer";
}

TEST_F(BadIntentTest, prioritiesThatChangeAThousandTimesEndAsTheLastOne) {
   for (std::string const name : {"a", "b"})
      bridge.load(Json{
          {claims + name,
           {{"$type", "Bridging::Input::VlanIdSet"},
            {"vlans", "10,300-400"},
            {"trunkGroup", {{name, true}}}}},
          {inputs + name,
           {{"$type", "Bridging::Input::Config"},
            {"vlanConfig", {{"10", {{"configuredName", name}}}, {"350", {{"configuredName", name}}}}},
            {"switchIntfConfig", {{"Ethernet1", {{"accessVlan", 350}}}}},
            {"fdbConfig",
             {{"10",
               {{"configuredHost",
                 {{"00:1c:73:00:00:01", {{"intf", "Ethernet" + std::to_string(name[0] - 'a' + 1)}}}}}}}}}}}});
   Batch batch(bridge);
   for (int i = 0; i < 1000; ++i) {
      std::string const name = i % 2 ? "a" : "b";
      batch.set(claims + name + ".configPriority", i % 37);
      batch.set(inputs + name + ".vlanConfigPriority", i % 3 ? 4000000000 : i);
      batch.set(inputs + name + ".switchIntfConfigPriority", i % 5 ? 200 : 0);
      batch.set(inputs + name + ".fdbConfigPriority", i % 7);
   }
   // Nobody watches the priority of hosts and groups: what counts is the one at the last change of a host.
   for (std::string const name : {"a", "b"}) {
      std::string const host = inputs + name + ".fdbConfig[10].configuredHost[00:1c:73:00:00:01]";
      batch.erase(host);
      batch.set(host, {{"intf", "Ethernet9"}});
   }
   batch.run();
   isTaken("priorities");
}

TEST_F(BadIntentTest, namesOfSourcesMayBeAnything) {
   std::vector<std::string> const names = {std::string(255, 'x'),     "cli", "mvrp",    "line\nbreak",
                                           "\x1b quote\"back\\slash", " ",   "ä\u202e", "%s%n"};
   for (std::string const& name : {std::string(256, 'x'), std::string("[]"), std::string("a.b")})
      EXPECT_NE(bridge.database().ctl({"create", claims + name, "Bridging::Input::VlanIdSet"}).status, 0);
   Batch batch(bridge);
   int vlan = 300;
   for (std::string const& name : names) {
      batch.create(claims + name, "Bridging::Input::VlanIdSet");
      if (name != "cli")
         batch.create(inputs + name, "Bridging::Input::Config");
      batch.create(allowances + name, "Bridging::Input::AllowedVlans");
      batch.set(claims + name + ".vlans", "300-302," + std::to_string(++vlan) + ",10");
      batch.set(claims + name + ".trunkGroup[group]", true);
      batch.set(allowances + name + ".vlans[Ethernet25]", "300-310");
      batch.set(allowances + name + ".trunkGroup[group].intfList[Ethernet26]", true);
      std::string const host = inputs + name + ".fdbConfig[10].configuredHost";
      batch.set(host + "[00:1c:73:00:00:01]", {{"intf", "Ethernet1"}});
      batch.set(host + "[01:00:5e:00:00:0" + std::to_string(vlan % 2) + "]", {{"intf", "Ethernet2"}});
   }
   batch.run();
   isTaken("names");
   // No UTF-8, by the argument of a command.
   bridge.done({"create", claims + "\xff\xfe", "Bridging::Input::VlanIdSet"});
   bridge.set(claims + "\xff\xfe.vlans", "\"300,320\"");
   bridge.settle();
   EXPECT_EQ(bridge.members(320),
             "Ethernet29-t Ethernet30-t Ethernet31-t Ethernet32-t Ethernet33-t Ethernet34-t");
   bridge.erase(claims + "\xff\xfe");
   for (size_t i = 0; i < names.size(); i += 2)
      bridge.erase(claims + names[i]);
   isTaken("half of them gone");
}

TEST_F(BadIntentTest, hostsAndGroupsMayBeAnywhere) {
   Json const places = {"Nowhere1", "Cpu", "Vlan10", "Ethernet999/9/9", "Port-Channel5", "", "10"};
   Batch batch(bridge);
   batch.create(inputs + "a", "Bridging::Input::Config");
   for (size_t i = 0; i < places.size(); ++i) {
      std::string const last = std::to_string(i);
      batch.set(inputs + "a.fdbConfig[10].configuredHost[00:1c:73:00:00:0" + last + "]",
                {{"intf", places[i]}});
      if (places[i] != "10") // a bare number is no key of an interface
         batch.set(inputs + "a.fdbConfig[10].ethGroup[01:00:5e:00:00:0" + last + "].intf[" +
                       places[i].get<std::string>() + "]",
                   true);
      batch.set(inputs + "a.fdbConfig[4094].configuredHost[00:1c:73:00:00:0" + last + "]",
                {{"intf", places[i]}});
   }
   batch.set(inputs + "a.fdbConfig[10].configuredHost[00:00:00:00:00:00]", {{"intf", "Ethernet1"}});
   batch.set(inputs + "a.fdbConfig[10].configuredHost[ff:ff:ff:ff:ff:ff]", {{"intf", "Ethernet1"}});
   batch.set(inputs + "a.fdbConfig[10].ethGroup[01:80:c2:00:00:00]", Json::object());
   batch.run();
   isTaken("hosts");
   bridge.erase(cliVlan(10));
   isTaken("no VLAN");
}

TEST_F(BadIntentTest, rolesMayNameAnyVlan) {
   Json vlanIntfs = Json::object(), ports = Json::object();
   for (int vlan = 2000; vlan < 2012; ++vlan) {
      vlanIntfs["Vlan" + std::to_string(vlan)] = Json::object();
      ports["Ethernet" + std::to_string(vlan - 1999)] = {
          {"switchportMode", "access_"}, {"accessVlan", vlan}, {"defaultPrivateVlanMapping", vlan % 2 == 0}};
   }
   for (int port = 20; port < 24; ++port)
      ports["Ethernet" + std::to_string(port)] = {
          {"switchportMode", "trunk_"},
          {"trunkPrivateVlanMapping", port % 2 == 0},
          {"egressVlanXlate", {{"2000/0", {{"mappedVlanId", 4094}}}}}};
   bridge.load(Json{{"interface/config/eth/vlan", {{"intfConfig", vlanIntfs}}},
                    {cliInput, {{"switchIntfConfig", ports}}}});
   // Itself, a cycle of two, a chain of four, missing ones, plain ones.
   int const primaries[][12] = {{2000, 2002, 2001, 2004, 2005, 2006, 0, 999, 0, 2008, 2008, 4094},
                                {0, 2000, 2000, 2001, 2003, 2004, 2007, 2006, 2007, 2011, 2011, 2011},
                                {2001, 2002, 2003, 2004, 2005, 2006, 2007, 2008, 2009, 2010, 2011, 2000}};
   for (auto const& row : primaries) {
      Batch batch(bridge);
      for (int i = 0; i < 12; ++i)
         batch.set(cliVlan(2000 + i), row[i] ? role(row[i]) : Json::object());
      for (int i = 0; i < 12; ++i) {
         std::string const mapping = cliInput + ".sviMapping[" + std::to_string(2000 + i) + "]";
         batch.set(mapping + ".defaultSviMapping", i % 3 == 0);
         batch.set(mapping + ".secondaryVlan[" + std::to_string(2000 + row[(i + 5) % 12] % 13) + "]", true);
         batch.set(mapping + ".secondaryVlan[10]", true); // a plain one
      }
      batch.set(cliInput + ".sviMapping[10].secondaryVlan[11]", true);
      batch.run();
      isTaken("roles of row " + std::to_string(&row - primaries));
   }
   Batch batch(bridge);
   for (int vlan = 2000; vlan < 2012; vlan += 3)
      batch.erase(cliVlan(vlan));
   batch.erase(cliInput + ".sviMapping[2005]");
   batch.erase(cliInput + ".sviMapping[10]");
   batch.run();
   isTaken("some of them gone");
   whileStopped([&] {
      for (int vlan = 2000; vlan < 2012; vlan += 3)
         batch.set(cliVlan(vlan), role(vlan + 1));
      for (int vlan = 2001; vlan < 2012; vlan += 3) {
         batch.erase(cliVlan(vlan));
         batch.set(cliVlan(vlan), Json::object());
      }
      batch.run();
   });
   isTaken("others in one turn");
}

TEST_F(BadIntentTest, translationsAreOntoVlansOnly) {
   std::string const port = cliPort("Ethernet25");
   for (std::string const map : {".ingressVlanXlate", ".egressVlanXlate"}) {
      bridge.set(port + map + "[10/0]", R"({"mappedVlanId": 0})");
      bridge.set(port + map + "[0/0]", R"({"mappedVlanId": 4094, "mappedInnerVlanId": 4094})");
      bridge.set(port + map + "[65535/65535]", R"({"mappedVlanId": 10})");
      isRefused({"set", port + map + "[11/0]", R"({"mappedVlanId": 4095})"},
                port + map + "[11/0].mappedVlanId: VlanIdOrNone::value > 4094 not allowed");
   }
   bridge.set(port + ".ingressNativeVlanXlate", "4094");
   isRefused({"set", port + ".egressNativeVlanXlate", "4095"}, "VlanIdOrNone::value > 4094 not allowed");
   isTaken("translations");
}

TEST_F(BadIntentTest, thousandSourcesMayClaimTheSameVlansAndVanish) {
   nlohmann::json document = nlohmann::json::object();
   for (int i = 0; i < 1000; ++i)
      document[claims + "s" + std::to_string(i)] = {{"$type", "Bridging::Input::VlanIdSet"},
                                                    {"vlans", "10-20,1000-1010"},
                                                    {"configPriority", i % 10},
                                                    {"trunkGroup", {{"g" + std::to_string(i % 3), true}}}};
   bridge.done({"load", "-"}, document.dump());
   isTaken("sources");
   Batch batch(bridge);
   for (int i = 0; i < 1000; ++i)
      if (i != 500)
         batch.erase(claims + "s" + std::to_string(i));
   batch.run();
   isTaken("one is left");
}

TEST_F(BadIntentTest, inputOfManyHostsMayBeReplacedAtOnce) {
   auto const document = [&](int seed) {
      nlohmann::json vlans = nlohmann::json::object();
      for (int i = 0; i < 16000; ++i) {
         char addr[18];
         std::snprintf(addr, sizeof addr, "02:%02x:00:00:%02x:%02x", seed, i >> 8, i & 0xff);
         vlans[std::to_string(10 + i % 3)]["configuredHost"][addr]["intf"] =
             "Ethernet" + std::to_string(1 + (i + seed) % 8);
      }
      return nlohmann::json{{inputs + "a", {{"$type", "Bridging::Input::Config"}, {"fdbConfig", vlans}}}}
          .dump();
   };
   std::string const first = document(1), second = document(2);
   bridge.done({"load", "-"}, first);
   bridge.settle();
   whileStopped([&] {
      bridge.erase(inputs + "a");
      bridge.done({"load", "-"}, first);
   });
   bridge.settle();
   EXPECT_TRUE(bridge.agentProcess().isRunning());
   whileStopped([&] {
      bridge.erase(inputs + "a");
      bridge.done({"load", "-"}, second);
   });
   isTaken("other hosts");
}

TEST_F(BadIntentTest, entitiesOfAWrongTypeAreNoPublishers) {
   char const* const types[] = {"Bridging::Input::VlanIdSet", "Bridging::Input::AllowedVlans",
                                "Bridging::Input::Config",    "Bridging::Input::CliConfig",
                                "Bridging::Config",           "Kem::Dir"};
   Batch batch(bridge);
   auto const make = [&](size_t shift) {
      for (std::string const& directory : {claims, allowances, inputs})
         for (size_t i = 0; i < std::size(types); ++i)
            batch.create(directory + "x" + std::to_string(i), types[(i + shift) % std::size(types)]);
      batch.run();
   };
   auto const fill = [&] {
      std::string commands; // of which each type takes its own
      for (std::string const& directory : {claims, allowances, inputs})
         for (size_t i = 0; i < std::size(types); ++i) {
            std::string const x = directory + "x" + std::to_string(i);
            Json const host = {{"intf", "Ethernet1"}};
            for (Json const& command :
                 {Json{"set", x + ".vlans", "300-310"}, Json{"set", x + ".vlans[Ethernet25]", "300-310"},
                  Json{"set", x + ".fdbConfig[10].configuredHost[00:00:00:00:00:01]", host},
                  Json{"set", x + ".switchIntfConfigPriority", 500}})
               commands += command.dump() + "\n";
         }
      EXPECT_THAT(bridge.database().ctl({"batch"}, commands).output, HasSubstr("no attribute"));
   };
   make(0);
   fill();
   isTaken("every type everywhere");
   whileStopped([&] {
      for (std::string const& directory : {claims, allowances, inputs})
         for (size_t i = 0; i < std::size(types); ++i)
            batch.erase(directory + "x" + std::to_string(i));
      make(1);
      fill();
   });
   isTaken("other types under the names");
}

TEST_F(BadIntentTest, publishersMayComeAgainWhileTheAgentStands) {
   Json const document = {
       {claims + "a",
        {{"$type", "Bridging::Input::VlanIdSet"},
         {"vlans", "10,300-310"},
         {"configPriority", 3},
         {"trunkGroup", {{"g", true}}}}},
       {claims + "mvrp", {{"$type", "Bridging::Input::VlanIdSet"}, {"vlans", "300-320"}}},
       {allowances + "mvrp",
        {{"$type", "Bridging::Input::AllowedVlans"},
         {"vlans", {{"Ethernet25", "300-320"}}},
         {"trunkGroup", {{"g", {{"intfList", {{"Ethernet26", true}}}}}}}}},
       {inputs + "a",
        {{"$type", "Bridging::Input::Config"},
         {"fdbConfig",
          {{"10", {{"configuredHost", {{"01:00:5e:00:00:01", {{"intf", "Ethernet1"}}}}}}},
           {"300", {{"configuredHost", {{"00:00:00:00:00:01", {{"intf", "Ethernet1"}}}}}}}}}}},
       {inputs + "b",
        {{"$type", "Bridging::Input::Config"},
         {"switchIntfConfigPriority", 200},
         {"switchIntfConfig", {{"Ethernet1", {{"accessVlan", 300}}}}},
         {"fdbConfig",
          {{"10", {{"ethGroup", {{"01:00:5e:00:00:01", {{"intf", {{"Ethernet1", true}}}}}}}}}}}}}};
   bridge.load(document);
   isTaken("a pair of host and group");
   for (bool const isOtherwise : {false, true}) {
      whileStopped([&] {
         for (auto const& [place, value] : document.items())
            bridge.erase(place);
         Json again = document;
         if (isOtherwise) {
            again[claims + "a"]["vlans"] = "305-315";
            again[claims + "mvrp"]["vlans"] = "310";
            again[inputs + "a"]["fdbConfig"].erase("10");
            again[inputs + "b"]["fdbConfigPriority"] = 9;
         }
         bridge.load(again);
      });
      isTaken(isOtherwise ? "otherwise" : "as before");
   }
   EXPECT_THAT(complaints(),
               HasSubstr("Vlan 10: 01:00:5e:00:00:01 is a static host in input a and a group in input b"));
}

} // namespace
