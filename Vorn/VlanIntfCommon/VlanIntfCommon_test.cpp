// The evaluation, by a derived class that configures what a test says.
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"

#include "Sulvi/KernelDeviceName.h"
#include "Vorn/VlanIntfCommon/TestInterfaces.h"

namespace Vorn {
namespace {

// One interface "Vlan10" for VLAN `vlanId` on "fabric".
class TestIntf final : public VlanIntfCommon {
  public:
   explicit TestIntf(VlanIntfInputs in) : VlanIntfCommon(std::move(in)) {
      initializedIs(true);
      nsSocketFdIs(Sulvi::DEFAULT_NS, this->in().socketFd);
      doInitIntfNamespaceConfig();
      fabricUpIs(true);
      intfIs("Vlan10", true);
      intfIs("Vlan11", true);
   }
   bool evaluate(bool isInitialized = true, bool preparedToDie = false) {
      return doEvaluateInterfaceConfigurationWithRetval(isInitialized, preparedToDie, "Vlan10", vlanId, base,
                                                        "vlan10", "Vlan10", status, local);
   }
   void doEvaluateInterfaceConfiguration(Sulvi::IntfId intfId) override { evaluated.push_back(intfId); }
   Sulvi::EthAddr getIntfMacAddr(Sulvi::IntfId) const override {
      return Sulvi::EthAddr(std::string_view(TestInterfaces::bridgeAddr));
   }
   void setIntfAddr(Sulvi::IntfId, Sulvi::EthAddr const& addr) override { status->addrIs(addr); }
   bool retryNeeded(Sulvi::IntfId intfId) override {
      retried.push_back(intfId);
      if (onRetry)
         onRetry();
      return isFailing;
   }
   bool intfPresentInConfig(Kem::String8 const& ifName) const override {
      return ifName == "vlan10" || !Sulvi::vlanIdFromDeviceName(ifName);
   }
   bool intfPresentInStatus(Kem::String8 const& ifName) const override { return ifName == "vlan10"; }
   Kem::Ptr<Interface::EthIntfStatusLocal> intfStatusLocal(Kem::String8 const& ifName) const override {
      return ifName == "vlan10" ? local : nullptr;
   }
   bool isStandbyMode() const override { return isStandby; }
   void armIntfConfigClock() override { ++armed; }
   uint32_t kernelDeviceIndex(Kem::String8 const&) const override { return baseIndex; }

   uint16_t vlanId = 10;
   Kem::String8 base = "fabric";
   uint32_t baseIndex = 0;
   bool isStandby = false;
   bool isFailing = false;
   int armed = 0;
   std::vector<Sulvi::IntfId> evaluated, retried;
   std::function<void()> onRetry;
   Kem::Ptr<Interface::EthIntfStatus> status = Interface::EthIntfStatus::make("Vlan10");
   Kem::Ptr<Interface::EthIntfStatusLocal> local = Interface::EthIntfStatusLocal::make("Vlan10");
};

using Names = std::vector<Sulvi::IntfId>;

class VlanIntfCommonTest : public testing::Test, public TestInterfaces {
  public:
   VlanIntfCommonTest() {
      kernel.deviceIs("fabric").mtu = 9214;
      kernel.upIs("fabric", true);
      openKernel();
      VlanIntfInputs in;
      commonInputs(in, nullptr);
      sm = Kem::makePtr<TestIntf>(in);
      run();
      kernel.countsReset();
   }
   ~VlanIntfCommonTest() override {
      sm = nullptr;
      closeKernel();
   }
   std::string netNs() const { return sm->local->netNsName().stringValue().str(); }

   Kem::TestTrace trace{"Vorn*/0-9"};
   Kem::Ptr<TestIntf> sm;
};

// --- The path of an evaluation.

TEST_F(VlanIntfCommonTest, nothingIsDoneBeforeItIsInitializedOrWhenItDies) {
   EXPECT_TRUE(sm->evaluate(false));
   EXPECT_FALSE(sm->continueProcessing());
   EXPECT_TRUE(sm->evaluate(true, true));
   EXPECT_FALSE(sm->continueProcessing());
   EXPECT_TRUE(trace.has(" exiting because preparedToDie is true"));
   EXPECT_EQ(devices("vlan"), "");
}

TEST_F(VlanIntfCommonTest, aNewDeviceIsDormantAndMapsTheHighestPriority) {
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->continueProcessing());
   EXPECT_FALSE(sm->kernelCallFailed());
   EXPECT_EQ(devices("vlan"),
             "vlan10: vlan 10 on fabric, mtu 9214, down, 02:00:00:00:00:01, egress 7:7, asked "
             "to be dormant\n");
   EXPECT_EQ(sm->deviceVlanId("vlan10"), 10);
   EXPECT_EQ(sm->status->deviceName(), "vlan10");
   EXPECT_EQ(sm->status->addr(), addr(bridgeAddr));
   EXPECT_TRUE(trace.has("vlan created in dstNs default"));
   EXPECT_EQ(netNs(), "") << "the default namespace";
}

TEST_F(VlanIntfCommonTest, anExistingDeviceOfThatVlanIsTakenOver) {
   kernel.vlanDeviceIs("vlan10", "fabric", 10);
   auto const index = kernel.findDevice("vlan10")->index;
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->continueProcessing());
   EXPECT_EQ(kernel.findDevice("vlan10")->index, index);
   EXPECT_EQ(kernel.count("DEL_VLAN_CMD"), 0);
   EXPECT_EQ(kernel.count("SET_VLAN_EGRESS_PRIORITY_CMD"), 1) << "the mapping is set again";
   EXPECT_EQ(kernel.findDevice("vlan10")->operStateAsked, 0) << "its state is left alone";
}

TEST_F(VlanIntfCommonTest, inStandbyTheSharedRecordIsNotWritten) {
   sm->isStandby = true;
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(sm->status->deviceName(), "");
   EXPECT_EQ(sm->status->addr(), Sulvi::EthAddr());
}

TEST_F(VlanIntfCommonTest, withoutAVlanTheDeviceIsDestroyedEvenIfThereIsNone) {
   sm->vlanId = 0;
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->continueProcessing());
   EXPECT_EQ(kernel.count("DEL_VLAN_CMD"), 1);
   EXPECT_EQ(sm->doCreateVlanDevice(0, "fabric", "vlan10", netlinkFd, Sulvi::DEFAULT_NS), VlanNotNeeded);
}

TEST_F(VlanIntfCommonTest, withoutFabricOrBridgeAddressTheDeviceHasNoAddressOfItsOwn) {
   sm->fabricUpIs(false);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->continueProcessing());
   EXPECT_EQ(kernel.count("SIOCGIFHWADDR"), 0);
   EXPECT_EQ(sm->status->deviceName(), "");
   sm->fabricUpIs(true);
   config->bridgeMacAddrIs({});
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->continueProcessing());
   EXPECT_EQ(kernel.count("SIOCGIFHWADDR"), 0);
}

TEST_F(VlanIntfCommonTest, anotherVlanMeansAnotherDevice) {
   sm->evaluate();
   sm->vlanId = 20;
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10")->vlanId, 20);
   EXPECT_EQ(sm->deviceVlanId("vlan10"), 20);
}

// --- What stands in the way.

TEST_F(VlanIntfCommonTest, aMissingBaseIsNotTriedAgain) {
   kernel.deviceDel("fabric");
   EXPECT_TRUE(sm->evaluate());
   EXPECT_FALSE(sm->continueProcessing());
   EXPECT_TRUE(trace.has("vlan create errorin dstNs. No retry. NS default vlanId 10 error 2"));
   EXPECT_EQ(problem("Vlan10"), "base device fabric doesn't exist");
   sm->baseIndex = 2; // the picture of the kernel's devices has it
   EXPECT_FALSE(sm->evaluate());
}

TEST_F(VlanIntfCommonTest, aKernelWithout8021qIsNotAskedForDevices) {
   kernel.has8021q(false);
   EXPECT_FALSE(sm->evaluate());
   EXPECT_FALSE(sm->continueProcessing());
   EXPECT_EQ(kernel.count("RTM_NEWLINK"), 0);
   EXPECT_EQ(problem("Vlan10"), "the kernel has no 802.1Q");
   EXPECT_EQ(agentStatus->kernelProblem(), "the kernel has no 802.1Q");
   EXPECT_TRUE(trace.has("vlan create failed in dstNs default vlanId 10"));
   kernel.has8021q(true);
   advance(1.0);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "");
   EXPECT_EQ(agentStatus->kernelProblem(), "");
}

TEST_F(VlanIntfCommonTest, withoutTheRightTheKernelIsNotAskedForDevices) {
   kernel.rightIs(false);
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(kernel.count("RTM_NEWLINK"), 0);
   EXPECT_EQ(problem("Vlan10"), "no right to change network devices (CAP_NET_ADMIN)");
}

TEST_F(VlanIntfCommonTest, aBaseThatCantCarryVlansIsNotAsked) {
   kernel.deviceIs("fabric").carriesVlans = false;
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(kernel.count("RTM_NEWLINK"), 0);
   EXPECT_NE(problem("Vlan10"), "");
}

TEST_F(VlanIntfCommonTest, aDeviceOfAnotherKindIsLeftAlone) {
   kernel.deviceIs("vlan10", "bridge");
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "a device vlan10 exists that is no VLAN device");
   EXPECT_EQ(kernel.findDevice("vlan10")->kind, "bridge");
   kernel.deviceDel("vlan10");
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "");
}

TEST_F(VlanIntfCommonTest, aVlanThatAnotherDeviceHasIsWaitedFor) {
   kernel.vlanDeviceIs("mine", "fabric", 10);
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "VLAN 10 of fabric belongs to another device");
   EXPECT_EQ(sm->deviceVlanId("vlan10"), 0);
}

// The kernel makes a device in the namespace of the request before it moves it.
TEST_F(VlanIntfCommonTest, aNameThatIsTakenInTheDefaultNamespaceIsFreed) {
   namespaceIs("red");
   moveTo("Vlan10", "red");
   EXPECT_TRUE(sm->evaluate());
   kernel.deviceDel("vlan10", "red");
   kernel.vlanDeviceIs("vlan10", "fabric", 99);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10"), nullptr);
   ASSERT_NE(kernel.findDevice("vlan10", "red"), nullptr);
   kernel.deviceDel("vlan10", "red");
   kernel.deviceIs("vlan10", "bridge");
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "a device vlan10 exists that is no VLAN device");
}

TEST_F(VlanIntfCommonTest, aDeviceOfAnotherVlanOrBaseIsMadeAgain) {
   kernel.vlanDeviceIs("vlan10", "fabric", 11);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10")->vlanId, 10);
   kernel.deviceIs("other");
   kernel.deviceDel("vlan10");
   kernel.vlanDeviceIs("vlan10", "other", 10);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10")->base->name, "fabric");
}

TEST_F(VlanIntfCommonTest, failuresBesideTheDeviceAreKnownToTheCaller) {
   kernel.fail("ioctl", EPERM, 1, true);
   EXPECT_FALSE(sm->evaluate());
   kernel.faultsEnd();
   advance(1.0);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_FALSE(sm->kernelCallFailed());
   kernel.findDevice("vlan10")->address = {2, 0, 0, 0, 0, 9};
   kernel.fail("SIOCSIFHWADDR", EBUSY);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_TRUE(sm->kernelCallFailed());
   EXPECT_NE(problem("Vlan10").find("its address can't be set"), std::string::npos);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_FALSE(sm->kernelCallFailed());
   EXPECT_EQ(problem("Vlan10"), "");
}

TEST_F(VlanIntfCommonTest, aDeviceThatCantBeSwitchedEndsTheProcess) {
   sm->evaluate();
   kernel.fail("SIOCGIFFLAGS", EPERM);
   testing::internal::CaptureStderr();
   EXPECT_THROW(sm->setInterfaceUpOrDown("vlan10", true, socketFd), Netlink::FakeKernel::Exited);
   EXPECT_NE(testing::internal::GetCapturedStderr().find("setInterfaceUpOrDown failure, vlan10 errno 1\n"),
             std::string::npos);
   for (int const ignored : {ENODEV, ENETDOWN}) {
      kernel.fail("SIOCSIFFLAGS", ignored);
      EXPECT_NO_THROW(sm->setInterfaceUpOrDown("vlan10", true, socketFd));
   }
   kernel.countsReset();
   sm->setInterfaceUpOrDown("vlan10", true, 0);
   sm->setInterfaceUpOrDown("vlan99", true, socketFd);
   EXPECT_EQ(kernel.count("ioctl"), 0);
}

// --- Namespaces.

TEST_F(VlanIntfCommonTest, aNamespaceThatDoesntExistIsWaitedFor) {
   moveTo("Vlan10", "red");
   EXPECT_TRUE(sm->evaluate());
   EXPECT_FALSE(sm->continueProcessing());
   EXPECT_TRUE(trace.has(" has not been configured yet"));
   EXPECT_EQ(problem("Vlan10"), "namespace red doesn't exist");
   EXPECT_EQ(devices("vlan"), "");
   sm->armed = 0;
   namespaceIs("red");
   run();
   EXPECT_EQ(sm->armed, 1) << "all are evaluated";
   EXPECT_EQ(sm->intfBackLog().size(), 2u);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(devices("vlan").find("vlan10@red"), std::string::npos);
   EXPECT_EQ(netNs(), "red");
   EXPECT_EQ(sm->nsIntfRefcount("red"), 1);
}

TEST_F(VlanIntfCommonTest, aNamespaceThatCantBeEnteredIsTriedAgain) {
   namespaceIs("red");
   moveTo("Vlan10", "red");
   kernel.fail("setns", EPERM, 1, true);
   EXPECT_FALSE(sm->evaluate());
   EXPECT_TRUE(trace.has("No valid socket found for NS`red"));
   EXPECT_TRUE(trace.has(" socketAt failed: Operation not permitted"));
   kernel.faultsEnd();
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(netNs(), "red");
}

TEST_F(VlanIntfCommonTest, anInterfaceMovesFromTheDefaultNamespaceAndBack) {
   namespaceIs("red");
   sm->evaluate();
   EXPECT_EQ(netNs(), "") << "never said to be anywhere";
   moveTo("Vlan10", "red");
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10"), nullptr);
   EXPECT_NE(kernel.findDevice("vlan10", "red"), nullptr);
   moveTo("Vlan10", "");
   trace.take();
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(kernel.findDevice("vlan10", "red"), nullptr);
   EXPECT_TRUE(trace.has("Freeing FD to namespace red"));
   EXPECT_EQ(sm->nsSocketFd("red"), 0);
   EXPECT_EQ(sm->nsIntfRefcount("red"), 0);
}

TEST_F(VlanIntfCommonTest, theSourceSocketIsOpenedWhereAnEarlierRunLeftTheDevice) {
   namespaceIs("red");
   kernel.vlanDeviceIs("vlan10", "fabric", 10, "red");
   sm->local->netNsNameIs("red");
   sm->countIntf("Vlan10", sm->local);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_EQ(kernel.findDevice("vlan10", "red"), nullptr);
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(sm->nsIntfRefcount("red"), 0);
}

TEST_F(VlanIntfCommonTest, aSourceNamespaceThatIsGoneTookTheDeviceWithIt) {
   sm->local->netNsNameIs("red");
   sm->countIntf("Vlan10", sm->local);
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(netNs(), "default");
   EXPECT_EQ(sm->nsIntfRefcount("red"), 0);
}

TEST_F(VlanIntfCommonTest, aSourceNamespaceThatCantBeEnteredIsTriedAgain) {
   namespaceIs("red");
   kernel.vlanDeviceIs("vlan10", "fabric", 10, "red");
   sm->local->netNsNameIs("red");
   sm->countIntf("Vlan10", sm->local);
   kernel.fail("setns", EPERM, 1, true);
   EXPECT_FALSE(sm->evaluate());
   EXPECT_EQ(problem("Vlan10"), "namespace red can't be entered");
   kernel.faultsEnd();
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(kernel.findDevice("vlan10", "red"), nullptr);
}

TEST_F(VlanIntfCommonTest, aSourceWithoutASocketEndsTheProcess) {
   sm->nsSocketFdIs(Sulvi::DEFAULT_NS, -1);
   EXPECT_DEATH(sm->evaluate(), "Failed\\(srcSockFd > 0\\)  srcSockFd: -1(.|\n)*! ?\"srcSockFd > 0\"");
}

TEST_F(VlanIntfCommonTest, anUnusedNamespaceThatGoesHasItsSocketFreed) {
   namespaceIs("red");
   sm->prepNs("red");
   EXPECT_NE(sm->nsSocketFd("red"), 0);
   namespaceDel("red");
   run();
   EXPECT_TRUE(trace.has("Freeing FD to unused namespace red"));
   EXPECT_EQ(sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfCommonTest, aNamespaceInUseThatLosesItsNameKeepsItsSocket) {
   namespaceIs("red");
   moveTo("Vlan10", "red");
   sm->evaluate();
   namespaceDel("red");
   run();
   EXPECT_NE(sm->nsSocketFd("red"), 0);
   moveTo("Vlan10", "");
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10"), nullptr);
   EXPECT_EQ(sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfCommonTest, aNamespaceThatIsMadeAgainGetsTheDevice) {
   namespaceIs("red");
   moveTo("Vlan10", "red");
   sm->evaluate();
   kernel.namespaceDel("red");
   kernel.namespaceIs("red"); // within one look
   namespacesAreLookedAt();
   run();
   EXPECT_TRUE(trace.has("NS red was made again"));
   EXPECT_TRUE(sm->evaluate());
   EXPECT_NE(kernel.findDevice("vlan10", "red"), nullptr);
   EXPECT_EQ(netNs(), "red");
   EXPECT_EQ(sm->nsIntfRefcount("red"), 1);
}

TEST_F(VlanIntfCommonTest, aCountBelowZeroEndsTheProcess) {
   namespaceIs("red");
   moveTo("Vlan10", "red");
   sm->evaluate();
   sm->nsIntfRefcountIs("red", 0);
   EXPECT_DEATH(sm->setIntfStatusLocalNetNsName(sm->local, Sulvi::DEFAULT_NS),
                "nsIntfRefcount\\( oldNsName \\) >= 0");
}

TEST_F(VlanIntfCommonTest, anInterfaceIsCountedOnceHoweverOftenItIsNotified) {
   sm->local->netNsNameIs("red");
   for (int i = 0; i < 3; ++i)
      sm->countIntf("Vlan10", sm->local);
   EXPECT_EQ(sm->nsIntfRefcount("red"), 1);
   sm->countIntf("Vlan10", nullptr);
   EXPECT_EQ(sm->nsIntfRefcount("red"), 0);
}

TEST_F(VlanIntfCommonTest, aChangeOfTheConfiguredNamespaceIsEvaluatedAtOnce) {
   moveTo("Vlan10", "red");
   run();
   EXPECT_EQ(sm->evaluated, Names({"Vlan10"}));
   sm->evaluated.clear();
   nsConfigDir->intfNamespaceConfigDel("Vlan10");
   run();
   EXPECT_EQ(sm->evaluated, Names({"Vlan10"}));
}

// --- Sweep.

TEST_F(VlanIntfCommonTest, aDeviceInTheWrongNamespaceIsRemovedThere) {
   namespaceIs("red");
   kernel.vlanDeviceIs("vlan10", "fabric", 10);
   sm->local->netNsNameIs("red");
   sm->doRemoveUnneededVlanNetworkDevices(socketFd, Sulvi::DEFAULT_NS);
   EXPECT_EQ(kernel.findDevice("vlan10"), nullptr);
   EXPECT_TRUE(trace.has("deleted unneeded kernel device: vlan10 from NS default. StatusLocal had NS red"));
   EXPECT_EQ(netNs(), "default");
}

TEST_F(VlanIntfCommonTest, aDeviceOfAnotherKindSurvivesTheSweep) {
   kernel.deviceIs("vlan9", "bridge");
   sm->doRemoveUnneededVlanNetworkDevices(socketFd, Sulvi::DEFAULT_NS);
   EXPECT_NE(kernel.findDevice("vlan9"), nullptr);
   EXPECT_TRUE(trace.has("vlan9 is no VLAN device: left alone"));
   EXPECT_EQ(kernel.count("DEL_VLAN_CMD"), 0);
}

// A host in a namespace may call its VLAN devices as it likes.
TEST_F(VlanIntfCommonTest, aDeviceOnAnotherBaseSurvivesTheSweep) {
   namespaceIs("host");
   kernel.deviceIs("port");
   kernel.vlanDeviceIs("vlan10", "port", 10, "host");
   kernel.vlanDeviceIs("vlan5", "port", 5);
   kernel.vlanDeviceIs("vlan6", "fabric", 6);
   sm->doRemoveUnneededVlanNetworkDevices(socketFd, Sulvi::DEFAULT_NS);
   sm->prepNs("host");
   EXPECT_NE(kernel.findDevice("vlan10", "host"), nullptr);
   EXPECT_NE(kernel.findDevice("vlan5"), nullptr);
   EXPECT_EQ(kernel.findDevice("vlan6"), nullptr);
   EXPECT_TRUE(trace.has("vlan6 did not find device in intfConfig"));
   EXPECT_TRUE(trace.has("deleted unneeded kernel device: vlan6"));
}

TEST_F(VlanIntfCommonTest, aListThatCantBeHadIsAskedForAgain) {
   kernel.vlanDeviceIs("vlan5", "fabric", 5);
   kernel.fail("socket", EMFILE);
   sm->doRemoveUnneededVlanNetworkDevices(socketFd, Sulvi::DEFAULT_NS);
   EXPECT_NE(kernel.findDevice("vlan5"), nullptr);
   advance(1.0);
   EXPECT_EQ(kernel.findDevice("vlan5"), nullptr);
   EXPECT_EQ(sm->retryTime(), Kem::never);
}

// --- Retry.

TEST_F(VlanIntfCommonTest, theFirstRetryComesAfterASecondAndThenEachHalf) {
   sm->isFailing = true;
   sm->addIntfToRetryCollection("Vlan10", "vlan10");
   EXPECT_TRUE(trace.has("VlanIntfCommon: vlan10: Scheduled retry for Vlan10"));
   advance(0.99);
   EXPECT_EQ(sm->retried, Names());
   advance(0.02);
   EXPECT_EQ(sm->retried, Names({"Vlan10"}));
   EXPECT_TRUE(trace.has("Retrying doEvaluateInterfaceConfiguration() for Vlan10"));
   EXPECT_TRUE(trace.has("VlanIntfCommon: retry processing failed for Vlan10"));
   advance(0.48);
   EXPECT_EQ(sm->retried.size(), 1u);
   advance(0.02);
   EXPECT_EQ(sm->retried.size(), 2u);
   sm->isFailing = false;
   advance(0.5);
   EXPECT_TRUE(sm->retryIntfCollection().empty());
   EXPECT_TRUE(trace.has("retry processing finished"));
   EXPECT_EQ(sm->retryTime(), Kem::never);
}

TEST_F(VlanIntfCommonTest, aPassThatTakesTooLongGoesOnWhereItStopped) {
   sm->isFailing = true;
   for (char const* name : {"Vlan10", "Vlan11", "Vlan12"})
      sm->addIntfToRetryCollection(name, "vlan");
   sm->onRetry = [] { Kem::VirtualTime::advanceTo(Kem::now() + 0.2); };
   sm->doRetryEvaluateIntfConfiguration();
   EXPECT_EQ(sm->retried, Names({"Vlan10", "Vlan11"}));
   EXPECT_EQ(sm->retryBookmark(), Sulvi::IntfId("Vlan12"));
   EXPECT_TRUE(trace.has("Pausing retry processing at Vlan12"));
   sm->onRetry = nullptr;
   sm->retried.clear();
   advance(0.5);
   EXPECT_EQ(sm->retried, Names({"Vlan12"}));
   EXPECT_EQ(sm->retryBookmark(), Sulvi::IntfId());
   sm->retried.clear();
   advance(0.5);
   EXPECT_EQ(sm->retried, Names({"Vlan10", "Vlan11", "Vlan12"}));
}

// --- What a derived class has to do.

TEST_F(VlanIntfCommonTest, theBaseDoesNothingOfItsOwn) {
   VlanIntfInputs in;
   commonInputs(in, nullptr);
   struct Bare final : VlanIntfCommon {
      using VlanIntfCommon::VlanIntfCommon;
   };
   auto const bare = Kem::makePtr<Bare>(in);
   char const* const text = "Derived class should implement this";
   EXPECT_DEATH(bare->doEvaluateInterfaceConfiguration("Vlan10"), text);
   EXPECT_DEATH(static_cast<void>(bare->getIntfMacAddr("Vlan10")), text);
   EXPECT_DEATH(bare->setIntfAddr("Vlan10", {}), text);
   EXPECT_DEATH(static_cast<void>(bare->retryNeeded("Vlan10")), "derived class should implement");
   EXPECT_DEATH(static_cast<void>(bare->intfPresentInConfig("vlan10")), text);
   EXPECT_DEATH(static_cast<void>(bare->intfPresentInStatus("vlan10")), text);
   EXPECT_DEATH(static_cast<void>(bare->intfStatusLocal("vlan10")), text);
   EXPECT_DEATH(static_cast<void>(bare->isStandbyMode()), text);
   EXPECT_DEATH(bare->armIntfConfigClock(), text);
}

} // namespace
} // namespace Vorn
