#include "Failures.h"
#include "RoutedWorld.h"
#include "Show.h"
#include "Words.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr Format intfTables;
constexpr Format intfJson{.wantsJson = true};

struct ShowInterfaceTest : testing::Test {
   RoutedWorld world;
   SwitchState& state = world.state;

   std::string shown() { return showInterface(state, {}, intfTables); }
   std::string shown(char const* name) { return showInterface(state, Sulvi::IntfId(name), intfTables); }
   json shownJson(char const* name) {
      return json::parse(showInterface(state, Sulvi::IntfId(name), intfJson))["interfaces"][name];
   }
};

TEST(IntfWordsTest, interfacesAreFoundByShortNames) {
   EXPECT_EQ(intfFromText("vl10"), Sulvi::IntfId("Vlan10"));
   EXPECT_EQ(intfFromText("VLAN10"), Sulvi::IntfId("Vlan10"));
   EXPECT_EQ(intfFromText("et1.10"), Sulvi::IntfId("Ethernet1.10"));
   EXPECT_EQ(intfFromText("po5.7"), Sulvi::IntfId("Port-Channel5.7"));
   EXPECT_EQ(intfFromText("lo0"), Sulvi::IntfId("Loopback0"));
   EXPECT_EQ(intfFromText("ma1"), Sulvi::IntfId("Management1"));
   EXPECT_EQ(intfFromText("10"), Sulvi::IntfId("10"));
   EXPECT_EQ(intfFromText("10", true), Sulvi::IntfId("Vlan10"));
   EXPECT_EQ(intfFromText("Et1.10", true), Sulvi::IntfId("Ethernet1.10"));
   EXPECT_THROW(intfFromText(""), UsageError);
   EXPECT_THROW(intfFromText(std::string(97, 'x')), UsageError);
}

TEST(IntfWordsTest, namesInCommandsAreSafeToType) {
   EXPECT_EQ(shellWord("vlan10"), "vlan10");
   EXPECT_EQ(shellWord("et3_1.100"), "et3_1.100");
   EXPECT_EQ(shellWord("red; reboot"), "'red; reboot'");
   EXPECT_EQ(shellWord("a'b"), "'a'\\''b'");
   EXPECT_EQ(shellWord("-x"), "'-x'");
   EXPECT_EQ(shellWord(""), "''");
}

TEST(IntfWordsTest, statesHaveWordsAndNames) {
   EXPECT_EQ(operStatusText(IntfOperStatus::intfOperLowerLayerDown), "lower layer down");
   EXPECT_EQ(operStatusName(IntfOperStatus::intfOperLowerLayerDown), "lowerLayerDown");
   EXPECT_EQ(operStatusName(IntfOperStatus::intfOperNotPresent), "notPresent");
   EXPECT_EQ(operStatusName(IntfOperStatus::intfOperUp), "up");
   EXPECT_EQ(operStatusText(static_cast<IntfOperStatus>(9)), "state 9");
   EXPECT_EQ(forwardingModelText(static_cast<IntfForwardingModel>(9)), "model 9");
   EXPECT_EQ(encapsulationText(static_cast<SubIntfEncapType>(9)), "encapsulation 9");
}

// --- show interface.

TEST_F(ShowInterfaceTest, nothingIsSaidInWords) {
   EXPECT_EQ(shown(), "There are no interfaces.\n");
   EXPECT_THROW(shown("Vlan10"), Absent);
}

TEST_F(ShowInterfaceTest, tableHasAllKindsInNaturalOrder) {
   world.vlanIntf(10)->mtuIs(9000);
   world.vlanIntf(9);
   world.noPortForwards(9);
   state.vlanIntfStatus->intfStatus("Vlan9")->operStatusIs(IntfOperStatus::intfOperLowerLayerDown);
   world.subIntf(7, 100)->mtuIs(1400);
   world.moveVlanIntf(10, "red");
   state.allIntfStatus->intfStatusIs("Loopback0");
   state.allIntfConfig->intfConfigIs("Loopback0")->enabledIs(false);
   world.kernel.findDevice("et1")->address = {2, 0, 0, 0, 0, 1};
   int const red = world.kernel.findDevice("vlan10", "red")->index;
   EXPECT_EQ(
       shown(),
       "Interface  Device  Index  Namespace  Address            MTU                 State             "
       "Reason\n"
       "---------  ------  -----  ---------  -----------------  ------------------  ----------------  "
       "--------------------------------------------------------------------------------\n"
       "Et1        et1     5      default    02:00:00:00:00:01  1500                up                -\n"
       "Et1.7      et1.7   6      default    02:00:00:00:00:02  1400 (kernel 1500)  up                "
       "nothing holds it down\n"
       "Loopback0  -       -      default    -                  1500                unknown           it is "
       "shut down\n"
       "Vlan9      vlan9   4      default    02:00:00:00:00:02  1500                lower layer down  it has "
       "no "
       "forwarding port in its VLAN, other than the CPU's, and autostate is on\n"
       "Vlan10     vlan10  " +
           std::to_string(red) +
           "      red        02:00:00:00:00:02  9000 (kernel 1500)  up                it "
           "has a forwarding port in its VLAN\n");
}

TEST_F(ShowInterfaceTest, whatIsMissingIsSaidInItsPlace) {
   world.vlanIntf(10);
   world.kernel.deviceDel("vlan10");
   EXPECT_THAT(shown(), HasSubstr("Vlan10     vlan10  no device  default "));
   state.vlanIntfStatus->intfStatusDel("Vlan10");
   EXPECT_THAT(shown(), HasSubstr("no status  the interface manager has made no status record\n"));
   state.vlanIntfConfig->intfConfigDel("Vlan10");
   EXPECT_EQ(shown(), "There are no interfaces.\n") << "a local record makes no interface";
   state.vlanIntfStatus->intfStatusIs("Vlan10");
   EXPECT_THAT(shown(), HasSubstr("unknown  nobody configures it\n"));
   state.vlanIntfConfig->intfConfigIs("Vlan4095");
   state.subIntfConfig->intfConfigIs("Loopback0.5");
   EXPECT_THAT(shown(), HasSubstr("Vlan4095 "));
   EXPECT_THAT(shown("Vlan4095"), HasSubstr("device                none\n"));
   EXPECT_THAT(shown(), HasSubstr("the switch can have no such interface\n"));
}

TEST_F(ShowInterfaceTest, namespaceThatMayNotBeEnteredFailsNothing) {
   world.vlanIntf(10);
   world.moveVlanIntf(10, "red");
   world.kernel.fail("setns", EPERM, 1, true);
   EXPECT_THAT(shown(),
               AllOf(HasSubstr("Vlan10     vlan10  unreadable  red "),
                     HasSubstr("\n\nDevices in the namespace red: it can't be entered: Operation not "
                               "permitted.\n")));
   json const one = shownJson("Vlan10");
   EXPECT_EQ(one["kernel"], nullptr);
   EXPECT_EQ(one["kernelUnreadable"], "it can't be entered: Operation not permitted");
   EXPECT_EQ(one["state"], "up");
   EXPECT_THAT(shown("Vlan10"),
               HasSubstr("Kernel, namespace red\n"
                         "   device                unreadable: it can't be entered: Operation not "
                         "permitted\n"));
}

TEST_F(ShowInterfaceTest, stateThatTheRulesDoNotGiveIsMarked) {
   world.vlanIntf(10)->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_THAT(shown(), HasSubstr("up     not up to date: down, since it is shut down\n"));
   EXPECT_EQ(shownJson("Vlan10")["stateByRules"], "down");
}

TEST_F(ShowInterfaceTest, remarksFollowTheTable) {
   world.vlanIntf(10);
   state.agentStatus->kernelProblemIs("it has no 802.1Q");
   state.agentStatus->deviceProblemIs("Vlan10", "an MTU of 70000 is out of range");
   state.vlanIntfStatus->intfStatus("Vlan10")->addrIs(Sulvi::EthAddr("02:00:00:00:00:09"));
   state.agentPid = 0;
   std::string const text = showInterface(state, {}, {.width = 200});
   EXPECT_THAT(text, HasSubstr("\n\nThe agent is not connected to the database"));
   EXPECT_THAT(text, HasSubstr("\nThis kernel can make no VLAN device: it has no 802.1Q.\n"
                               "Vlan10: an MTU of 70000 is out of range.\n"
                               "Vlan10: the kernel has the address 02:00:00:00:00:02.\n"));
}

TEST_F(ShowInterfaceTest, oneInterfaceHasAllFacts) {
   world.vlanIntf(10)->addrIs(Sulvi::EthAddr("02:00:00:00:00:0a"));
   world.configureInto("Vlan10", "red");
   state.vlanIntfStatus->intfStatus("Vlan10")->operStatusChangeIs({.time = 990, .count = 3});
   world.dynVlanIntfs("overlay", 7)->intfConfigIs("Vlan10");
   EXPECT_EQ(shown("Vlan10"), "Vlan10\n"
                              "Configuration\n"
                              "   source                static, by cli\n"
                              "   enabled               yes\n"
                              "   MTU                   1500\n"
                              "   address               02:00:00:00:00:0a\n"
                              "   namespace             red\n"
                              "   autostate             on\n"
                              "   other claims          overlay 7\n"
                              "\n"
                              "Status\n"
                              "   state                 up\n"
                              "   last change           10 s ago, 3 changes so far\n"
                              "   device                vlan10\n"
                              "   address               02:00:00:00:00:02\n"
                              "   largest MTU           9214\n"
                              "   forwarding model      unknown\n"
                              "   namespace             default\n"
                              "   row of the table      5: up, it has a forwarding port in its VLAN\n"
                              "\n"
                              "VLAN 10\n"
                              "   status                active\n"
                              "   forwarding ports      Et1\n"
                              "   processor             member\n"
                              "\n"
                              "Kernel, namespace default\n"
                              "   device                vlan10, index 3\n"
                              "   address               02:00:00:00:00:02\n"
                              "   MTU                   1500\n"
                              "   flags                 up, running, broadcast, multicast\n"
                              "   state                 up\n"
                              "   VLAN                  10\n"
                              "   base device           fabric\n");
}

TEST_F(ShowInterfaceTest, subinterfaceHasItsParentAndTheHardware) {
   world.subIntf(7, 100);
   EXPECT_THAT(shown("Ethernet1.7"), AllOf(HasSubstr("   VLAN                  100\n"
                                                     "   encapsulation         802.1Q\n"),
                                           HasSubstr("\nParent Ethernet1\n"
                                                     "   state                 up\n"
                                                     "   forwarding model      routed\n"
                                                     "\n"
                                                     "Hardware\n"
                                                     "   to be programmed      yes\n"
                                                     "   programmed            yes\n"
                                                     "\n"
                                                     "Kernel, namespace default\n"),
                                           HasSubstr("   base device           et1\n")));
   state.allIntfStatus->intfStatusDel("Ethernet1");
   state.subIntfHwStatus->subIntfStatusDel("Ethernet1.7");
   state.subIntfStatusLocal->intfStatusLocalDel("Ethernet1.7");
   state.agentStatus->deviceProblemIs("Ethernet1.7", "no such parent");
   EXPECT_THAT(shown("Ethernet1.7"),
               AllOf(HasSubstr("   state                 there is no status record\n"),
                     HasSubstr("   programmed            no record of the hardware\n"),
                     HasSubstr("   namespace             there is no local status record yet\n"),
                     HasSubstr("   problem               no such parent\n")));
   state.subIntfStatus->intfStatusDel("Ethernet1.7");
   EXPECT_THAT(shown("Ethernet1.7"),
               AllOf(HasSubstr("   state                 there is no status record yet\n"),
                     HasSubstr("   to be programmed      unknown\n")));
}

TEST_F(ShowInterfaceTest, deviceThatIsAnotherOneIsSaid) {
   world.vlanIntf(10);
   world.kernel.deviceDel("vlan10");
   world.kernel.deviceIs("vlan10", "bridge");
   EXPECT_THAT(shown("Vlan10"),
               HasSubstr("   not as wanted         it is no VLAN device, but one of the kind bridge\n"));
   world.kernel.deviceDel("vlan10");
   world.kernel.vlanDeviceIs("vlan10", "fabric", 20);
   EXPECT_THAT(shown("Vlan10"), HasSubstr("   not as wanted         it is of VLAN 20 and not of VLAN 10\n"));
   world.kernel.deviceDel("vlan10");
   world.kernel.deviceIs("other0");
   world.kernel.vlanDeviceIs("vlan10", "other0", 10);
   EXPECT_THAT(shown("Vlan10"), HasSubstr("   not as wanted         it is on other0 and not on fabric\n"));
}

TEST_F(ShowInterfaceTest, jsonHasStableKeys) {
   auto const config = world.vlanIntf(10);
   state.vlanIntfStatus->intfStatus("Vlan10")->operStatusChangeIs({.time = 990, .count = 3});
   json const whole = json::parse(showInterface(state, {}, intfJson));
   EXPECT_EQ(whole["agentPid"], 77);
   EXPECT_EQ(whole["kernelProblem"], nullptr);
   EXPECT_EQ(whole["kernelRemark"], nullptr);
   EXPECT_EQ(whole["interfaces"]["Vlan10"], json::parse(R"({
      "kind": "vlan", "device": "vlan10", "namespace": "default", "state": "up",
      "address": "02:00:00:00:00:02", "row": 5, "reason": "it has a forwarding port in its VLAN",
      "stateByRules": "up", "hasConfiguration": true, "hasStatus": true, "hasLocalStatus": true,
      "source": "static", "isEnabled": true, "configuredMtu": 1500, "configuredAddress": null,
      "configuredNamespace": "default", "maxMtu": 9214, "forwardingModel": "unknown", "stateChanges": 3,
      "stateChangeTime": 990.0, "secondsSinceStateChange": 10.0, "vlan": 10, "publisher": "cli",
      "autoState": true, "forwardingPorts": ["Ethernet1"], "isCpuMember": true, "claims": [],
      "kernel": {"index": 3, "address": "02:00:00:00:00:02", "mtu": 1500, "flags": 4163, "isUp": true,
                 "operState": "up", "kind": "vlan", "vlanId": 10, "base": "fabric"},
      "kernelUnreadable": null, "deviceProblem": null})"));
   world.subIntf(7, 100);
   json const sub = shownJson("Ethernet1.7");
   EXPECT_EQ(sub["kind"], "subinterface");
   EXPECT_EQ(sub["parent"], "Ethernet1");
   EXPECT_EQ(sub["parentState"], "up");
   EXPECT_EQ(sub["parentForwardingModel"], "routed");
   EXPECT_EQ(sub["vlan"], 100);
   EXPECT_EQ(sub["encapsulation"], "802.1Q");
   EXPECT_EQ(sub["programInHw"], true);
   EXPECT_EQ(sub["hardwareSuccess"], true);
   EXPECT_EQ(sub["rivals"], json::array());
}

// An MTU of 0 is nobody's wish.
TEST_F(ShowInterfaceTest, mtuOfZeroIsTheUsualOne) {
   world.vlanIntf(10)->mtuIs(0);
   EXPECT_EQ(shownJson("Vlan10")["configuredMtu"], 1500);
}

// --- Who configures a VLAN interface.

TEST_F(ShowInterfaceTest, staticConfigurationComesBeforeDynamicOnes) {
   auto const low = world.dynVlanIntfs("b", 5), high = world.dynVlanIntfs("a", 6);
   auto const same = world.dynVlanIntfs("c", 6);
   low->intfConfigIs("Vlan10");
   EXPECT_EQ(shownJson("Vlan10")["source"], "b");
   high->intfConfigIs("Vlan10");
   EXPECT_EQ(shownJson("Vlan10")["source"], "a") << "by its priority";
   same->intfConfigIs("Vlan10");
   EXPECT_EQ(shownJson("Vlan10")["source"], "c") << "by its name";
   EXPECT_EQ(shownJson("Vlan10")["claims"].size(), 3u);
   state.vlanIntfConfig->intfConfigIs("Vlan10");
   EXPECT_EQ(shownJson("Vlan10")["source"], "static");
}

// --- show vlan-interface.

TEST_F(ShowInterfaceTest, vlanInterfacesHaveTheirVlansSide) {
   EXPECT_EQ(showVlanInterface(state, {}, intfTables), "There are no VLAN interfaces.\n");
   world.vlanIntf(10);
   world.forwards(10, "Ethernet2");
   world.forwards(10, "Cpu");
   auto const dynamic = world.dynVlanIntfs("overlay", 7)->intfConfigIs("Vlan20");
   dynamic->autoStateIs(false);
   dynamic->enabledIs(false);
   world.vlan(20);
   world.status(20, dynamic)->operStatusIs(IntfOperStatus::intfOperDown);
   state.vlanIntfStatus->intfStatusIs("Vlan30");
   world.subIntf(7, 100);
   EXPECT_EQ(showVlanInterface(state, {}, intfTables),
             "VLAN  Interface  Source   Enabled  Autostate  Forwarding  Cpu     Device     State    Reason\n"
             "----  ---------  -------  -------  ---------  ----------  ------  ---------  -------  "
             "------------------------------------\n"
             "10    Vlan10     static   yes      on         2 ports     member  vlan10     up       it has a "
             "forwarding "
             "port in its VLAN\n"
             "20    Vlan20     overlay  no       off        0 ports     -       no device  down     it is "
             "shut down\n"
             "30    Vlan30     -        -        -          0 ports     -       no device  unknown  nobody "
             "configures "
             "it\n");
   EXPECT_THAT(showVlanInterface(state, Sulvi::IntfId("Vlan20"), intfTables), Not(HasSubstr("Vlan10")));
   EXPECT_THROW(showVlanInterface(state, Sulvi::IntfId("Vlan11"), intfTables), Absent);
   EXPECT_THROW(showVlanInterface(state, Sulvi::IntfId("Ethernet1.7"), intfTables), Absent);
   json const all = json::parse(showVlanInterface(state, {}, intfJson))["vlanInterfaces"];
   EXPECT_EQ(all.size(), 3u);
   EXPECT_EQ(all["Vlan20"]["source"], "overlay");
   EXPECT_EQ(all["Vlan10"]["forwardingPorts"], json({"Ethernet1", "Ethernet2"}));
   EXPECT_EQ(all["Vlan20"]["isCpuMember"], false);
}

TEST_F(ShowInterfaceTest, autostateOfAllIsSaidBelow) {
   world.vlanIntf(10);
   world.noPortForwards(10);
   state.allVlanIntfAutoState->autoStateIs(false);
   EXPECT_THAT(showVlanInterface(state, {}, intfTables),
               HasSubstr("\n\nAutostate is off for all VLAN interfaces.\n"));
}

// --- show subinterface.

TEST_F(ShowInterfaceTest, subinterfacesHaveTheirHardwareSide) {
   EXPECT_EQ(showSubinterface(state, {}, intfTables), "There are no subinterfaces.\n");
   world.subIntf(7, 100);
   auto const other = world.subIntf(8, 101);
   state.subIntfHwStatus->subIntfStatusDel("Ethernet1.8");
   state.subIntfStatus->intfStatus("Ethernet1.8")->operStatusIs(IntfOperStatus::intfOperDormant);
   world.vlanIntf(10);
   EXPECT_EQ(showSubinterface(state, {}, intfTables),
             "Interface  Parent  VLAN  Encapsulation  In hardware  Device  State    Reason\n"
             "---------  ------  ----  -------------  -----------  ------  -------  "
             "---------------------------------\n"
             "Et1.7      Et1     100   802.1Q         yes          et1.7   up       nothing holds it down\n"
             "Et1.8      Et1     101   802.1Q         no answer    et1.8   dormant  the hardware hasn't "
             "programmed it\n");
   other->vlanIdIs(100);
   std::string const both = showSubinterface(state, {}, intfTables);
   EXPECT_THAT(both, HasSubstr("another subinterface of its parent has VLAN id 100 too (Et1.8)\n"));
   EXPECT_THAT(both, HasSubstr("another subinterface of its parent has VLAN id 100 too (Et1.7)\n"));
   EXPECT_EQ(json::parse(showSubinterface(state, {}, intfJson))["subinterfaces"]["Ethernet1.7"]["rivals"],
             json({"Ethernet1.8"}));
   EXPECT_THROW(showSubinterface(state, Sulvi::IntfId("Ethernet1"), intfTables), Absent);
   EXPECT_THROW(showSubinterface(state, Sulvi::IntfId("Ethernet1.9"), intfTables), Absent);
}

TEST_F(ShowInterfaceTest, rivalsAreOfOneParentAndTakenUp) {
   world.subIntf(7, 100);
   auto const rivals = [&] { return shownJson("Ethernet1.7")["rivals"]; };
   state.subIntfConfig->intfConfigIs("Ethernet2.7")->vlanIdIs(100);
   state.subIntfStatus->intfStatusIs("Ethernet2.7");
   state.subIntfStatusLocal->intfStatusLocalIs("Ethernet2.7");
   EXPECT_EQ(rivals(), json::array()) << "another parent";
   state.subIntfConfig->intfConfigIs("Ethernet1.9")->vlanIdIs(100);
   EXPECT_EQ(rivals(), json::array()) << "no status records";
   state.subIntfStatus->intfStatusIs("Ethernet1.9");
   EXPECT_EQ(rivals(), json::array()) << "no local status record";
   state.subIntfStatusLocal->intfStatusLocalIs("Ethernet1.9");
   EXPECT_EQ(rivals(), json({"Ethernet1.9"}));
}

// --- show namespace.

TEST_F(ShowInterfaceTest, namespacesAreListedWithWhoIsInAndWhoIsToBe) {
   world.vlanIntf(10);
   world.vlanIntf(20);
   world.vlanIntf(30);
   world.moveVlanIntf(20, "red");
   world.configureInto("Vlan30", "blue");
   world.configureInto("Vlan99", "red");
   world.kernel.namespaceIs("closed");
   world.configureInto("Vlan98", "closed");
   world.kernel.fail("setns", EPERM);
   EXPECT_EQ(showNamespace(state, intfTables),
             "Namespace  Status              Devices  Interfaces\n"
             "---------  ------------------  -------  ------------------------------\n"
             "default    exists              4        Vlan10, Vlan30\n"
             "blue       doesn't exist       -        Vlan30 (not in it yet)\n"
             "closed     exists, unreadable  -        Vlan98 (not in it yet)\n"
             "red        exists              2        Vlan20, Vlan99 (not in it yet)\n"
             "\n"
             "closed: it can't be entered: Operation not permitted.\n");
   json const all = json::parse(showNamespace(state, intfJson))["namespaces"];
   EXPECT_EQ(all["red"]["exists"], true);
   EXPECT_EQ(all["red"]["devices"], 2);
   EXPECT_EQ(all["red"]["interfaces"], json({"Vlan20"}));
   EXPECT_EQ(all["red"]["configuredInterfaces"], json({"Vlan99"}));
   EXPECT_EQ(all["blue"]["exists"], false);
   EXPECT_EQ(all["blue"]["devices"], nullptr);
}

// A local record without a name is of a device in the default namespace, or of one that isn't made yet.
TEST_F(ShowInterfaceTest, interfaceIsInANamespaceOnceItsDeviceIs) {
   world.subIntf(7, 100);
   auto const inDefault = [&] {
      return json::parse(showNamespace(state, intfJson))["namespaces"]["default"];
   };
   EXPECT_EQ(inDefault()["interfaces"], json({"Ethernet1.7"}));
   EXPECT_EQ(inDefault()["configuredInterfaces"], json::array());
   world.kernel.deviceDel("et1.7");
   EXPECT_EQ(inDefault()["interfaces"], json::array());
   EXPECT_EQ(inDefault()["configuredInterfaces"], json({"Ethernet1.7"}));
   state.subIntfConfig->intfConfigIs("Ethernet1.4095");
   EXPECT_EQ(inDefault()["configuredInterfaces"], json({"Ethernet1.7"})) << "that one never comes";
}

} // namespace
