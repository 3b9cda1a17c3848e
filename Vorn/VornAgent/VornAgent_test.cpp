#include "Vorn/VornAgent/VornAgent.h"

#include "Kem/Dir.h"
#include "Kem/Log.h"
#include "Kem/TestTrace.h"
#include "Kem/TraceFacilities.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/VornAgent/Mounts.h"
#include "Vorn/testing/TestSwitch.h"
#include "Zivlog/Zivlog.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Interface/Input/DynVlanIntfConfigDir.h"
#include "records/Interface/Input/DynVlanIntfErrorDir.h"
#include "records/Interface/SubIntfStatusDir.h"

#include <gmock/gmock.h>

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/resource.h>

namespace {

using Redundancy::RedundancyMode;
using Redundancy::RedundancyProtocol;
using testing::Contains;
using Vorn::TestSwitch;

constexpr char redundancyPath[] = "cell/1/redundancy/status";
constexpr char causePath[] = "interface/errdisable/cause/hitless-reload-down";
constexpr char ethPath[] = "bridging/input/config/eth";
constexpr char stagePath[] = "cell/1/stage/boot/status";
constexpr char stageConfigPath[] = "cell/1/stage/boot/config/inputDir/Vorn";

struct VornAgentTest : testing::Test {
   void roleIs(unsigned protocol, unsigned mode) {
      auto const redundancy = sw.publish<Redundancy::RedundancyStatus>(redundancyPath);
      redundancy->protocolIs(static_cast<RedundancyProtocol>(protocol));
      redundancy->modeIs(static_cast<RedundancyMode>(mode));
      TestSwitch::run();
   }
   void hitlessBoot(bool isValid, Oxa::HitlessBootMode mode) {
      auto const status = sw.publish<Oxa::OxaStatus>("oxa/hardware/status");
      status->hitlessBootValidIs(isValid);
      status->hitlessBootModeIs(mode);
      TestSwitch::run();
   }
   unsigned ethPriority() { return sw.publish<Bridging::Input::Config>(ethPath)->switchIntfConfigPriority(); }
   void reachStage(char const* stage) {
      sw.publish<Stage::Status>(stagePath)->stageIs(stage);
      TestSwitch::run();
   }
   bool isStageComplete(char const* stage) {
      return sw.publish<Stage::AgentConfig>(stageConfigPath)->stageComplete(stage) != nullptr;
   }
   // What the agent itself has traced, on all levels, since the last call.
   std::vector<std::string> traced() { return trace.take(); }
   Kem::TestTrace trace{"Vorn/0-9"};
   TestSwitch sw;
};

// --- Mounts.

using MountRow = std::array<char const*, 3>; // mode, type, path
constexpr MountRow allMounts[] = {
    // clang-format off
    {"w", "Errdisable::CauseStatus", "interface/errdisable/cause/link-flap"},
    {"w", "Errdisable::CauseStatus", "interface/errdisable/cause/uplink-failure-detection"},
    {"w", "Errdisable::CauseStatus", "interface/errdisable/cause/hitless-reload-down"},
    {"r", "Errdisable::CauseGroup", "interface/errdisable/causegroup/link-flap"},
    {"w", "Errdisable::CauseStatus", "interface/errdisable/cause/no-internal-vlan"},
    {"r", "Errdisable::CauseGroup", "interface/errdisable/causegroup/no-internal-vlan"},
    {"w", "Bridging::SwitchIntfConfigDir", "bridging/switchIntfConfig"},
    {"w", "Bridging::FdbConfigDir", "bridging/fdbConfigDir"},
    {"ri", "Kem::Dir", "bridging/input/dynvlan/allowedvlan"},
    {"r", "Interface::EthIntfConfigDir", "interface/config/eth/intf"},
    {"ri", "Kem::Dir", "interface/config/eth/phy/slice"},
    {"r", "Interface::AllEthPhyIntfConfigDir", "interface/config/eth/phy/all"},
    {"ri", "Kem::Dir", "interface/status/eth/phy/slice"},
    {"r", "Interface::AllEthPhyIntfStatusDir", "interface/status/eth/phy/all"},
    {"r", "Interface::AllIntfStatusDir", "interface/status/all"},
    {"r", "Interface::HwStatus", "interface/hwstatus"},
    {"r", "Interface::AllEthIntfCounterPtrDir", "interface/counter/eth/phy"},
    {"r", "LinkFlap::Config", "interface/errdisable/linkFlapConfig"},
    {"r", "UplinkFailureDetection::Config", "interface/errdisable/uplinkFailureDetection/config"},
    {"w", "UplinkFailureDetection::Status", "interface/errdisable/uplinkFailureDetection/status"},
    {"r", "Interface::EthIntfStatusDir", "interface/status/eth/intf"},
    {"r", "Interface::GlobalIntfConfig", "interface/config/global"},
    {"w", "Bridging::Config", "bridging/config"},
    {"r", "Errdisable::Config", "interface/errdisable/config"},
    {"ri", "Kem::Dir", "bridging/input/dynvlan/vlan"},
    {"wc", "Bridging::Input::Config", "bridging/input/config/eth"},
    {"r", "Bridging::VlanStatusDir", "bridging/vlan/status"},
    {"ri", "Kem::Dir", "bridging/input/config"},
    {"w", "Interface::VlanIntfStatusDir", "interface/status/eth/vlan"},
    {"ri", "Kem::Dir", "interface/input/vlan"},
    {"wi", "Kem::Dir", "interface/input/dynvlanintf"},
    {"wi", "Kem::Dir", "interface/inputError/dynvlanintf"},
    {"wf", "Interface::VlanIntfStatusLocalDir", "cell/1/interface/status/eth/vlan/local"},
    {"r", "Interface::VlanIntfConfigDir", "interface/config/eth/vlan"},
    {"r", "Interface::AllVlanIntfAutoState", "interface/config/eth/allVlanIntfAutoState"},
    {"w", "Interface::SubIntfStatusDir", "interface/status/subintf"},
    {"wf", "Interface::SubIntfStatusLocalDir", "cell/1/interface/status/subintf/local"},
    {"r", "Interface::SubIntfConfigDir", "interface/config/subintf"},
    {"r", "Interface::Hardware::Capability", "interface/hardware/capability"},
    {"r", "Interface::Hardware::SubIntfStatusDir", "interface/hardware/status/subintf"},
    {"r", "Interface::AllIntfNamespaceConfigDir", "cell/1/interface/nsconfig"},
    {"r", "Bridging::HwCapabilities", "bridging/hwcapabilities"},
    {"r", "Interface::AllIntfConfigDir", "interface/config/all"},
    {"ri", "Kem::Dir", "interface/errdisable/cause"},
    {"ri", "Kem::Dir", "interface/errdisable/causegroup"},
    {"w", "Errdisable::Status", "interface/errdisable/status"},
    {"r", "EventMon::Config", "eventMon/config"},
    {"w", "EventMon::TableStatus", "eventMon/mac/status"},
    {"r", "Hardware::Phy::StatusPtrDir", "hardware/phy/status/generic/all"},
    {"w", "Oxa::ClientStatus", "oxa/status/errdisableNotconnectIntfsStatus"},
    {"r", "Oxa::CliConfig", "oxa/cli/config"},
    {"r", "Oxa::OxaStatus", "oxa/hardware/status"},
    {"wcf", "Stage::AgentConfig", "cell/1/stage/boot/config/inputDir/Vorn"},
    {"r", "Stage::ProgressDir", "cell/1/stage/boot/progress"},
    {"r", "Stage::Status", "cell/1/stage/boot/status"},
    {"wf", "Agent::StartupStatus", "cell/1/agent/startupStatus/Vorn"},
    {"r", "Interface::EthPhyIntfGlobalDefaultConfigDir", "interface/config/eth/phy/globalDefault"},
    // clang-format on
};

// In one group and in this order, with what is never fetched.
TEST_F(VornAgentTest, asksForItsMountsInTheirOrderAndTheSkeletonHasThemAll) {
   sw.startAgent();
   ASSERT_EQ(sw.agentMounts.size(), std::size(allMounts));
   for (size_t i = 0; i < std::size(allMounts); ++i) {
      auto const& mount = sw.agentMounts[i];
      EXPECT_EQ((std::array{mount.mode, mount.type, mount.path}),
                (std::array<std::string, 3>{allMounts[i][0], allMounts[i][1], allMounts[i][2]}))
          << "row " << i + 1;
      auto const entity = sw.agentManager->getEntity(mount.path);
      ASSERT_TRUE(entity) << mount.path;
      EXPECT_EQ(entity->typeInfo().name, mount.type) << mount.path;
      EXPECT_EQ(entity->isWritable(), mount.mode[0] == 'w') << mount.path;
   }
}

TEST_F(VornAgentTest, sharedMemoryTableIsNoneOfTheMounts) {
   for (auto const& mount : Vorn::agentMounts("cell/1"))
      EXPECT_NE(mount.path, "bridging/status");
}

TEST_F(VornAgentTest, pathThatIsNotMountedGivesNull) {
   sw.startAgent();
   EXPECT_FALSE(sw.agentManager->getEntity("ordel/config"));
   EXPECT_FALSE(sw.agentManager->getEntity("no/such/path"));
   EXPECT_FALSE(sw.agentManager->entity<Oxa::OxaStatus>("bridging/config")) << "the cast to another type";
}

// The database starts without one of the places. A record that the agent writes is made by its mount; without
// one that it reads the agent starts all the same.
struct PlaceAbsentTest : testing::TestWithParam<size_t> {
   PlaceAbsentTest() {
      std::string path = mount.path;
      bool const isCell = path.starts_with("cell/1/");
      if (isCell)
         path.erase(0, 7);
      for (auto const& place : Records::schema().places)
         if (place.isCell != isCell || (place.path != path && !place.path.starts_with(path + "/")))
            places.push_back(place);
      schema.places = places;
   }
   Ordel::Mount const mount = Vorn::agentMounts("cell/1")[GetParam()];
   std::vector<Records::Place> places;
   Records::Schema schema = Records::schema();
};

TEST_P(PlaceAbsentTest, agentStartsWithoutIt) {
   TestSwitch sw(schema);
   ASSERT_FALSE(sw.server().tree().find(mount.path)) << mount.path;
   if (mount.path == "bridging/input/config") {
      EXPECT_DEATH(sw.startAgent(), "cliInput") << "the one presence that is asserted";
      return;
   }
   sw.startAgent();
   EXPECT_TRUE(sw.agent->initialized());
   auto const entity = sw.agentManager->getEntity(mount.path);
   // The directory of causes is made on the way to those that the agent writes.
   bool const isMade = mount.isCreating() || mount.path == "interface/errdisable/cause";
   EXPECT_EQ(entity != nullptr, isMade) << mount.path;
   EXPECT_EQ(sw.server().tree().find(mount.path) != nullptr, isMade) << mount.path;
   if (entity) {
      EXPECT_EQ(entity->typeInfo().name, mount.type);
   }
}

INSTANTIATE_TEST_SUITE_P(Rows, PlaceAbsentTest, testing::Range(size_t(0), size_t(57)));

// --- Factory.

TEST_F(VornAgentTest, factoryHandsOverTheOneReference) {
   auto const agent = Vorn::agentFactory("Vorn");
   EXPECT_EQ(agent->references(), 1u);
   EXPECT_EQ(agent->name(), Kem::Name("Vorn"));
   EXPECT_FALSE(agent->standbyMode());
   EXPECT_STREQ(agent->fwkType(), "Vorn::Agent");
   EXPECT_STREQ(agent->attributeString(1), "standbyMode");
   EXPECT_EQ(agent->attributeString(200), nullptr);
   std::vector<std::string> names;
   while (char const* const name = agent->attributeString(static_cast<Kem::AttrId>(names.size())))
      names.emplace_back(name);
   auto const isFollowedBy = [&](char const* name, char const* next) {
      auto const at = std::find(names.begin(), names.end(), name);
      return at != names.end() && at + 1 != names.end() && at[1] == next;
   };
   EXPECT_TRUE(isFollowedBy("dynVlanIntfList", "dynVlanIntfSm"));
   EXPECT_TRUE(isFollowedBy("kernelOperStateRoot", "vlanOperStatusRoot"));
   EXPECT_TRUE(isFollowedBy("vlanOperStatusRoot", "linkFlapRoot"));
}

// --- Fabric device.

TEST_F(VornAgentTest, fabricDeviceIsFabricUnlessTheEnvironmentSaysOtherwise) {
   unsetenv("FABRIC_DEVICE_NAME");
   sw.startAgent();
   EXPECT_EQ(sw.agent->fabricDeviceName(), "fabric");
   sw.stopAgent();
   setenv("FABRIC_DEVICE_NAME", "", 1);
   sw.startAgent();
   EXPECT_EQ(sw.agent->fabricDeviceName(), "");
   sw.stopAgent();
   setenv("FABRIC_DEVICE_NAME", "fab1", 1);
   sw.startAgent();
   EXPECT_EQ(sw.agent->fabricDeviceName(), "fab1");
   unsetenv("FABRIC_DEVICE_NAME");
}

// --- The order of the start.

struct StartOrderTest : VornAgentTest {
   StartOrderTest() { Kem::traceSettingIs("Vorn/0-9,VornAttrLog/0-9,AgentStages/0-9"); }
   // What has been made since the last call, and the other steps between.
   std::vector<std::string> steps() {
      std::vector<std::string> all;
      for (auto const& line : traced())
         for (std::string_view const word : {"made ", "takes part in stage ", "startupComplete",
                                             "attrLogCodefInit", "handleStandbyMode with"})
            if (line.starts_with(word)) {
               // Of a line with a number at its end only the first words.
               all.push_back(line.substr(0, line.find_first_of(":=")));
               break;
            }
      return all;
   }
};

std::vector<std::string> const startUntilRole = {
    "made socketFd",
    "made netlinkFd",
    "made entityManagerReactor",
    "made privateVlanLibState",
    "made kns",
    "made startupModeConfig",
    "made startupModeStatus",
    "made startupModeSm",
    "made DynVlanIntfListForVornAgent",
    "made dynVlanIntfSm",
};

std::vector<std::string> const activeRole = {
    "handleStandbyMode with standbyMode",
    "made vosr",
    "made linkFlapRoot",
    "made intfAggrStatus",
    "made errdisableAggrSm",
    "made test",
    "made rank of the default records",
    "made dynVlanSrcTable",
    "made no-internal-vlan",
    "made privateVlanLibSm",
    "made bridgingConfigSm",
    "made inputSelectorSm",
    "made linkStatusLoggingDirSm",
    "made vlanOperStatusSm",
    "made netNsManager",
    "made link-flap",
    "made linkFlapSm",
    "made uplink-failure-detection",
    "made uplinkFailureDetectionRoot",
    "made uplinkFailureDetectionSm",
    "made congestionDropsLoggingSm",
};

std::vector<std::string> const kernelAndStages = {
    "made kni",
    "made kosr",
    "made kosr intfStatusDir",
    "made kosr intfStatusLocalDir",
    "made kosr netNsCollection",
    "made kosr netNsManager",
    "made kernelNetworkInfoManager",
    "made kosm",
    "made intfStatusOperStatusSm",
    "made vlanIntfSm",
    "made bootStagesHelper",
    "takes part in stage NetworkAgent",
    "takes part in stage ErrdisableStatusUpdate",
    "made subIntfSm",
};

using Steps = std::vector<std::string>;
Steps operator+(Steps a, Steps const& b) {
   a.insert(a.end(), b.begin(), b.end());
   return a;
}

TEST_F(StartOrderTest, activeHitlessStartMakesEverythingInItsOrder) {
   hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
   sw.publish<Errdisable::CauseStatus>("interface/errdisable/cause/test");
   traced();
   sw.startAgent();
   Steps const rest = {"takes part in stage VornStatusUpdate",
                       "takes part in stage VornSubIntfUp",
                       "takes part in stage DownLinksUpdate",
                       "startupComplete",
                       "attrLogCodefInit fd",
                       "made plazeBridgingStatus",
                       "made bridgingStatus",
                       "made readerShim",
                       "made counterDir"};
   EXPECT_EQ(steps(), (startUntilRole + Steps{"made OxaState"} + activeRole + kernelAndStages + rest));
}

TEST_F(StartOrderTest, standbyStartLeavesTheActiveRoleToTheTakeover) {
   roleIs(3, 4);
   sw.publish<Errdisable::CauseStatus>("interface/errdisable/cause/test");
   traced();
   sw.startAgent();
   auto kernel = kernelAndStages;
   kernel.insert(std::find(kernel.begin(), kernel.end(), "made kosm"), "made netNsManager");
   Steps const nothing = {"handleStandbyMode with standbyMode"};
   // The role is evaluated when the reactor is made, and again at its own step.
   auto first = startUntilRole;
   first.insert(std::find(first.begin(), first.end(), "made entityManagerReactor"), nothing.front());
   EXPECT_EQ(steps(), (first + nothing + kernel + Steps{"attrLogCodefInit fd"}));
   roleIs(3, 5);
   auto role = activeRole;
   std::erase(role, "made netNsManager");
   EXPECT_EQ(steps(), role);
}

// --- Redundancy role.

TEST_F(VornAgentTest, anyProtocolButHotStandbyIsActiveWhateverTheMode) {
   roleIs(2, 1);
   sw.startAgent();
   EXPECT_FALSE(sw.agent->standbyMode());
   EXPECT_TRUE(sw.agent->reloadDownErrdisableCauseStatus());
   EXPECT_TRUE(sw.agent->dynVlanSrcTable());
   EXPECT_EQ(ethPriority(), 10u);
}

TEST_F(VornAgentTest, hotStandbyWithMode5IsActiveAndFallingBackTearsNothingDown) {
   roleIs(3, 5);
   sw.startAgent();
   EXPECT_FALSE(sw.agent->standbyMode());
   auto const table = sw.agent->dynVlanSrcTable();
   EXPECT_TRUE(table);
   roleIs(3, 4);
   EXPECT_TRUE(sw.agent->standbyMode());
   EXPECT_EQ(sw.agent->dynVlanSrcTable(), table);
   EXPECT_EQ(ethPriority(), 10u);
}

TEST_F(VornAgentTest, supervisorThatBecomesActiveAgainKeepsWhatItHas) {
   roleIs(3, 5);
   sw.startAgent();
   auto const table = sw.agent->dynVlanSrcTable();
   auto const aggregate = sw.agent->intfAggrStatus();
   roleIs(3, 4);
   roleIs(3, 5);
   EXPECT_FALSE(sw.agent->standbyMode());
   EXPECT_EQ(sw.agent->dynVlanSrcTable(), table);
   EXPECT_EQ(sw.agent->intfAggrStatus(), aggregate);
}

// A trunk group that no VLAN has makes the port look at all VLANs again, and at nothing else.
TEST_F(VornAgentTest, membershipThatSomebodyElseEditedIsPutRightByThePortsNextPass) {
   sw.startAgent();
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   cli->vlanConfigPriorityIs(100);
   cli->switchIntfConfigPriorityIs(100);
   for (uint16_t const vlanId : {10, 11, 12})
      cli->vlanConfigIs(Bridging::VlanId(vlanId));
   auto const port = cli->switchIntfConfigIs("Ethernet1", Bridging::Input::SwitchportMode::trunk_);
   TestSwitch::run();
   auto const theirs = sw.publish<Bridging::Config>("bridging/config");
   auto const vlan = [&](uint16_t vlanId) { return theirs->vlanConfig(Bridging::VlanId(vlanId)); };
   auto const taggedIn = [&](uint16_t vlanId) {
      auto const* const member = vlan(vlanId)->intf("Ethernet1");
      return member && member->tagged;
   };
   ASSERT_TRUE(taggedIn(10) && taggedIn(11) && taggedIn(12));
   vlan(10)->intfDel("Ethernet1");
   vlan(11)->intfIs("Ethernet1", {});
   vlan(12)->adminStateIs(Bridging::VlanAdminState::suspended);
   TestSwitch::run();
   EXPECT_FALSE(taggedIn(10)) << "nothing has looked at it";
   port->trunkGroupIs("nobody's", true);
   TestSwitch::run();
   EXPECT_TRUE(taggedIn(10));
   EXPECT_TRUE(taggedIn(11));
   EXPECT_FALSE(taggedIn(12)) << "the state of the resolved VLAN counts";
   theirs->newVlanConfig(Bridging::VlanId(13), false);
   TestSwitch::run();
   port->trunkGroupDel("nobody's");
   TestSwitch::run();
   EXPECT_TRUE(taggedIn(13));
}

// The database does the same where it brings the order of two writers together.
TEST_F(VornAgentTest, portWritesTheResolvedRecordThatSomebodyElseMadeAgain) {
   sw.startAgent();
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   cli->switchIntfConfigPriorityIs(100);
   auto const port = cli->switchIntfConfigIs("Ethernet1", Bridging::Input::SwitchportMode::trunk_);
   TestSwitch::run();
   auto const theirs = sw.publish<Bridging::Config>("bridging/config");
   auto const resolved = theirs->switchIntfConfig("Ethernet1")->switchportModeAndNativeVlan();
   theirs->switchIntfConfigDel("Ethernet1");
   theirs->switchIntfConfigIs("Ethernet1", resolved);
   TestSwitch::run();
   port->vlanTpidIs(0x9100);
   TestSwitch::run();
   EXPECT_EQ(theirs->switchIntfConfig("Ethernet1")->vlanTpid(), 0x9100);
}

TEST_F(VornAgentTest, staticHostsAreWrittenIntoTheResolvedRecordThatSomebodyElseMadeAgain) {
   sw.startAgent();
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   cli->vlanConfigPriorityIs(100);
   cli->vlanConfigIs(10);
   auto const hosts = cli->fdbConfigIs(10);
   Sulvi::EthAddr const group("03:00:00:00:00:01"), host("02:00:00:00:00:01");
   auto const members = hosts->ethGroupIs(group);
   TestSwitch::run();
   auto const theirs = sw.publish<Bridging::Config>("bridging/config");
   theirs->fdbConfigDel(10);
   theirs->fdbConfigIs(10)->ethGroupIs(group);
   TestSwitch::run();
   members->intfIs("Ethernet1", true);
   hosts->configuredHostIs(host, {.addr = host, .intf = Sulvi::IntfId("Ethernet1")});
   TestSwitch::run();
   EXPECT_TRUE(theirs->fdbConfig(10)->configuredHost(host));
   EXPECT_TRUE(theirs->fdbConfig(10)->ethGroup(group)->intf("Ethernet1"));

   // A group alone, which has no members then.
   theirs->fdbConfig(10)->ethGroupDel(group);
   theirs->fdbConfig(10)->ethGroupIs(group);
   TestSwitch::run();
   members->intfIs("Ethernet2", true);
   TestSwitch::run();
   EXPECT_TRUE(theirs->fdbConfig(10)->ethGroup(group)->intf("Ethernet2"));
}

TEST_F(VornAgentTest, mappingIsWrittenIntoTheResolvedRecordThatSomebodyElseMadeAgain) {
   sw.startAgent();
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   auto const mapping = cli->sviMappingIs(10);
   TestSwitch::run();
   auto const theirs = sw.publish<Bridging::Config>("bridging/config");
   theirs->sviMappingDel(10);
   theirs->sviMappingIs(10);
   TestSwitch::run();
   mapping->secondaryVlanIs(20, true);
   TestSwitch::run();
   EXPECT_TRUE(theirs->sviMapping(10)->secondaryVlan(20));
}

TEST_F(VornAgentTest, roleIsTraced) {
   roleIs(3, 4);
   sw.startAgent();
   EXPECT_THAT(traced(), Contains("handleStandbyMode with standbyMode=true: nothing to be done here"));
   roleIs(3, 5);
   EXPECT_THAT(traced(), Contains("handleStandbyMode with standbyMode=false: initializing the rest of Vorn's "
                                  "state machines"));
}

TEST_F(VornAgentTest, recordsOfTheProcessHaveNamesOfTheirOwn) {
   hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
   sw.startAgent();
   EXPECT_EQ(sw.agent->privateVlanLibState()->name(), "privateVlanLibState");
   EXPECT_EQ(sw.agent->netNsCollection()->name(), "kns");
   EXPECT_EQ(sw.agent->dynVlanIntfList()->name(), "DynVlanIntfListForVornAgent");
   EXPECT_EQ(sw.agent->kernelNetworkInfoRoot()->name(), "kni");
   EXPECT_EQ(sw.agent->vlanOperStatusRoot()->name(), "vosr");
   EXPECT_EQ(sw.agent->intfAggrStatus()->name(), "intfAggrStatus");
   EXPECT_EQ(sw.agent->oxaState()->name(), "OxaState");
}

TEST_F(VornAgentTest, standbyMakesNothingOfTheActiveRole) {
   roleIs(3, 4);
   sw.startAgent();
   EXPECT_TRUE(sw.agent->standbyMode());
   EXPECT_FALSE(sw.agent->reloadDownErrdisableCauseStatus());
   EXPECT_FALSE(sw.agent->dynVlanSrcTable());
   EXPECT_FALSE(sw.agent->vlanOperStatusRoot());
   EXPECT_FALSE(sw.agent->plazeBridgingStatus());
   EXPECT_TRUE(sw.agent->bootStagesHelper());
   EXPECT_EQ(ethPriority(), 0u);
}

TEST_F(VornAgentTest, switchoverMakesTheActiveRoleButNotWhatIsDecidedAtStart) {
   roleIs(3, 4);
   sw.startAgent();
   roleIs(3, 5);
   EXPECT_FALSE(sw.agent->standbyMode());
   EXPECT_TRUE(sw.agent->dynVlanSrcTable());
   EXPECT_EQ(ethPriority(), 10u);
   EXPECT_FALSE(sw.agent->plazeBridgingStatus());
   EXPECT_FALSE(sw.agent->bridgingStatus());
   EXPECT_FALSE(sw.agent->counterDir());
   EXPECT_EQ(sw.publish<Interface::SubIntfStatusDir>("interface/status/subintf")->counterDirPath(),
             Kem::String8(""));
}

TEST_F(VornAgentTest, activeAtStartMountsTheSharedMemoryTables) {
   sw.startAgent();
   EXPECT_THAT(traced(), Contains("Plaze::Bridging::Status initialized as keyshadow"));
   EXPECT_TRUE(sw.agent->plazeBridgingStatus());
   EXPECT_TRUE(sw.agent->counterDir());
   ASSERT_TRUE(sw.agent->bridgingStatus());
   EXPECT_EQ(sw.agentManager->entity<Interface::SubIntfStatusDir>("interface/status/subintf")->counterDir(),
             Kem::Ptr<Kem::Entity>(sw.agent->counterDir()));
   EXPECT_EQ(Kem::Ptr<Kem::Entity>(sw.agent->bridgingStatus()), Kem::singleton("Bridging::Status"));
   TestSwitch::run();
   EXPECT_EQ(sw.publish<Interface::SubIntfStatusDir>("interface/status/subintf")->counterDirPath(),
             Kem::String8("/sys/Plaze/interface/counter/subintf/current"));
}

TEST(VornAgentDeathTest, cannotRunWithoutTheCommandLineInput) {
   std::vector<Records::Place> places;
   for (auto const& place : Records::schema().places)
      if (place.path != "bridging/input/config/cli")
         places.push_back(place);
   auto schema = Records::schema();
   schema.places = places;
   TestSwitch sw(schema);
   EXPECT_DEATH(sw.startAgent(), "Assertion \"cliInput\" failed");
}

TEST_F(VornAgentTest, dynamicVlanInterfacesAreMergedInStandbyAndAnsweredByTheActiveOne) {
   roleIs(3, 4);
   sw.publish<Interface::Input::DynVlanIntfConfigDir>("interface/input/dynvlanintf/overlay")
       ->intfConfigIs("Vlan10");
   TestSwitch::run();
   sw.startAgent();
   constexpr char answerPath[] = "interface/inputError/dynvlanintf/overlay";
   EXPECT_TRUE(sw.agent->dynVlanIntfList()->intfConfig("Vlan10"));
   EXPECT_FALSE(sw.server().tree().find(answerPath));
   roleIs(3, 5);
   ASSERT_TRUE(sw.server().tree().find(answerPath));
   auto const answers = sw.subscribe<Interface::Input::DynVlanIntfErrorDir>(answerPath);
   EXPECT_TRUE(answers->intfConfigError().find("Vlan10"));
   EXPECT_FALSE(answers->intfConfigError("Vlan10"));

   // After a restart as the active one, they are there from the beginning.
   sw.stopAgent();
   sw.publish<Interface::Input::DynVlanIntfConfigDir>("interface/input/dynvlanintf/overlay")
       ->intfConfigIs("Vlan11");
   sw.startAgent();
   EXPECT_TRUE(answers->intfConfigError().find("Vlan11"));
}

TEST_F(VornAgentTest, vlanInterfaceIsUpByTheForwardingPortsOfItsVlan) {
   auto const config =
       sw.publish<Interface::VlanIntfConfigDir>("interface/config/eth/vlan")->intfConfigIs("Vlan10");
   auto const status =
       sw.publish<Interface::VlanIntfStatusDir>("interface/status/eth/vlan")->intfStatusIs("Vlan10");
   TestSwitch::run();
   sw.startAgent();
   auto const theirs = sw.agentManager->entity<Interface::VlanIntfStatusDir>("interface/status/eth/vlan")
                           ->intfStatus("Vlan10");
   theirs->intfConfigIs(sw.agentManager->entity<Interface::VlanIntfConfigDir>("interface/config/eth/vlan")
                            ->intfConfig("Vlan10"));
   TestSwitch::run();
   EXPECT_EQ(status->operStatus(), Interface::IntfOperStatus::intfOperLowerLayerDown);
   sw.publish<Bridging::VlanStatusDir>("bridging/vlan/status")
       ->vlanStatusIs(Bridging::VlanId(10))
       ->vlanPortStatusIs("Ethernet1", true);
   TestSwitch::run();
   EXPECT_EQ(status->operStatus(), Interface::IntfOperStatus::intfOperUp);
   // A secondary VLAN, by the library of private VLANs.
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   cli->vlanConfigPriorityIs(100);
   cli->vlanConfigIs(Bridging::VlanId(10))
       ->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 20});
   TestSwitch::run();
   EXPECT_EQ(status->operStatus(), Interface::IntfOperStatus::intfOperDown);
   config->enabledIs(false);
   TestSwitch::run();
   EXPECT_EQ(status->operStatusChange().count, 3u) << "down as before";
}

// --- Start-up mode.

TEST_F(VornAgentTest, startIsHitlessOnlyWhenTheReloadIsDecidedAndHitless) {
   struct Case {
      bool isValid;
      Oxa::HitlessBootMode mode;
      int startupMode;
   };
   for (auto const& c :
        {Case{false, Oxa::HitlessBootMode::bootHitless, 1}, Case{true, Oxa::HitlessBootMode::bootHitfull, 1},
         Case{true, Oxa::HitlessBootMode::bootHitless, 2}}) {
      hitlessBoot(c.isValid, c.mode);
      sw.startAgent();
      EXPECT_EQ(static_cast<int>(sw.agent->startupModeStatus()->startupMode()), c.startupMode);
      EXPECT_EQ(static_cast<bool>(sw.agent->oxaState()), c.startupMode == 2);
      EXPECT_EQ(sw.agent->startupModeConfig()->startupComplete(), c.startupMode == 2);
      sw.stopAgent();
   }
}

TEST_F(VornAgentTest, hitfullStartReleasesThePortsThatAReloadLeftDown) {
   auto const cause = sw.publish<Errdisable::CauseStatus>(causePath);
   cause->intfStatusIs(Sulvi::IntfId("Ethernet7"), 12.5);
   TestSwitch::run();
   sw.startAgent();
   EXPECT_TRUE(cause->intfStatus().empty());
   EXPECT_THAT(traced(), Contains("doMountsComplete hitless-reload-down errdisabled interfaces present. "
                                  "Re-enabling."));
}

TEST_F(VornAgentTest, hitlessStartKeepsThePortsThatTheReloadLeftDown) {
   hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
   auto const cause = sw.publish<Errdisable::CauseStatus>(causePath);
   cause->intfStatusIs(Sulvi::IntfId("Ethernet7"), 12.5);
   TestSwitch::run();
   sw.startAgent();
   EXPECT_EQ(cause->intfStatus().size(), 1u);
}

TEST_F(VornAgentTest, standbyStartLeavesThePortsThatAReloadLeftDown) {
   roleIs(3, 4);
   auto const cause = sw.publish<Errdisable::CauseStatus>(causePath);
   cause->intfStatusIs(Sulvi::IntfId("Ethernet7"), 12.5);
   TestSwitch::run();
   sw.startAgent();
   EXPECT_EQ(cause->intfStatus().size(), 1u);
}

// --- Boot stages.

TEST_F(VornAgentTest, completesTheStagesOfAnOrdinaryBootAtOnce) {
   sw.startAgent();
   for (char const* stage : {"NetworkAgent", "ErrdisableStatusUpdate"}) {
      EXPECT_FALSE(isStageComplete(stage));
      reachStage(stage);
      EXPECT_TRUE(isStageComplete(stage)) << stage;
   }
   EXPECT_EQ(sw.publish<Stage::AgentConfig>(stageConfigPath)->waitForStage().size(), 2u);
}

TEST_F(VornAgentTest, standbyCompletesTheErrdisableStageToo) {
   roleIs(3, 4);
   sw.startAgent();
   reachStage("ErrdisableStatusUpdate");
   EXPECT_TRUE(isStageComplete("ErrdisableStatusUpdate"));
}

TEST_F(VornAgentTest, hitlessStartTakesPartInFiveStagesAndMarksThoseOfTheReload) {
   hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
   sw.startAgent();
   EXPECT_EQ(sw.publish<Stage::AgentConfig>(stageConfigPath)->waitForStage().size(), 5u);
   EXPECT_FALSE(sw.agent->oxaState()->vornStatusUpdate());
   reachStage("VornStatusUpdate");
   EXPECT_TRUE(sw.agent->oxaState()->vornStatusUpdate());
   reachStage("VornSubIntfUp");
   EXPECT_TRUE(sw.agent->oxaState()->vornSubIntfUp());
   reachStage("DownLinksUpdate");
   EXPECT_TRUE(sw.agent->oxaState()->vornDownLinksUpdate());
}

// An ordinary start after a hitless one, with the driver still where that one was.
TEST_F(VornAgentTest, stagesOfAnEarlierHitlessStartAreNotThoseOfAnOrdinaryOne) {
   hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
   sw.startAgent();
   reachStage("VornStatusUpdate");
   sw.stopAgent();
   hitlessBoot(false, Oxa::HitlessBootMode::bootHitfull);
   auto const config = sw.publish<Stage::AgentConfig>(stageConfigPath);
   config->waitForStageIs("NoSuchStage", true);
   TestSwitch::run();
   sw.startAgent();
   EXPECT_EQ(config->waitForStage().size(), 2u);
   EXPECT_TRUE(config->waitForStage("NetworkAgent"));
   EXPECT_TRUE(config->waitForStage("ErrdisableStatusUpdate"));
   for (char const* stage : {"VornSubIntfUp", "DownLinksUpdate", "NoSuchStage"})
      reachStage(stage);
   EXPECT_FALSE(isStageComplete("VornStatusUpdate"));
   reachStage("NetworkAgent");
   EXPECT_TRUE(isStageComplete("NetworkAgent"));
}

// --- The cause of a hitless reload, which a boot stage makes.

struct ReloadDownTest : VornAgentTest {
   ReloadDownTest() {
      hitlessBoot(true, Oxa::HitlessBootMode::bootHitless);
      sw.publish<Stage::Status>(stagePath)->instanceIs(5);
      lines.clear();
      Kem::logSinkIs([](int, std::string const& line) { lines.push_back(line); });
   }
   ~ReloadDownTest() override { Kem::logSinkIs(nullptr); }
   // Whether a port that the reload shuts is logged.
   bool isWorking() {
      lines.clear();
      auto const cause = sw.publish<Errdisable::CauseStatus>(causePath);
      cause->intfStatusIs(Sulvi::IntfId("Ethernet9"), Kem::now());
      TestSwitch::run();
      cause->intfStatusDel(Sulvi::IntfId("Ethernet9"));
      TestSwitch::run();
      return lines.size() == 2;
   }
   static inline std::vector<std::string> lines;
};

TEST_F(ReloadDownTest, worksFromItsStageOn) {
   sw.startAgent();
   EXPECT_FALSE(isWorking());
   reachStage("ErrdisableStatusUpdate");
   EXPECT_TRUE(isWorking());
   sw.publish<Stage::Status>(stagePath)->instanceIs(6);
   TestSwitch::run();
   EXPECT_TRUE(isWorking()) << "it is made once";
}

TEST_F(ReloadDownTest, worksInAnAgentThatCameAfterItsStage) {
   sw.startAgent();
   reachStage("ErrdisableStatusUpdate");
   reachStage("NetworkAgent");
   for (int round = 0; round < 2; ++round) {
      sw.stopAgent();
      sw.startAgent();
      EXPECT_TRUE(isWorking()) << round;
   }
   // Not in the next boot, before its stage.
   sw.stopAgent();
   sw.publish<Stage::Status>(stagePath)->instanceIs(6);
   sw.startAgent();
   EXPECT_FALSE(isWorking());
   reachStage("ErrdisableStatusUpdate");
   EXPECT_TRUE(isWorking());
}

TEST_F(ReloadDownTest, worksInASupervisorThatWasStandbyAtItsStage) {
   roleIs(3, 4);
   sw.startAgent();
   reachStage("ErrdisableStatusUpdate");
   EXPECT_FALSE(isWorking());
   roleIs(3, 5);
   EXPECT_TRUE(isWorking());
}

TEST_F(VornAgentTest, stageOfAnotherClassIsIgnored) {
   sw.startAgent();
   sw.agent->doStage("shutdownStageClass", "NetworkAgent");
   sw.agent->doStage("shutdownStageClass", "NoSuchStage");
   TestSwitch::run();
   EXPECT_FALSE(isStageComplete("NetworkAgent"));
}

TEST_F(VornAgentTest, unknownStageOfTheBootClassIsAnAssertion) {
   sw.startAgent();
   EXPECT_DEATH(sw.agent->doStage("bootStageClass", "NoSuchStage"), "Assertion \"0\" failed");
}

// --- Kernel sockets.

// Leaves room for so many more descriptors.
void descriptorsLeftIs(unsigned count) {
   int const next = fcntl(0, F_DUPFD, 0);
   close(next);
   rlimit const limit{static_cast<rlim_t>(next) + count, static_cast<rlim_t>(next) + count};
   setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(VornAgentTest, cannotRunWithoutItsKernelSockets) {
   sw.startAgent();
   auto const start = [&](unsigned descriptors) {
      descriptorsLeftIs(descriptors);
      sw.agent->doMountsComplete({}, *sw.agentManager);
   };
   EXPECT_DEATH(start(0), "Assertion \"fd >= 0\" failed");
   EXPECT_DEATH(start(1), "Assertion \"netlinkFd >= 0\" failed");
}

TEST_F(VornAgentTest, failureToNameVlanDevicesIsIgnored) {
   Netlink::FakeKernel kernel;
   kernel.has8021q(false);
   sw.startAgent();
   EXPECT_EQ(kernel.count("SET_VLAN_NAME_TYPE_CMD"), 1);
   EXPECT_GE(sw.agent->socketFd(), 0);
   EXPECT_GE(sw.agent->netlinkFd(), 0);
}

// --- Trace file.

TEST_F(VornAgentTest, traceFileBearsTheProcessNumberUnlessAFolderIsGiven) {
   EXPECT_EQ(Vorn::Agent::traceFileName("Vorn", false), "Vorn-%d.zv");
   EXPECT_EQ(Vorn::Agent::traceFileName("Vorn", true), "Vorn.zv");
}

TEST_F(VornAgentTest, traceFileIsOpenedAtTheEndOfTheStartUnlessItIsTurnedOff) {
   std::filesystem::path const folder = testing::TempDir() + "/vorn-zivlog-" + std::to_string(getpid());
   std::filesystem::create_directory(folder);
   setenv("ZIVLOGDIR", folder.c_str(), 1);
   sw.startAgent(); // the environment of the tests turns it off
   EXPECT_FALSE(std::filesystem::exists(folder / "Vorn.zv"));
   sw.stopAgent();
   unsetenv("ZIVLOG_DISABLE");
   sw.startAgent();
   EXPECT_TRUE(std::filesystem::exists(folder / "Vorn.zv"));
   Zivlog::close();
   setenv("ZIVLOG_DISABLE", "1", 1);
   unsetenv("ZIVLOGDIR");
   std::filesystem::remove_all(folder);
}

TEST_F(VornAgentTest, everyTraceFacilityHasANameOfItsOwn) {
   auto const all = Kem::traceFacilityNames();
   std::set<std::string_view> names;
   for (auto const name : all)
      EXPECT_TRUE(names.insert(name).second)
          << name << " is there twice: nobody can tell which of them traces";
   for (char const* const one :
        {"Vorn", "VornSelector", "ErrdisableCause", "KernelNetworkInfo", "Plaze::Table"})
      EXPECT_TRUE(names.contains(one)) << one;
}

// --- Attribute log.

TEST_F(VornAgentTest, measuresTheSocketThatItsLogIsWrittenTo) {
   sw.startAgent();
   EXPECT_EQ(sw.agent->attrLogCheck().attrLogSockFd(), sw.agentManager->attributeLog()->socketFd());
   EXPECT_GT(sw.agent->attrLogCheck().attrLogKernBufferThreshold(), 0);
   EXPECT_TRUE(sw.agent->isAttrLogReady());
}

} // namespace
