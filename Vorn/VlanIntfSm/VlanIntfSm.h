// The VLAN interfaces of the switch: each configured one becomes a Linux device "vlanN" on the fabric device, with
// its address, MTU and administrative state, and the processor's port joins its VLAN.
//
//    configuration ──VlanIntfConfigCodef──► vlanIntfConfigAfterCodef ──► KemVlanIntfConfig ──► device
//    status records, fabric device, bridge address, namespaces ─────────────────┘
//
// What is common with subinterfaces is in VlanIntfCommon. The operational state is decided elsewhere
// (VlanOperStatus); this one gives the records to the mirror that takes it down to the kernel. In standby mode
// devices are made just the same, and no record that both supervisors share is written. Owned by the agent.
#pragma once

#include "Vorn/BridgingSm/VlanInterfaces.h"
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"
#include "Vorn/VlanIntfSm/FabricInterfaceReactor.h"
#include "Vorn/VlanIntfSm/KemVlanIntfConfig.h"
#include "Vorn/VlanIntfSm/VlanIntfAddrs.h"
#include "Vorn/VlanIntfSm/VlanIntfConfigCodef.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/Interface/VlanIntfStatusLocalDir.h"
#include "records/KernelNetworkInfo/Root.h"
#include "records/PrivateVlanLib/LibState.h"

namespace Vorn {

struct VlanIntfSmInputs : VlanIntfInputs {
   Kem::Ptr<KernelNetworkInfo::Root> kernelIntfCollection;
   Kem::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir;
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> vlanIntfStatusLocalDir;
   Kem::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfigDir;
   Kem::Ptr<DynVlanIntfList> dynVlanIntfList;
   Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState;
   Kem::Ptr<Kem::Dir const> interfaceInputVlan;
   bool standbyMode = false;
};

class VlanIntfSm final : public VlanIntfCommon {
  public:
   static constexpr Kem::Seconds evaluationSlice = 0.1;

   explicit VlanIntfSm(VlanIntfSmInputs const& in);
   // Asserts that agent, merger of dynamic sources and socket exist.
   void handleInitialized() override;

   bool standbyMode() const { return standbyMode_; }
   void standbyModeIs(bool standbyMode); // handles a change
   Kem::Ptr<Interface::VlanIntfStatusDir> const& vlanIntfStatusDir() const { return in_.vlanIntfStatusDir; }
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> const& vlanIntfStatusLocalDir() const {
      return in_.vlanIntfStatusLocalDir;
   }
   Kem::Ptr<VlanIntfConfigCodef> const& vlanIntfConfigCodef() const { return vlanIntfConfigCodef_; }

   // --- Interfaces.
   using VlanIntfConfigs = Kem::HashMap<KemVlanIntfConfig, Sulvi::IntfId>;
   VlanIntfConfigs const& vlanIntfConfig() const { return vlanIntfConfig_; }
   Kem::Ptr<KemVlanIntfConfig> vlanIntfConfig(Sulvi::IntfId intfId) const; // null when there is none
   // What the deferred stage has passed on; null when there is none.
   Kem::Ptr<Interface::VlanIntfConfig const> vlanIntfConfigAfterCodef(Sulvi::IntfId intfId) const;
   void vlanIntfConfigAfterCodefIs(Kem::Ptr<Interface::VlanIntfConfig const> const& config);
   void vlanIntfConfigAfterCodefDel(Sulvi::IntfId intfId);

   // --- What interfaces ask for.
   uint32_t maxMtu() const { return in_.bridgingHwCapabilities->maxFrameSizeWithoutL2Encapsulation(); }
   bool isSecondaryVlan(uint16_t vlanId) const;
   // Brings the processor's port of the VLAN in step with its interface, by the rule of resolved VLANs. Nothing
   // for a number that is no VLAN, and for a VLAN that doesn't exist.
   void syncCpuPort(uint16_t vlanId);
   void doSyncCpuPort(Bridging::VlanConfig const& primary, Bridging::VlanConfig& secondary);

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
   struct KemKernelIntfCollection final : KernelNetworkInfo::Root::NotifieeConst {
      explicit KemKernelIntfCollection(VlanIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onInterfaceByName(Kem::String8 const& name) override { sm.handleInterfaceByName(name); }
      VlanIntfSm& sm;
   };
   struct KemStatusDir final : Interface::VlanIntfStatusDir::NotifieeConst {
      explicit KemStatusDir(VlanIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      VlanIntfSm& sm;
   };
   struct KemStatusLocalDir final : Interface::VlanIntfStatusLocalDir::NotifieeConst {
      explicit KemStatusLocalDir(VlanIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatusLocal(Sulvi::IntfId intfId) override { sm.handleIntfStatusLocal(intfId); }
      VlanIntfSm& sm;
   };
   struct KemPrivateVlanLibState final : PrivateVlanLib::LibState::NotifieeConst {
      explicit KemPrivateVlanLibState(VlanIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onSecondaryVlan(Bridging::VlanId vlanId) override { sm.handleSecondaryVlan(vlanId); }
      VlanIntfSm& sm;
   };
   struct KemHwCapabilities final : Bridging::HwCapabilities::NotifieeConst {
      explicit KemHwCapabilities(VlanIntfSm& s) : NotifieeConst(this), sm(s) {}
      void onMaxFrameSize() override { sm.handleBridgingMaxFrameSize(); }
      VlanIntfSm& sm;
   };
   struct KemIntfConfigClock final : Kem::Clock::NotifieeConst {
      explicit KemIntfConfigClock(VlanIntfSm& s) : sm(s) {}
      void onTime() override { sm.handleIntfConfigClock(); }
      VlanIntfSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleInterfaceByName(Kem::String8 const& name);
   bool isAnotherDevice(Kem::String8 const& deviceName);
   void handleIntfStatus(Sulvi::IntfId intfId);
   void dropConfigOf(Sulvi::IntfId intfId);
   void handleIntfStatusLocal(Sulvi::IntfId intfId);
   void handleSecondaryVlan(Bridging::VlanId vlanId);
   void handleBridgingMaxFrameSize();
   void handleIntfConfigClock();
   void handleStandbyMode();

   VlanIntfSmInputs const in_;
   bool standbyMode_;
   VlanInterfaces const vlanInterfaces_;
   Kem::HashMap<Interface::VlanIntfConfig const, Sulvi::IntfId> vlanIntfConfigAfterCodef_;
   VlanIntfConfigs vlanIntfConfig_;
   Kem::Ptr<VlanIntfConfigCodef> vlanIntfConfigCodef_;       // null before handleInitialized()
   Kem::Ptr<FabricInterfaceReactor> fabricInterfaceReactor_; // null without a fabric device
   Kem::Ptr<VlanIntfAddrs> const vlanIntfAddrs_;
   Kem::ValueMap<Kem::String8, uint32_t> knownIndexes_; // of devices "vlanN" of the default namespace
   KemKernelIntfCollection kemKernelIntfCollection_{*this};
   KemStatusDir kemStatusDir_{*this};
   KemStatusLocalDir kemStatusLocalDir_{*this};
   KemPrivateVlanLibState kemPrivateVlanLibState_{*this};
   KemHwCapabilities kemHwCapabilities_{*this};
   KemIntfConfigClock intfConfigClock_{*this};
};

Kem::Ptr<VlanIntfSm> vlanIntfSmFactory(VlanIntfSmInputs const& in);

} // namespace Vorn
