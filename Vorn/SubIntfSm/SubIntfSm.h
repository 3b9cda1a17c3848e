// The subinterfaces of the switch: each configured one of an Ethernet port or a port channel becomes a Linux VLAN
// device on the device of its parent, with its address, MTU and state; its operational status is decided here, and
// the hardware agents are told whether to program it.
//
//    configuration, status records ──SubIntfConfigCodef──► KemSubIntfConfig ──► status record, device
//    parent's status and device, hardware, bridge address, namespaces ──► intfBackLog ──slices──┘
//
// Which condition holds a subinterface down is in Rules/SubIntfStatus.h, and what is common with VLAN interfaces in
// VlanIntfCommon. In standby mode devices follow the status that the active supervisor writes. Owned by the agent.
#pragma once

#include "Vorn/SubIntfSm/KemIntfStatus.h"
#include "Vorn/SubIntfSm/KemSubIntfConfig.h"
#include "Vorn/SubIntfSm/SubIntfConfigCodef.h"
#include "Vorn/SubIntfSm/SubIntfConfigOutput.h"
#include "Vorn/SubIntfSm/SubIntfInputs.h"
#include "Vorn/SubIntfSm/SubIntfsUnderParent.h"
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"
#include "records/KernelNetworkInfo/Interface.h"

#include <string>

namespace Vorn {

class SubIntfSm final : public VlanIntfCommon, private SubIntfConfigOutput {
  public:
   explicit SubIntfSm(SubIntfInputs const& in);
   // Sweeps devices that nobody wants and puts all that is configured into the deferred stage. Asserts that the
   // socket exists.
   void handleInitialized() override;

   SubIntfInputs const& in() const { return in_; }
   bool standbyMode() const { return standbyMode_; }
   void standbyModeIs(bool standbyMode); // handles a change
   // Null before handleInitialized().
   Kem::Ptr<SubIntfConfigCodef> const& subIntfConfigCodef() const { return subIntfConfigCodef_; }

   // --- Subinterfaces and their parents. Null when there is none.
   Kem::Ptr<KemSubIntfConfig> subIntfConfig(Sulvi::IntfId intfId) const;
   Kem::HashMap<KemSubIntfConfig, Sulvi::IntfId> const& subIntfConfig() const { return subIntfConfig_; }
   bool subIntfConfigAfterCodef(Sulvi::IntfId intfId) const override;
   Kem::Ptr<SubIntfsUnderParent> parentIntf(Sulvi::IntfId parentIntfId) const;
   // Finds or makes the record of the parent; a new one has its status and device followed.
   Kem::Ptr<SubIntfsUnderParent> parentIntfIs(Sulvi::IntfId parentIntfId);
   // The parent no longer has this subinterface; without any, its record goes.
   void subIntfDel(Sulvi::IntfId parentIntfId, Sulvi::IntfId intfId);

   // --- What subinterfaces ask for.
   uint32_t maxMtu() const { return in_.bridgingHwCapabilities->maxFrameSizeWithoutL2Encapsulation(); }
   void evaluateLater(Sulvi::IntfId intfId); // in the next slice
   // All subinterfaces of that parent are evaluated in the next slices.
   void handleParentIntfUpdate(Sulvi::IntfId parentIntfId);
   // Removes devices of that VLAN id on the parent whose interfaces are configured but not taken on: a start leaves
   // them alone, since their status records may still come.
   void takeVlanIdFromLeftovers(Sulvi::IntfId parentIntfId, uint16_t vlanId);
   // Takes up with the device in the picture of the kernel's devices, if it is there.
   void followKernelDevice(Kem::String8 const& deviceName);

   // --- What VlanIntfCommon asks for.
   void doEvaluateInterfaceConfiguration(Sulvi::IntfId intfId) override;
   Sulvi::EthAddr getIntfMacAddr(Sulvi::IntfId intfId) const override;
   void setIntfAddr(Sulvi::IntfId intfId, Sulvi::EthAddr const& addr) override;
   bool retryNeeded(Sulvi::IntfId intfId) override;
   bool intfPresentInConfig(Kem::String8 const& ifName) const override;
   bool intfPresentInStatus(Kem::String8 const& ifName) const override;
   Kem::Ptr<Interface::EthIntfStatusLocal> intfStatusLocal(Kem::String8 const& ifName) const override;
   bool isStandbyMode() const override { return standbyMode_; }
   void armIntfConfigClock() override { intfConfigClock_.timeMinIs(0); }
   uint32_t kernelDeviceIndex(Kem::String8 const& deviceName) const override;

  private:
   // --- Reactions.
   struct KemCapability final : Interface::Hardware::Capability::NotifieeConst {
      explicit KemCapability(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onSubintfSupported() override { sm.handleSubIntfSupported(); }
      SubIntfSm& sm;
   };
   struct KemKernelIntfCollection final : KernelNetworkInfo::Root::NotifieeConst {
      explicit KemKernelIntfCollection(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onInterfaceByName(Kem::String8 const& name) override { sm.handleKernelDeviceByName(name); }
      SubIntfSm& sm;
   };
   struct KemKernelDevice final : KernelNetworkInfo::Interface::NotifieeConst {
      explicit KemKernelDevice(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onFlags() override { sm.handleKernelDeviceFlags(notifier()->ifName()); }
      void onIfIndex() override { sm.handleKernelDeviceReplaced(notifier()->ifName()); }
      void onMtu() override { sm.handleKernelDeviceMtu(notifier()->ifName()); }
      SubIntfSm& sm;
   };
   struct KemAllIntfStatusDir final : Interface::AllIntfStatusDir::NotifieeConst {
      explicit KemAllIntfStatusDir(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleAllIntfStatus(intfId); }
      SubIntfSm& sm;
   };
   struct KemStatusDir final : Interface::SubIntfStatusDir::NotifieeConst {
      explicit KemStatusDir(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      SubIntfSm& sm;
   };
   struct KemStatusLocalDir final : Interface::SubIntfStatusLocalDir::NotifieeConst {
      explicit KemStatusLocalDir(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatusLocal(Sulvi::IntfId intfId) override { sm.handleIntfStatusLocal(intfId); }
      SubIntfSm& sm;
   };
   struct KemHwStatusDir final : Interface::Hardware::SubIntfStatusDir::NotifieeConst {
      explicit KemHwStatusDir(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onSubIntfStatus(Sulvi::IntfId intfId) override { sm.handleSubIntfHwStatus(intfId); }
      SubIntfSm& sm;
   };
   struct KemHwCapabilities final : Bridging::HwCapabilities::NotifieeConst {
      explicit KemHwCapabilities(SubIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onMaxFrameSize() override { sm.handleBridgingMaxFrameSize(); }
      SubIntfSm& sm;
   };
   struct KemIntfConfigClock final : Kem::Clock::NotifieeConst {
      explicit KemIntfConfigClock(SubIntfSm& s) : sm(s) {}
      void onTime() override { sm.handleIntfConfigClock(); }
      SubIntfSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleSubIntfSupported();
   void handleKernelDeviceByName(Kem::String8 const& name);
   void handleKernelDeviceFlags(Kem::String8 const& name);
   void handleKernelDeviceReplaced(Kem::String8 const& name);
   void handleKernelDeviceMtu(Kem::String8 const& name);
   void handleAllIntfStatus(Sulvi::IntfId intfId);
   void handleIntfStatus();
   void handleIntfStatus(Sulvi::IntfId intfId);
   void handleIntfStatusLocal();
   void handleIntfStatusLocal(Sulvi::IntfId intfId);
   void handleSubIntfHwStatus(Sulvi::IntfId intfId);
   void handleBridgingMaxFrameSize();
   void handleIntfConfigClock();
   void handleStandbyMode();

   // --- What the deferred stage calls.
   void subIntfConfigAfterCodefIs(Sulvi::IntfId intfId) override;
   void subIntfConfigAfterCodefDel(Sulvi::IntfId intfId) override;
   void subIntfConfigInitialize(Kem::Ptr<Interface::SubIntfConfig const> const& cfgOut) override;
   void subIntfConfigGone(Sulvi::IntfId intfId) override;
   void subIntfConfigRefused(Sulvi::IntfId intfId, std::string const& problem) override;
   void subIntfConfigBacklogEmpty() override;
   AttrLogCheck* attrLogCheck() const override;

   // --- Helpers.
   void evaluateAllLater();
   void takeStatusDown(Sulvi::IntfId intfId);
   // The subinterface whose device has that name, if it is one that the switch can have; else the empty id.
   static Sulvi::IntfId subIntfOfDevice(Kem::String8 const& ifName);

   SubIntfInputs const in_;
   bool standbyMode_;
   Kem::ValueMap<Sulvi::IntfId, bool> subIntfConfigAfterCodef_; // the value is always true
   Kem::HashMap<KemSubIntfConfig, Sulvi::IntfId> subIntfConfig_;
   Kem::Ptr<SubIntfConfigCodef> subIntfConfigCodef_;
   Kem::HashMap<SubIntfsUnderParent, Sulvi::IntfId> parentIntf_;
   Kem::HashMap<KemIntfStatus, Sulvi::IntfId> intfStatus_; // of parents that have one
   Kem::HashMap<KemKernelDevice, Kem::String8>
       kemKernelDevice_; // of subinterfaces and parents, in the picture
   KemCapability kemCapability_{*this};
   KemKernelIntfCollection kemKernelIntfCollection_{*this};
   KemAllIntfStatusDir kemAllIntfStatusDir_{*this};
   KemStatusDir kemStatusDir_{*this};
   KemStatusLocalDir kemStatusLocalDir_{*this};
   KemHwStatusDir kemHwStatusDir_{*this};
   KemHwCapabilities kemHwCapabilities_{*this};
   KemIntfConfigClock intfConfigClock_{*this};
};

Kem::Ptr<SubIntfSm> subIntfSmFactory(SubIntfInputs const& in);

} // namespace Vorn
