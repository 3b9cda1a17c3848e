// What VLAN interfaces and subinterfaces have in common: whether an interface's Linux VLAN device must be
// made, replaced or removed, in which namespace it is, its address, and the removal of devices that nobody
// wants any more. The derived class says what is configured (VlanIntfSm, SubIntfSm); this one acts on the kernel.
//
//    evaluated ──the kernel fails──► retryIntfCollection ──1.0 s, then every 0.5 s──► evaluated
//
//    VlanIntfCommon.cpp   the evaluation of one interface: its device and its address
//    Namespaces.cpp       a socket for each namespace in use, and how many interfaces are in it
//    Retry.cpp            evaluations that failed, in slices of time
//    Sweep.cpp            devices of an earlier run that no configuration wants
//
// Nothing here is known from the past: a device that exists is asked for its VLAN before it is taken over.
// Every call blocks in the kernel for as long as that takes.
#pragma once

#include "Kem/Activity.h"
#include "Kem/Collections.h"
#include "Kem/StateMachine.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/KernelDevices/VlanDevice.h"
#include "Vorn/VlanIntfCommon/IntfNamespaces.h"
#include "Vorn/VlanIntfCommon/NamespaceSockets.h"
#include "Vorn/VlanIntfCommon/VlanIntfInputs.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/EthIntfStatusLocal.h"

#include <set>
#include <string>

namespace Vorn {

class VlanIntfCommon : public Kem::StateMachine, private Kem::DeferredWork {
  public:
   using IntfSet = Kem::OrderedValueMap<Sulvi::IntfId, bool>; // the value is always true
   static constexpr Kem::Seconds firstRetry = 1.0;
   static constexpr Kem::Seconds retrySlice = 0.3;
   static constexpr Kem::Seconds retryGap = 0.5;

   explicit VlanIntfCommon(VlanIntfInputs in);
   ~VlanIntfCommon() override;
   VlanIntfInputs const& in() const { return in_; }

   // --- Evaluation.
   // Brings the device of the interface in step: true means finished, false that it must be tried again.
   // Afterwards continueProcessing() says whether the whole path ran, and kernelCallFailed() whether a call
   // failed that the evaluation goes on after.
   bool
   doEvaluateInterfaceConfigurationWithRetval(bool initialized, bool preparedToDie, Sulvi::IntfId intfId,
                                              uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                              Kem::String8 const& deviceName, Kem::String8 const& name,
                                              Kem::Ptr<Interface::EthIntfStatus> const& intfStatus,
                                              Kem::Ptr<Interface::EthIntfStatusLocal> const& intfStatusLocal);
   void evaluateInterfaceConfiguration(); // all interfaces, in the next slices of the derived class
   void handleMacAddr(bool initialized, Sulvi::IntfId intfId, Kem::String8 const& deviceName);
   // What a change of MTU does to the device, whose namespace the record says.
   void doSyncMtu(Kem::Ptr<Interface::EthIntfStatus> const& intfStatus,
                  Kem::Ptr<Interface::EthIntfStatusLocal> const& intfStatusLocal,
                  Kem::Ptr<Interface::IntfConfig const> const& intfConfig);
   VlanCreateStatus doCreateVlanDevice(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                       Kem::String8 const& deviceName, int socketFd,
                                       Sulvi::NamespaceName const& dstNs);
   // The namespace is that of the record, and without a record that of the socket.
   void doDestroyVlanDevice(Kem::String8 const& deviceName,
                            Kem::Ptr<Interface::EthIntfStatusLocal> const& intfStatusLocal, int socketFd);
   // Whether it was the other way before. Ends the process with status 1 on a failure that isn't about a device that
   // is gone or a base that is down.
   bool setInterfaceUpOrDown(Kem::String8 const& deviceName, bool up, int fd);
   bool continueProcessing() const { return continueProcessing_; }
   bool kernelCallFailed() const { return kernelCallFailed_; }
   void kernelCallFailedIs(bool failed) { kernelCallFailed_ = failed; }

   // --- Namespaces.
   void prepNs(Sulvi::NamespaceName const& dstNs);
   // The socket of the namespace that the record names; 0 when there is none.
   int nsSocketFdFromIntfStatusLocal(Kem::Ptr<Interface::EthIntfStatusLocal const> const& isl) const;
   void setIntfStatusLocalNetNsName(Kem::Ptr<Interface::EthIntfStatusLocal> const& intfStatusLocal,
                                    Sulvi::NamespaceName const& nsName);
   int nsSocketFd(Sulvi::NamespaceName const& ns) const { return sockets_.fd(ns); } // 0 when there is none
   void nsSocketFdIs(Sulvi::NamespaceName const& ns, int fd) { sockets_.fdIs(ns, fd); }
   int nsIntfRefcount(Sulvi::NamespaceName const& ns) const { return sockets_.count(ns); }
   // The namespace that the interface is counted in.
   Sulvi::NamespaceName nsOfIntf(Sulvi::IntfId intfId) const { return sockets_.place(intfId); }
   void nsIntfRefcountIs(Sulvi::NamespaceName const& ns, int count) { sockets_.countIs(ns, count); }
   // A record that says where its interface is came, changed or went (null): rebuilds the counts of an earlier
   // run.
   void countIntf(Sulvi::IntfId intfId, Kem::Ptr<Interface::EthIntfStatusLocal const> const& isl);

   // --- Retry and sweep.
   void addIntfToRetryCollection(Sulvi::IntfId intfId, Kem::String8 const& deviceName);
   void doRetryEvaluateIntfConfiguration();
   IntfSet const& retryIntfCollection() const { return retryIntfCollection_; }
   Sulvi::IntfId retryBookmark() const { return retryBookmark_; }
   Kem::Seconds retryTime() const { return kemClock_.timeMin(); } // Kem::never while nothing waits
   void doRemoveUnneededVlanNetworkDevices(int socketFd, Sulvi::NamespaceName const& ns);
   // The device of an interface that is gone and whose record of where it is went before it.
   void removeDeviceWherever(Kem::String8 const& deviceName);

   // --- What the derived class says and does; the base's own fail an assertion.
   virtual void doEvaluateInterfaceConfiguration(Sulvi::IntfId intfId);
   virtual Sulvi::EthAddr getIntfMacAddr(Sulvi::IntfId intfId) const;
   virtual void setIntfAddr(Sulvi::IntfId intfId, Sulvi::EthAddr const& intfMacAddr);
   virtual bool retryNeeded(Sulvi::IntfId intfId); // evaluates, and says whether that failed again
   virtual bool intfPresentInConfig(Kem::String8 const& ifName) const; // true for devices of others
   virtual bool intfPresentInStatus(Kem::String8 const& ifName) const;
   virtual Kem::Ptr<Interface::EthIntfStatusLocal> intfStatusLocal(Kem::String8 const& ifName) const;
   virtual bool isStandbyMode() const;
   virtual void armIntfConfigClock();
   // The number of the device in the picture of the kernel's devices, 0 when it isn't in it. A failure to find
   // one that is there is tried again.
   virtual uint32_t kernelDeviceIndex(Kem::String8 const& deviceName) const;

   // --- Attributes.
   bool fabricUp() const { return fabricUp_; }
   void fabricUpIs(bool up) { fabricUp_ = up; }
   uint16_t deviceVlanId(Kem::String8 const& deviceName) const; // 0 for none that is known to exist
   IntfSet const& intf() const { return intf_; }
   IntfSet const& intfBackLog() const { return intfBackLog_; }
   void intfIs(Sulvi::IntfId intfId, bool value) { memberIs(intf_, intfId, value); }
   void intfBackLogIs(Sulvi::IntfId intfId, bool value) { memberIs(intfBackLog_, intfId, value); }
   bool hasBridgeMacAddr() const;

  protected:
   void forEachPart(Kem::PartVisitor const& visit) override;
   // Steps of the derived class's start.
   void doInitIntfNamespaceConfig() { intfNamespaces_->handleInitialized(); }
   void handleNsByName(); // each namespace; those that nobody uses are swept once

  private:
   // --- Reactions.
   struct KemBridgingConfig final : Bridging::Config::NotifieeConst {
      explicit KemBridgingConfig(VlanIntfCommon& s) : NotifieeConst(this), sm(s) {}
      void onBridgeMacAddr() override { sm.evaluateInterfaceConfiguration(); }
      VlanIntfCommon& sm;
   };
   struct KemNetNsCollection final : KernelNetNsInfo::Root::NotifieeConst {
      explicit KemNetNsCollection(VlanIntfCommon& s) : NotifieeConst(this), sm(s) {}
      void onNetNsByName(Sulvi::NamespaceName const& name) override { sm.handleNsChange(name); }
      VlanIntfCommon& sm;
   };
   struct KemNetNs final : KernelNetNsInfo::NetNs::NotifieeConst {
      explicit KemNetNs(VlanIntfCommon& s) : NotifieeConst(this), sm(s) {}
      void onInode() override { sm.handleNsChange(notifier()->netNsName()); }
      VlanIntfCommon& sm;
   };
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(VlanIntfCommon& s) : sm(s) {}
      void onTime() override { sm.handleClock(); }
      VlanIntfCommon& sm;
   };
   void handleNsByName(Sulvi::NamespaceName const& name);
   void handleNsChange(Sulvi::NamespaceName const& name); // handles it, and sweeps a namespace that has come
   void handleClock();

   // --- Helpers.
   bool hasWork() const override { return !intfBackLog_.empty() && !isZombie(); }
   static void memberIs(IntfSet& set, Sulvi::IntfId intfId, bool value);
   bool leaveVanishedNs(Kem::Ptr<Interface::EthIntfStatusLocal> const& isl,
                        Sulvi::NamespaceName const& srcNs);
   void forgetReplacedNs(Sulvi::NamespaceName const& name);
   VlanCreateStatus takeOverOrRemake(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                     Kem::String8 const& deviceName, int socketFd,
                                     Sulvi::NamespaceName const& dstNs);
   VlanCreateStatus requestVlanDevice(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                      Kem::String8 const& deviceName, int socketFd,
                                      Sulvi::NamespaceName const& dstNs);
   void destroyOrSweepAgain(Kem::String8 const& deviceName, int fd, Sulvi::NamespaceName const& ns);
   bool isToBeLeft(Kem::String8 const& ifName, Sulvi::NamespaceName const& ns, int socketFd, bool isListed);
   bool removeStale(Kem::String8 const& ifName, Sulvi::NamespaceName const& ns, int socketFd);
   int visitNs(Sulvi::NamespaceName const& name);
   void sweepNamespacesAgain();
   void sweepUnusedNs(Sulvi::NamespaceName const& name);
   void sweepAgainIn(Sulvi::NamespaceName const& ns); // with the next retries

   VlanIntfInputs const in_;
   DeviceAbility ability_;
   NamespaceSockets sockets_;
   Kem::Ptr<IntfNamespaces> intfNamespaces_;
   Kem::HashMap<KemNetNs, Sulvi::NamespaceName> kemNetNs_;
   bool fabricUp_ = false;
   bool continueProcessing_ = false;
   bool kernelCallFailed_ = false;
   std::string createProblem_; // why the last doCreateVlanDevice failed, in words
   bool isVlanTaken_ = false;  // because the base has another device for that VLAN
   Kem::ValueMap<Kem::String8, uint16_t> deviceVlanId_;
   IntfSet retryIntfCollection_;
   Sulvi::IntfId retryBookmark_;               // where the pass paused; empty for the beginning
   std::set<Sulvi::NamespaceName> sweepAgain_; // something may be left there: a call failed
   IntfSet intf_;                              // every interface that the derived class has under evaluation
   IntfSet intfBackLog_;                       // those for its next slice
   KemBridgingConfig kemBridgingConfig_{*this};
   KemNetNsCollection kemNetNsCollection_{*this};
   KemClock kemClock_{*this};
};

// The kernel device of an interface: "vlan100" of "Vlan100", "et3_1.100" of "Ethernet3/1.100".
Kem::String8 deviceNameOf(Sulvi::IntfId intfId);

} // namespace Vorn
