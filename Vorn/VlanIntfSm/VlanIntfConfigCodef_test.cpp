#include "Vorn/VlanIntfSm/VlanIntfConfigCodef.h"

#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/VlanIntfSm/VlanIntfSmTest.h"

namespace Vorn {
namespace {

// --- Static and dynamic.

TEST_F(VlanIntfSmTest, aStaticConfigurationTakesTheInterfaceFromADynamicOne) {
   world.dynamic(10)->mtuIs(1300);
   world.makeStatus(10);
   world.start();
   EXPECT_NE(world.devices().find("mtu 1300"), std::string::npos);
   EXPECT_FALSE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   trace.take();
   world.configure(10)->mtuIs(1400);
   world.run();
   EXPECT_TRUE(trace.has("removing prev config Vlan10from source overlay"));
   EXPECT_NE(world.devices().find("mtu 1400, up"), std::string::npos) << world.devices();
   EXPECT_TRUE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
   world.vlanIntfDel(10);
   world.run();
   EXPECT_FALSE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   EXPECT_NE(world.devices().find("mtu 1300, up"), std::string::npos);
}

TEST_F(VlanIntfSmTest, namesThatAreNoVlanInterfacesAreNamedAndLeftOut) {
   for (char const* name : {"Vlan0", "Vlan4095", "Vlan10x", "Ethernet1"}) {
      world.configDir->intfConfigIs(name);
      world.statusDir->intfStatusIs(name);
      world.statusLocalDir->intfStatusLocalIs(name);
   }
   world.start();
   EXPECT_EQ(world.devices(), "");
   EXPECT_EQ(world.agentStatus->deviceProblem().size(), 4u);
   world.configDir->intfConfigDelAll();
   world.run();
   EXPECT_EQ(world.agentStatus->deviceProblem().size(), 0u);
}

// --- The deferred stage.

class VlanIntfConfigCodefTest : public VlanIntfSmTest {
  public:
   VlanIntfConfigCodefTest() { world.agent.log = &log.check; }
   ~VlanIntfConfigCodefTest() override { world.stop(); }
   TestAttrLog log;
};

TEST_F(VlanIntfConfigCodefTest, aFullLogStopsItAndItGoesOnWhereItStopped) {
   for (unsigned vlanId : {10, 11, 12})
      world.vlanIntf(vlanId);
   log.roomFor(1);
   world.openKernel();
   world.makeMachine();
   Kem::activityManager()->runTurn();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 2u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), world.id(11));
   EXPECT_TRUE(trace.has("Pausing backlog processing at Vlan11 - attr log full"));
   log.drain();
   world.advance(0.01);
   EXPECT_EQ(world.sm->vlanIntfConfig().size(), 3u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 0u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), Sulvi::IntfId());
}

TEST_F(VlanIntfConfigCodefTest, aNewChangeStartsTheWalkAtTheBeginning) {
   for (unsigned vlanId : {10, 11, 12})
      world.vlanIntf(vlanId);
   log.roomFor(1);
   world.openKernel();
   world.makeMachine();
   Kem::activityManager()->runTurn();
   world.configure(13);
   Kem::activityManager()->deliverQueued();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), Sulvi::IntfId());
   EXPECT_TRUE(trace.has("Adding intfId: Vlan13 to backlog"));
   log.drain();
   world.run();
}

TEST_F(VlanIntfConfigCodefTest, whatIsNowhereLeavesTheBacklog) {
   world.start();
   log.fill();
   world.configure(10);
   world.run();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 1u);
   world.vlanIntfDel(10);
   Kem::activityManager()->deliverQueued();
   EXPECT_TRUE(trace.has("Deleting intfId: Vlan10 from backlog"));
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 0u);
   log.drain();
}

} // namespace
} // namespace Vorn
