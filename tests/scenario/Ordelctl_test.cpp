// Every command of ordelctl against a real database: what it prints, its exit status, and what it says of
// bad input.
#include "Processes.h"
#include "RawClient.h"

#include <gmock/gmock.h>

#include <cstdio>

namespace {

using namespace Scenario;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char lagDocument[] = R"({
  "bridging/input/config/lag": {
    "$type": "Bridging::Input::Config",
    "vlanConfigPriority": 7,
    "vlanConfig": {"10": {"configuredName": "servers", "trunkGroup": {"b": true, "a": false}}, "9": {}},
    "switchIntfConfig": {"Ethernet10": {"switchportMode": "trunk_"}, "Ethernet2": {"accessVlan": 10}}
  }
})";

struct OrdelctlTest : testing::Test {
   Database database;

   Result ctl(std::vector<std::string> const& arguments, std::string_view input = {}) {
      return database.ctl(arguments, input);
   }
   void verifyDone(std::vector<std::string> const& arguments, std::string_view input = {}) {
      Result const result = ctl(arguments, input);
      EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.errors;
      EXPECT_EQ(result.output, "");
      EXPECT_EQ(result.errors, "");
   }
   // It fails with that status and says so in one line.
   void verifyFails(int status, std::string const& error, std::vector<std::string> const& arguments,
                    std::string_view input = {}) {
      Result const result = ctl(arguments, input);
      EXPECT_EQ(result.status, status) << result.errors;
      EXPECT_EQ(result.errors, "ordelctl: " + error + "\n");
      EXPECT_EQ(result.output, "");
   }
   void loadLag() { verifyDone({"load", "-"}, lagDocument); }
   std::string get(std::string const& selector) { return database.get(selector); }
};

std::string const lag = "bridging/input/config/lag";
std::string const cli = "bridging/input/config/cli";

// --- get, ls

TEST_F(OrdelctlTest, getPrintsAttributesMembersAndEntities) {
   loadLag();
   EXPECT_EQ(get(lag + ".vlanConfigPriority"), "7");
   EXPECT_EQ(get(lag + ".vlanConfig[10].configuredName"), "\"servers\"");
   EXPECT_EQ(get(lag + ".vlanConfig[10].adminState"), "\"active\"");
   EXPECT_EQ(get(lag + ".vlanConfig[10].trunkGroup"), "{\n  \"a\": false,\n  \"b\": true\n}");
   EXPECT_EQ(get(lag + ".vlanConfig[10].trunkGroup[b]"), "true");
   EXPECT_EQ(get(lag + ".vlanConfig[9]"), R"({
  "adminState": "active",
  "configuredName": "",
  "trunkGroup": {},
  "vlanId": 9,
  "vlanTypeAndPrimaryVlan": {"primaryVlan": 0, "vlanType": "primary_"}
})");
   EXPECT_EQ(get("bridging/config.bridgeMacAddr"), "\"00:00:00:00:00:00\"");
   EXPECT_THAT(get(lag), StartsWith("{\n  \"$type\": \"Bridging::Input::Config\",\n"));
   EXPECT_THAT(get("bridging/input"),
               HasSubstr("\"lag\": {\n          \"$type\": \"Bridging::Input::Config\""));
   EXPECT_EQ(get("bridging/input.entityPtr[config].entityPtr[lag].vlanConfigPriority"), "7");
}

TEST_F(OrdelctlTest, getOfWhatIsNotThereAnswersNo) {
   verifyFails(1, "bridging/nowhere: not there", {"get", "bridging/nowhere"});
   verifyFails(1, cli + ".vlanConfig[10]: not there", {"get", cli + ".vlanConfig[10]"});
   verifyFails(1, cli + ".vlanConfig[10]: not there", {"get", cli + ".vlanConfig[10].configuredName"});
}

TEST_F(OrdelctlTest, getOfWhatCanNotBeIsRefused) {
   verifyFails(3, "bridging/config: Bridging::Config has no attribute colour",
               {"get", "bridging/config.colour"});
   verifyFails(3, cli + ".vlanConfig[5000]: VlanId::value < 1 or > 4094 not allowed",
               {"get", cli + ".vlanConfig[5000]"});
   verifyFails(3, "\"bridging/config.vlanConfig[10\": a ] behind the key is expected at byte 28",
               {"get", "bridging/config.vlanConfig[10"});
}

TEST_F(OrdelctlTest, lsListsInNaturalOrder) {
   loadLag();
   EXPECT_EQ(ctl({"ls", lag + ".switchIntfConfig"}).output, "Ethernet2\nEthernet10\n");
   EXPECT_EQ(ctl({"ls", lag + ".vlanConfig"}).output, "9\n10\n");
   EXPECT_EQ(ctl({"ls", "bridging/input/config"}).output, "cli\neth\nlag\n");
   EXPECT_THAT(ctl({"ls", "/"}).output, HasSubstr("bridging\ncell\n"));
   EXPECT_THAT(ctl({"ls", lag + ".vlanConfig[10]"}).output, StartsWith("adminState\nconfiguredName\n"));
   verifyDone({"ls", cli + ".vlanConfig"});
   verifyFails(1, "bridging/nowhere: not there", {"ls", "bridging/nowhere"});
   verifyFails(3, lag + ".vlanConfigPriority: is a value and has nothing in it to list",
               {"ls", lag + ".vlanConfigPriority"});
}

// --- set

TEST_F(OrdelctlTest, setWritesOneAttribute) {
   verifyDone({"set", cli + ".hostAgingTime", "600"});
   EXPECT_EQ(get(cli + ".hostAgingTime"), "600");
   verifyDone({"set", cli + ".internalVlanRange", R"({"min": 2000, "max": 2100})"});
   EXPECT_EQ(get(cli + ".internalVlanRange"), R"({"max": 2100, "min": 2000})");
   verifyDone({"set", cli + ".internalVlanAllocationPolicy", "descending"});
   verifyDone({"set", cli + ".internalVlanAllocationPolicy", "1"});
   EXPECT_EQ(get(cli + ".internalVlanAllocationPolicy"), "\"descending\"");
}

TEST_F(OrdelctlTest, aBareWordIsAString) {
   verifyDone({"set", cli + ".sourceDetail", "core switch"});
   EXPECT_EQ(get(cli + ".sourceDetail"), "\"core switch\"");
   verifyDone({"set", cli + ".sourceDetail", "\"quoted\""});
   EXPECT_EQ(get(cli + ".sourceDetail"), "\"quoted\"");
   verifyDone({"set", cli + ".switchIntfConfig[Ethernet1]", "{}"});
   for (char const* list : {"1-10,20", "10"}) {
      verifyDone({"set", cli + ".switchIntfConfig[Ethernet1].trunkAllowedVlans", list});
      EXPECT_EQ(get(cli + ".switchIntfConfig[Ethernet1].trunkAllowedVlans"), "\"" + std::string(list) + "\"");
   }
   verifyDone({"set", "bridging/config.bridgeMacAddr", "00:1C:73:00:00:01"});
   EXPECT_EQ(get("bridging/config.bridgeMacAddr"), "\"00:1c:73:00:00:01\"");
}

TEST_F(OrdelctlTest, setOfAMemberCreatesIt) {
   verifyDone({"set", cli + ".vlanConfig[10]", R"({"configuredName": "a"})"});
   verifyDone({"set", cli + ".vlanConfig[10].trunkGroup[red]", "true"});
   verifyDone({"set", cli + ".vidToFidMap[10]", "20"});
   EXPECT_EQ(get(cli + ".vlanConfig[10].configuredName"), "\"a\"");
   EXPECT_EQ(get(cli + ".vlanConfig[10].trunkGroup[red]"), "true");
   EXPECT_EQ(get(cli + ".vidToFidMap"), "{\n  \"10\": 20\n}");
   verifyDone({"set", cli + ".switchIntfConfig[Ethernet1]", "{}"});
   verifyDone(
       {"set", cli + ".switchIntfConfig[Ethernet1].ingressVlanXlate[100/0]", R"({"mappedVlanId": 200})"});
   EXPECT_EQ(get(cli + ".switchIntfConfig[Ethernet1].ingressVlanXlate"),
             "{\n  \"100/0\": {\"mappedInnerVlanId\": 0, \"mappedVlanId\": 200}\n}");
}

TEST_F(OrdelctlTest, setOfACollectionLeavesNothingElse) {
   loadLag();
   verifyDone({"set", lag + ".vlanConfig[10].trunkGroup", R"({"b": false, "c": true})"});
   EXPECT_EQ(get(lag + ".vlanConfig[10].trunkGroup"), "{\n  \"b\": false,\n  \"c\": true\n}");
   verifyDone({"set", lag + ".vlanConfig", R"({"10": {}})"});
   EXPECT_EQ(ctl({"ls", lag + ".vlanConfig"}).output, "10\n");
   EXPECT_EQ(get(lag + ".vlanConfig[10].configuredName"), "\"servers\"");
   verifyDone({"set", lag + ".vlanConfig", "{}"});
   verifyDone({"ls", lag + ".vlanConfig"});
}

TEST_F(OrdelctlTest, setOfAnAttributeMakesTheMemberThatItBelongsTo) {
   verifyDone({"set", cli + ".vlanConfig[10].configuredName", "a"});
   EXPECT_EQ(get(cli + ".vlanConfig[10].configuredName"), "\"a\"");
   EXPECT_EQ(get(cli + ".vlanConfig[10].adminState"), "\"active\"");
}

TEST_F(OrdelctlTest, setInWhatIsNotThereAnswersNo) {
   verifyFails(1, "bridging/nowhere: not there", {"set", "bridging/nowhere.colour", "1"});
}

TEST_F(OrdelctlTest, setOfWhatCanNotBeIsRefused) {
   verifyFails(3, cli + ".hostAgingTime: \"long\" is no double; expected a number, \"inf\" or \"-inf\"",
               {"set", cli + ".hostAgingTime", "long"});
   verifyFails(3, cli + ": Bridging::Input::CliConfig has no attribute colour",
               {"set", cli + ".colour", "1"});
   verifyFails(3, cli + ".vlanConfig[5000]: VlanId::value < 1 or > 4094 not allowed",
               {"set", cli + ".vlanConfig[5000]", "{}"});
   verifyFails(3, cli + ": is an entity; what can be set is an attribute or a member", {"set", cli, "{}"});
   verifyDone({"set", cli + ".vlanConfig[10]", "{}"});
   verifyFails(
       3,
       cli +
           ".vlanConfig[10].adminState: \"up\" is no VlanAdminState; expected active, suspended or a number",
       {"set", cli + ".vlanConfig[10].adminState", "up"});
   verifyFails(3, cli + ".vlanConfig[10].vlanId: is given at creation",
               {"set", cli + ".vlanConfig[10].vlanId", "11"});
   EXPECT_EQ(get(cli + ".vlanConfig[10].vlanId"), "10");
}

TEST_F(OrdelctlTest, membersOfADerivedTypeAreKnownByIt) {
   std::string const all = "interface/config/all.intfConfig[Vlan10]";
   verifyDone({"set", all, R"({"$type": "Interface::VlanIntfConfig"})"});
   EXPECT_THAT(get(all), StartsWith("{\n  \"$type\": \"Interface::VlanIntfConfig\",\n"));
   std::string const attribute = all + ".autoState";
   std::string const before = get(attribute);
   verifyDone({"set", attribute, before == "true" ? "false" : "true"});
   EXPECT_NE(get(attribute), before);
   verifyDone({"load", "-"},
              R"({"interface/config/all": {"intfConfig": {"Vlan10": {"autoState": )" + before + "}}}}");
   EXPECT_EQ(get(attribute), before);
   verifyDone({"load", "-"}, R"({"interface/config/all": {"intfConfig": {"Vlan10": {}}}})");
   Result const dumped = ctl({"dump", "interface/config/all"});
   verifyDone({"delete", all});
   verifyDone({"load", "-"}, dumped.output);
   EXPECT_EQ(get(attribute), before);
}

TEST_F(OrdelctlTest, numbersOf64BitsAndBelowZeroAreExact) {
   verifyDone({"set", "eventMon/mac/status.count", "18446744073709551615"});
   EXPECT_EQ(get("eventMon/mac/status.count"), "18446744073709551615");
   verifyDone({"set", "bridging/config.hostAgingTime", "-1.5"});
   EXPECT_EQ(get("bridging/config.hostAgingTime"), "-1.5");
}

// --- create, delete

TEST_F(OrdelctlTest, createMakesAnEntityAndItsDirectories) {
   verifyDone({"create", lag, "Bridging::Input::Config"});
   verifyDone({"create", lag, "Bridging::Input::Config"});
   EXPECT_EQ(get(lag + ".vlanConfigPriority"), "0");
   verifyDone({"create", "site/a/b", "Bridging::Input::VlanIdSet"});
   EXPECT_EQ(ctl({"ls", "site/a"}).output, "b\n");
   verifyFails(3, lag + ": is a Bridging::Input::Config and can't become a Bridging::Config",
               {"create", lag, "Bridging::Config"});
   verifyFails(3, "site/c: there is no type Colour", {"create", "site/c", "Colour"});
   verifyFails(3, "bridging/config: is a Bridging::Config and no directory",
               {"create", "bridging/config/x", "Kem::Dir"});
   verifyFails(2, lag + ".vlanConfig[10]: a path is expected, without attributes and keys",
               {"create", lag + ".vlanConfig[10]", "Bridging::Input::VlanConfig"});
}

TEST_F(OrdelctlTest, deleteTakesEntitiesAndMembersAway) {
   loadLag();
   verifyDone({"delete", lag + ".vlanConfig[10].trunkGroup[a]"});
   EXPECT_EQ(get(lag + ".vlanConfig[10].trunkGroup"), "{\n  \"b\": true\n}");
   verifyDone({"delete", lag + ".vlanConfig[10]"});
   verifyFails(1, lag + ".vlanConfig[10]: not there", {"delete", lag + ".vlanConfig[10]"});
   verifyFails(1, lag + ".vlanConfig[10]: not there", {"delete", lag + ".vlanConfig[10].trunkGroup[b]"});
   verifyDone({"delete", lag});
   verifyFails(1, lag + ": not there", {"delete", lag});
   verifyFails(1, lag + ": not there", {"delete", lag + ".vlanConfig[9]"});
   EXPECT_EQ(ctl({"ls", "bridging/input/config"}).output, "cli\neth\n");
   verifyFails(3, cli + ".hostAgingTime: is no entity and no member of a collection, so it can't be deleted",
               {"delete", cli + ".hostAgingTime"});
   verifyFails(3, cli + ": is a place of the schema and can't be deleted", {"delete", cli});
   verifyFails(3, "cell/1: is a place of the schema and can't be deleted", {"delete", "cell/1"});
}

// --- load, dump

TEST_F(OrdelctlTest, loadSetsWhatIsGivenAndLeavesTheRest) {
   loadLag();
   TempFolder const folder;
   std::string const file = folder.fileOf(
       "more.json",
       R"({"bridging/input/config/lag": {"vlanConfig": {"10": {"trunkGroup": {"c": true}}, "11": {}}}})");
   verifyDone({"load", file});
   EXPECT_EQ(get(lag + ".vlanConfig[10].configuredName"), "\"servers\"");
   EXPECT_EQ(get(lag + ".vlanConfig[10].trunkGroup"), "{\n  \"a\": false,\n  \"b\": true,\n  \"c\": true\n}");
   EXPECT_EQ(ctl({"ls", lag + ".vlanConfig"}).output, "9\n10\n11\n");
   EXPECT_EQ(get(lag + ".vlanConfigPriority"), "7");
}

TEST_F(OrdelctlTest, aDocumentIsTakenWholeOrNotAtAll) {
   std::string const before = ctl({"dump"}).output;
   // The fault is in the last of three entities: first one that ordelctl finds, then one that only the
   // database finds.
   std::string const head = R"({"bridging/input/config/a": {"$type": "Bridging::Input::Config"},
      "bridging/input/config/cli": {"hostAgingTime": 5, "vlanConfig": {"10": {}}}, )";
   verifyFails(3,
               "standard input: bridging/config.vlanConfig[10].adminState: "
               "\"up\" is no VlanAdminState; expected active, suspended or a number",
               {"load", "-"}, head + R"("bridging/config": {"vlanConfig": {"10": {"adminState": "up"}}}})");
   verifyFails(3, "standard input: bridging/config.vlanConfig[10].vlanId: is given at creation",
               {"load", "-"}, head + R"("bridging/config": {"vlanConfig": {"10": {"vlanId": 11}}}})");
   EXPECT_EQ(ctl({"dump"}).output, before);
}

TEST_F(OrdelctlTest, loadShowsWhatIsWrongWithADocument) {
   TempFolder const folder;
   std::string const file =
       folder.fileOf("bad.json", "{\n  \"bridging/config\": {\"hostAgingTime\": 5,}\n}\n");
   verifyFails(2, file + ": line 2, column 42: expected a name in double quotes", {"load", file});
   verifyFails(2, folder.file("none.json") + ": No such file or directory",
               {"load", folder.file("none.json")});
   verifyFails(3, "standard input: " + lag + ": isn't there, so \"$type\" is needed to create it",
               {"load", "-"}, R"({"bridging/input/config/lag": {}})");
   verifyFails(
       3, "standard input: bridging/config: is a Bridging::Config and can't become a Bridging::Input::Config",
       {"load", "-"}, R"({"bridging/config": {"$type": "Bridging::Input::Config"}})");
   verifyFails(3, "standard input: a document is an object of paths, not a list", {"load", "-"}, "[]");
   EXPECT_EQ(get("bridging/config.hostAgingTime"), "300");
}

TEST_F(OrdelctlTest, whatIsDumpedIsLoadedTheSame) {
   loadLag();
   verifyDone({"load", "-"}, R"({
      "bridging/config": {"vlanConfig": {"1006": {"internal": true, "intf": {"Ethernet3/1": {"tagged": true}}}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {
         "Ethernet2": {"$ref": "bridging/input/config/lag.switchIntfConfig[Ethernet2]"}, "Ethernet3": null}},
      "cell/1/stage/boot/status": {"instance": 3},
      "site/empty": {"$type": "Kem::Dir"},
      "site/odd": {"$type": "Bridging::Input::Config", "sourceDetail": "\uef80 \" \\ \u0000 €",
         "vlanConfig": {"10": {"trunkGroup": {"": true, "] \"": false, "\ueffe": true}}}}})");
   Result const dumped = ctl({"dump"});
   EXPECT_EQ(dumped.status, 0);
   EXPECT_THAT(dumped.output, HasSubstr("\"internal\": true"));
   EXPECT_THAT(dumped.output,
               HasSubstr(R"({"$ref": "bridging/input/config/lag.switchIntfConfig[Ethernet2]"})"));
   Database other;
   EXPECT_EQ(other.ctl({"load", "-"}, dumped.output).errors, "");
   EXPECT_EQ(other.ctl({"dump"}).output, dumped.output);
}

TEST_F(OrdelctlTest, dumpOfAPartIsADocumentOfThatPart) {
   loadLag();
   EXPECT_EQ(ctl({"dump", lag + ".vlanConfig[10].trunkGroup"}).output, R"({
  "bridging/input/config/lag": {
    "$type": "Bridging::Input::Config",
    "vlanConfig": {
      "10": {
        "trunkGroup": {
          "a": false,
          "b": true
        }
      }
    }
  }
}
)");
   verifyFails(1, "bridging/nowhere: not there", {"dump", "bridging/nowhere"});
}

// --- watch

// What a watch prints while the database is changed. It has begun when the database shows it among
// the clients.
struct WatchTest : OrdelctlTest {
   std::unique_ptr<Process> watch;

   void start(std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), "watch");
      watch = database.startCtl(arguments);
      // The values at the beginning, or the list of clients, show that it has begun.
      std::string const selector = arguments.back();
      for (int i = 0; i < 1000; ++i)
         if (ctl({"clients", "--json"}).output.find("\"" + selector + "\"") != std::string::npos)
            return;
      ADD_FAILURE() << "the watch doesn't begin: " << watch->errors().text();
   }
   std::string line() { return watch->readLine().value_or("(no line)"); }
};

TEST_F(WatchTest, printsALineForEachChange) {
   start({cli});
   verifyDone({"set", cli + ".hostAgingTime", "600"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/config/cli.hostAgingTime", "value": 600})");
   verifyDone({"set", cli + ".vlanConfig[10]", R"({"configuredName": "a", "trunkGroup": {"red": true}})"});
   EXPECT_EQ(line(),
             R"({"selector": "bridging/input/config/cli.vlanConfig[10]", "value": {"adminState": "active", )"
             R"("configuredName": "a", "trunkGroup": {"red": true}, "vlanId": 10, )"
             R"("vlanTypeAndPrimaryVlan": {"primaryVlan": 0, "vlanType": "primary_"}}})");
   verifyDone({"set", cli + ".vlanConfig[10].trunkGroup[red]", "false"});
   EXPECT_EQ(line(),
             R"({"selector": "bridging/input/config/cli.vlanConfig[10].trunkGroup[red]", "value": false})");
   verifyDone({"delete", cli + ".vlanConfig[10].trunkGroup[red]"});
   EXPECT_EQ(line(),
             R"({"selector": "bridging/input/config/cli.vlanConfig[10].trunkGroup[red]", "deleted": true})");
   verifyDone({"delete", cli + ".vlanConfig[10]"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/config/cli.vlanConfig[10]", "deleted": true})");
}

TEST_F(WatchTest, whatDoesNotChangeAndWhatIsElsewhereIsNotPrinted) {
   start({cli + ".hostAgingTime", cli + ".vlanConfig[10]"});
   verifyDone({"set", cli + ".hostAgingTime", "300"}); // as before
   verifyDone({"set", cli + ".pausePassThrough", "true"});
   verifyDone({"set", cli + ".vlanConfig[11]", "{}"});
   verifyDone({"set", cli + ".hostAgingTime", "301"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/config/cli.hostAgingTime", "value": 301})");
}

TEST_F(WatchTest, awaitsWhatIsNotThereYet) {
   start({lag + ".vlanConfig[10].configuredName"});
   verifyDone({"create", lag, "Bridging::Input::Config"});
   verifyDone({"set", lag + ".vlanConfig[10]", R"({"configuredName": "a"})"});
   std::string const selector =
       "{\"selector\": \"bridging/input/config/lag.vlanConfig[10].configuredName\", ";
   EXPECT_EQ(line(), selector + "\"value\": \"a\"}");
   verifyDone({"delete", lag + ".vlanConfig[10]"});
   EXPECT_EQ(line(), selector + "\"deleted\": true}");
   verifyDone({"set", lag + ".vlanConfig[10]", R"({"configuredName": "b"})"});
   EXPECT_EQ(line(), selector + "\"value\": \"b\"}");
   verifyDone({"delete", lag});
   EXPECT_EQ(line(), selector + "\"deleted\": true}");
   loadLag();
   EXPECT_EQ(line(), selector + "\"value\": \"servers\"}");
}

TEST_F(WatchTest, entitiesOfADirectoryComeAndGo) {
   start({"bridging/input/dynvlan"});
   verifyDone({"create", "bridging/input/dynvlan/vlan/mvrp", "Bridging::Input::VlanIdSet"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/dynvlan/vlan/mvrp", "value": {"$type": )"
                     R"("Bridging::Input::VlanIdSet", "configPriority": 0, "trunkGroup": {}, "vlans": ""}})");
   verifyDone({"set", "bridging/input/dynvlan/vlan/mvrp.vlans", "10"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/dynvlan/vlan/mvrp.vlans", "value": "10"})");
   verifyDone({"delete", "bridging/input/dynvlan/vlan/mvrp"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/dynvlan/vlan/mvrp", "deleted": true})");
}

TEST_F(WatchTest, initialValuesComeFirstWhereTheyAreAskedFor) {
   start({"--initial", lag, cli + ".hostAgingTime"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/config/cli.hostAgingTime", "value": 300})");
   verifyDone({"set", cli + ".hostAgingTime", "301"});
   EXPECT_EQ(line(), R"({"selector": "bridging/input/config/cli.hostAgingTime", "value": 301})");
}

TEST_F(WatchTest, selectorsThatOverlapPrintAChangeOnce) {
   start({cli, cli + ".hostAgingTime"});
   verifyDone({"set", cli + ".hostAgingTime", "301"});
   verifyDone({"set", cli + ".hostAgingTime", "302"});
   EXPECT_THAT(line(), HasSubstr("301"));
   EXPECT_THAT(line(), HasSubstr("302"));
}

TEST_F(WatchTest, endsQuietlyWhenItIsStopped) {
   start({cli});
   watch->signal(SIGINT);
   EXPECT_EQ(watch->wait(), 128 + SIGINT);
   EXPECT_EQ(watch->errors().text(), "");
}

TEST_F(WatchTest, endsWithTheDatabase) {
   start({cli});
   database.stop();
   EXPECT_EQ(watch->wait(), 4);
   EXPECT_EQ(watch->errors().text(),
             "ordelctl: " + database.socket() + ": the database closed the connection\n");
}

TEST_F(WatchTest, whatCanNotBeIsRefused) {
   verifyFails(3, "bridging/config: Bridging::Config has no attribute colour",
               {"watch", "bridging/config.colour"});
   start({lag + ".colour"});
   verifyDone({"create", lag, "Bridging::Input::Config"});
   EXPECT_EQ(watch->wait(), 3);
   EXPECT_EQ(watch->errors().text(),
             "ordelctl: " + lag + ": Bridging::Input::Config has no attribute colour\n");
}

TEST_F(OrdelctlTest, aReaderThatGoesEndsItQuietly) {
   Result const result =
       run({"/bin/sh", "-c", "{ '" + program("ordelctl") + "' dump; echo $? >&2; } | head -n 1"}, {},
           database.environment());
   EXPECT_EQ(result.output, "{\n");
   EXPECT_THAT(result.errors, ::testing::AnyOf("0\n", "141\n")); // the whole may have fitted the pipe
}

// --- wait, settle

TEST_F(OrdelctlTest, waitReturnsAtOnceForWhatHolds) {
   loadLag();
   verifyDone({"wait", lag});
   verifyDone({"wait", lag + ".vlanConfig[10].configuredName", "servers"});
   verifyDone({"wait", lag + ".vlanConfig[10].adminState", "active"});
   verifyDone({"wait", lag + ".vlanConfig[10].adminState", "0"});
   verifyDone({"wait", lag + ".vlanConfig[10].trunkGroup", R"({"b": true, "a": false})"});
   verifyDone({"wait", "bridging/config.hostAgingTime", "300.0"});
   verifyDone({"wait", lag + ".vlanConfig[11]", "--absent"});
   verifyDone({"wait", "bridging/nowhere", "--absent"});
}

TEST_F(OrdelctlTest, waitTimesOut) {
   loadLag();
   verifyFails(1, lag + ".vlanConfig[11]: not there within 0.1 s",
               {"wait", lag + ".vlanConfig[11]", "--timeout", "0.1"});
   verifyFails(1, lag + ".vlanConfig[10].trunkGroup: not so within 0.1 s",
               {"wait", lag + ".vlanConfig[10].trunkGroup", R"({"b": true})", "--timeout", "0.1"});
   verifyFails(1, lag + ": not gone within 0.1 s", {"wait", lag, "--absent", "--timeout", "0.1"});
}

TEST_F(OrdelctlTest, waitReturnsWhenItComesAbout) {
   auto const there = database.startCtl({"wait", lag + ".vlanConfig[10].configuredName", "b"});
   loadLag();
   auto const gone = database.startCtl({"wait", lag, "--absent"});
   verifyDone({"set", lag + ".vlanConfig[10].configuredName", "b"});
   EXPECT_EQ(there->wait(), 0);
   verifyDone({"delete", lag});
   EXPECT_EQ(gone->wait(), 0);
}

TEST_F(OrdelctlTest, waitForWhatCanNotBeIsRefused) {
   verifyFails(3, "bridging/config: Bridging::Config has no attribute colour",
               {"wait", "bridging/config.colour"});
   verifyFails(3, "bridging/config.hostAgingTime: \"x\" is no double; expected a number, \"inf\" or \"-inf\"",
               {"wait", "bridging/config.hostAgingTime", "x"});
   EXPECT_EQ(ctl({"wait", "bridging/config", "1", "--absent"}).status, 2);
   EXPECT_EQ(ctl({"wait", "bridging/config", "--timeout", "0"}).status, 2);
   EXPECT_EQ(ctl({"wait", "bridging/config", "--timeout", "soon"}).status, 2);
}

TEST_F(OrdelctlTest, settleWithAnyReturnsWhereNoAgentIsConnected) {
   verifyDone({"settle", "--any"});
   verifyDone({"settle", "--any", "--timeout", "0.5"});
}

TEST_F(OrdelctlTest, settleAnswersNoWhereTheAgentIsNotConnected) {
   verifyFails(1, "not settled: Vorn is not connected", {"settle", "--timeout", "0.1"});
   verifyFails(1, "not settled: Vorn is not connected", {"settle", "--agent", "Vorn", "--timeout", "0.1"});
   verifyFails(1, "not settled: Other is not connected", {"settle", "--agent", "Other", "--timeout", "0.1"});
   EXPECT_EQ(ctl({"settle", "--agent", "Vorn", "--any"}).status, 2);
   EXPECT_EQ(ctl({"settle", "--agent", ""}).status, 2);
   EXPECT_EQ(ctl({"settle", "--agent", std::string(256, 'x')}).status, 2);
}

// --- batch

struct BatchTest : OrdelctlTest {
   std::unique_ptr<Process> batch = database.startCtl({"batch"});

   std::string answer(std::string const& line) {
      batch->write(line + "\n");
      return batch->readLine().value_or("(no answer)");
   }
};

constexpr char done[] = R"({"ok": true, "value": null})";

TEST_F(BatchTest, answersEveryCommand) {
   EXPECT_EQ(answer(R"(["create", "bridging/input/config/lag", "Bridging::Input::Config"])"), done);
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/lag.vlanConfigPriority", 7])"), done);
   EXPECT_EQ(answer(R"(["get", "bridging/input/config/lag.vlanConfigPriority"])"),
             R"({"ok": true, "value": 7})");
   EXPECT_EQ(answer(R"(["load", {"bridging/input/config/lag": {"vlanConfig": {"10": {}, "9": {}}}}])"), done);
   EXPECT_EQ(answer(R"(["ls", "bridging/input/config/lag.vlanConfig"])"),
             R"({"ok": true, "value": ["9", "10"]})");
   EXPECT_EQ(answer(R"(["wait", "bridging/input/config/lag.vlanConfig[10].adminState", "active"])"), done);
   EXPECT_EQ(answer(R"(["wait", "bridging/input/config/lag.vlanConfig[11]", "--absent", "--timeout", 1])"),
             done);
   EXPECT_EQ(answer(R"(["delete", "bridging/input/config/lag.vlanConfig[10]"])"), done);
   EXPECT_EQ(answer(R"(["dump", "bridging/input/config/lag.vlanConfigPriority"])"),
             R"({"ok": true, "value": {"bridging/input/config/lag": {"$type": "Bridging::Input::Config", )"
             R"("vlanConfigPriority": 7}}})");
   EXPECT_EQ(answer(R"(["settle", "--timeout", 5, "--any"])"), done);
   EXPECT_EQ(answer(R"(["settle", "--agent", "Other", "--timeout", 0.05])"),
             R"({"ok": false, "error": "not settled: Other is not connected"})");
   EXPECT_EQ(answer(R"(["settle", "--agent", ""])"),
             R"({"ok": false, "error": "an agent's name has 1 to 255 bytes"})");
   EXPECT_EQ(answer(R"(["settle", "--agent", "Vorn", "--any"])"),
             R"({"ok": false, "error": "expected --timeout SECONDS, and either --agent NAME or --any"})");
   EXPECT_THAT(answer(R"(["clients"])"), StartsWith(R"({"ok": true, "value": [{"name": "ordelctl")"));
   EXPECT_EQ(answer(R"(["snapshot"])"),
             R"({"ok": false, "error": "the database runs without a snapshot file"})");
   batch->closeInput();
   EXPECT_EQ(batch->wait(), 0);
}

TEST_F(BatchTest, errorsAreAnsweredAndTheNextCommandIsServed) {
   EXPECT_EQ(answer("[nonsense]"), R"({"ok": false, "error": "line 1, column 2: expected a value"})");
   EXPECT_EQ(answer("{}"),
             R"({"ok": false, "error": "a command is an array, such as [\"get\", \"bridging/config\"]"})");
   EXPECT_EQ(answer("[]"), R"({"ok": false, "error": "expected a command, a string"})");
   EXPECT_EQ(answer(R"(["fly"])"), R"({"ok": false, "error": "there is no command \"fly\" in a batch"})");
   EXPECT_EQ(answer(R"(["get", "bridging/nowhere"])"),
             R"({"ok": false, "error": "bridging/nowhere: not there"})");
   EXPECT_EQ(answer(R"(["get", "bridging/config", 1])"),
             R"({"ok": false, "error": "more arguments than the command takes"})");
   EXPECT_EQ(
       answer(R"(["set", "bridging/config.hostAgingTime", "x"])"),
       R"({"ok": false, "error": "bridging/config.hostAgingTime: \"x\" is no double; expected a number, )"
       R"(\"inf\" or \"-inf\""})");
   EXPECT_EQ(answer(R"(["wait", "bridging/nowhere", "--timeout", 0.05])"),
             R"({"ok": false, "error": "bridging/nowhere: not there within 0.05 s"})");
   EXPECT_EQ(answer(R"(["get", "bridging/config.hostAgingTime"])"), R"({"ok": true, "value": 300})");
}

TEST_F(BatchTest, seesWhatOthersWrite) {
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/cli.vlanConfig[10]", {}])"), done);
   loadLag(); // by another process
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/lag.vlanConfigPriority", 8])"), done);
   // Another of the same type, and one of another type, in its place.
   verifyDone({"delete", lag});
   loadLag();
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/lag.vlanConfigPriority", 9])"), done);
   EXPECT_EQ(get(lag + ".vlanConfigPriority"), "9");
   verifyDone({"delete", lag});
   verifyDone({"create", lag, "Bridging::Input::CliConfig"});
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/lag.hostAgingTime", 9])"), done);
   EXPECT_EQ(get(lag + ".hostAgingTime"), "9");
   verifyDone({"delete", lag});
   EXPECT_EQ(answer(R"(["set", "bridging/input/config/lag.hostAgingTime", 9])"),
             R"({"ok": false, "error": "bridging/input/config/lag: not there"})");
   EXPECT_EQ(answer(R"(["delete", "bridging/input/config/lag"])"),
             R"({"ok": false, "error": "bridging/input/config/lag: not there"})");
}

TEST_F(BatchTest, thousandsOfCommandsTakeSeconds) {
   std::string input;
   constexpr int count = 4000;
   for (int vlan = 1; vlan <= count; ++vlan)
      input += "[\"set\", \"bridging/input/config/cli.vlanConfig[" + std::to_string(vlan) + "]\", {}]\n";
   batch->write(input);
   for (int vlan = 1; vlan <= count; ++vlan)
      ASSERT_EQ(batch->readLine().value_or("(no answer)"), done);
   EXPECT_EQ(answer(R"(["get", "bridging/input/config/cli.vlanConfig[4000].vlanId"])"),
             R"({"ok": true, "value": 4000})");
}

TEST_F(BatchTest, endsWithTheDatabase) {
   EXPECT_EQ(answer(R"(["settle", "--any"])"), done);
   database.stop();
   batch->write("[\"settle\"]\n");
   EXPECT_EQ(batch->wait(), 4);
}

// --- What is printed, and where

TEST_F(OrdelctlTest, whatIsPrintedSteersNoTerminal) {
   std::string const odd = "a\x1b"
                           "c\nb\xc2\x9b\xff";
   verifyDone({"create", "bridging/input/config/" + odd, "Bridging::Input::Config"});
   EXPECT_EQ(ctl({"ls", "bridging/input/config"}).output, "\"a\\x1bc\\x0ab\\xc2\\x9b\\xff\"\ncli\neth\n");
   Result const failed = ctl({"get", "bridging/input/config/" + odd + "/x"});
   EXPECT_EQ(failed.status, 1);
   EXPECT_THAT(failed.errors, HasSubstr("a\\x1bc\\nb\\xc2\\x9b\\xff"));
   std::string const all = failed.errors + ctl({"get", "bridging/input"}).output + ctl({"dump"}).output;
   EXPECT_EQ(all.find('\x1b'), std::string::npos);
   EXPECT_EQ(all.find("\xc2\x9b"), std::string::npos);
   // What clients call themselves.
   RawClient client(database.socket());
   client.welcomed("evil\x1b[2J\x7f");
   for (std::vector<std::string> const& command :
        {std::vector<std::string>{"clients"}, {"clients", "--mounts"}, {"clients", "--json"}}) {
      std::string const output = ctl(command).output;
      EXPECT_THAT(output, HasSubstr("evil"));
      EXPECT_EQ(output.find_first_of("\x1b\x7f"), std::string::npos) << output;
   }
}

TEST_F(OrdelctlTest, closedStandardStreamsAreNotTheDatabasesSocket) {
   std::string const tool = program("ordelctl") + " --socket " + database.socket() + " ";
   EXPECT_EQ(run({"/bin/sh", "-c", tool + "ls bridging >&-"}).status, 0);
   EXPECT_EQ(run({"/bin/sh", "-c", tool + "ls bridging >&- 2>&- <&-"}).status, 0);
   EXPECT_EQ(run({"/bin/sh", "-c", tool + "ls nowhere 2>&-"}).status, 1);
   EXPECT_EQ(get("bridging/config.hostAgingTime"), "300");
   EXPECT_EQ(database.process().errors().text().find("refused"), std::string::npos)
       << "the database was sent nothing but frames";
}

TEST_F(OrdelctlTest, outputThatIsNotWrittenIsAFailure) {
   std::string const tool = program("ordelctl") + " --socket " + database.socket() + " ";
   for (char const* command :
        {"ls bridging", "get bridging/config", "dump", "clients", "--help", "ls --help"}) {
      Result const result = run({"/bin/sh", "-c", tool + command + " >/dev/full"});
      EXPECT_EQ(result.status, 2) << command;
      EXPECT_EQ(result.errors, "ordelctl: standard output: No space left on device\n") << command;
   }
}

// --- clients, snapshot

TEST_F(OrdelctlTest, clientsAreReported) {
   auto const watch = database.startCtl({"watch", "--initial", cli + ".hostAgingTime"});
   ASSERT_TRUE(watch->readLine());
   std::string const pid = std::to_string(watch->pid());
   std::string const json = ctl({"clients", "--json"}).output;
   EXPECT_THAT(json, HasSubstr("\"pid\": " + pid + ", \"uid\": " + std::to_string(::getuid())));
   EXPECT_THAT(json, HasSubstr("{\"path\": \"" + cli + ".hostAgingTime\""));
   std::string const table = ctl({"clients"}).output;
   EXPECT_THAT(table, StartsWith("NAME      ROLE"));
   EXPECT_THAT(table, HasSubstr("MOUNTS  PENDING BYTES  REFUSED WRITES\n"));
   EXPECT_THAT(table, HasSubstr(pid));
   std::string const list = ctl({"clients", "--mounts"}).output;
   EXPECT_THAT(list, StartsWith("NAME      ROLE"));
   EXPECT_THAT(list, HasSubstr("\nordelctl " + pid + ", 1 mounts:\n  ra    " + cli + ".hostAgingTime"));
}

TEST(SnapshotTest, isWrittenWhenAskedFor) {
   TempFolder const folder;
   Database database({"--snapshot", folder.file("tree")});
   EXPECT_EQ(database.ctl({"set", "bridging/config.hostAgingTime", "600"}).status, 0);
   EXPECT_EQ(database.ctl({"snapshot"}).errors, "");
   EXPECT_TRUE(std::filesystem::exists(folder.file("tree")));
   database.kill();
   database.start();
   EXPECT_EQ(database.get("bridging/config.hostAgingTime"), "600");
}

TEST_F(OrdelctlTest, snapshotWithoutAFileIsRefused) {
   verifyFails(3, "the database runs without a snapshot file", {"snapshot"});
}

// --- The tool itself

TEST_F(OrdelctlTest, theSocketCanBeNamedEitherWay) {
   for (std::vector<std::string> const& arguments : std::vector<std::vector<std::string>>{
            {"--socket", database.socket(), "get", "bridging/config.hostAgingTime"},
            {"get", "bridging/config.hostAgingTime", "--socket", database.socket()}}) {
      std::vector<std::string> command{program("ordelctl")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      EXPECT_EQ(run(command, {}, {{"ORDEL_SOCKET", "/nowhere"}}).output, "300\n");
   }
}

TEST(OrdelctlAloneTest, aDatabaseThatCanNotBeReached) {
   TempFolder const folder;
   std::string const socket = folder.file("none.sock");
   Result const result = run({program("ordelctl"), "--socket", socket, "get", "bridging/config"});
   EXPECT_EQ(result.status, 4);
   EXPECT_EQ(result.errors, "ordelctl: " + socket + ": No such file or directory\n");
}

TEST(OrdelctlAloneTest, wrongUsageIsReportedInOneLine) {
   for (std::vector<std::string> const& arguments :
        std::vector<std::vector<std::string>>{{},
                                              {"fly"},
                                              {"get"},
                                              {"get", "a", "b"},
                                              {"set", "bridging/config.hostAgingTime"},
                                              {"get", "a", "--deep"}}) {
      std::vector<std::string> command{program("ordelctl")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      Result const result = run(command);
      EXPECT_EQ(result.status, 2) << result.errors;
      EXPECT_THAT(result.errors, StartsWith("ordelctl: "));
      EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
      EXPECT_EQ(result.output, "");
   }
}

TEST(OrdelctlAloneTest, anUnknownCommandIsNamed) {
   EXPECT_EQ(run({program("ordelctl"), "fly"}).errors,
             "ordelctl: there is no command fly; see ordelctl --help\n");
}

TEST(OrdelctlAloneTest, helpIsThereForEveryCommand) {
   Result const all = run({program("ordelctl"), "--help"});
   EXPECT_EQ(all.status, 0);
   for (char const* command : {"get", "ls", "set", "create", "delete", "load", "dump", "watch", "wait",
                               "settle", "batch", "clients", "snapshot"}) {
      EXPECT_THAT(all.output, HasSubstr(std::string("\n  ") + command + " "));
      Result const help = run({program("ordelctl"), command, "--help"});
      EXPECT_EQ(help.status, 0);
      EXPECT_THAT(help.output, HasSubstr(std::string("ordelctl ") + command)) << "an example";
   }
   Result const version = run({program("ordelctl"), "--version"});
   EXPECT_EQ(version.status, 0);
   EXPECT_THAT(version.output, StartsWith("ordelctl "));
}

} // namespace
