#include "Vorn/VornAgent/RoutedInterfaces.h"

#include "Kem/Dir.h"
#include "Ordel/client/Cell.h"
#include "Vorn/VornAgent/Made.h"
#include "Vorn/VornAgent/VornAgent.h"

namespace Vorn {

RoutedInterfaces::RoutedInterfaces(Agent& agent)
    : agent_(agent), em_(*agent.entityManager()),
      problems_(Kem::makePtr<DeviceProblems>(agent.agentStatus())) {}

AttrLogCheck* RoutedInterfaces::roomToWrite() {
   return &agent_.attrLogCheck();
}

Kem::Ptr<DynVlanIntfReactor> const& RoutedInterfaces::dynVlanIntfSm() const {
   return agent_.dynVlanIntfSm();
}

// The mounted record, or an empty one of this process where the database has no such place.
template <class T>
Kem::Ptr<T> RoutedInterfaces::entityOrEmpty(std::string const& path) const {
   auto const mounted = em_.entity<T>(path);
   return mounted ? mounted : T::make();
}

VlanIntfInputs RoutedInterfaces::common() const {
   auto const& kosr = agent_.kernelOperStateRoot();
   return {
       .fabricDeviceName = agent_.fabricDeviceName(),
       .socketFd = agent_.socketFd(),
       .netlinkFd = agent_.netlinkFd(),
       .kernelOperStateManager = kosr->kosm(),
       .kernelOperStateRoot = kosr,
       .bridgingConfig = entityOrEmpty<Bridging::Config>("bridging/config"),
       .bridgingHwCapabilities = entityOrEmpty<Bridging::HwCapabilities>("bridging/hwcapabilities"),
       .netNsCollection = agent_.netNsCollection(),
       .allIntfNamespaceConfigDir =
           entityOrEmpty<Interface::AllIntfNamespaceConfigDir>(Cell::path("interface/nsconfig", 0)),
       .clock = Kem::ActivityFacility::clock(),
       .vornAgent = const_cast<RoutedInterfaces*>(this),
       .problems = problems_,
   };
}

void RoutedInterfaces::makeVlanIntfSm() {
   VlanIntfSmInputs in;
   static_cast<VlanIntfInputs&>(in) = common();
   in.kernelIntfCollection = agent_.kernelNetworkInfoRoot();
   in.vlanIntfStatusDir = entityOrEmpty<Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
   in.vlanIntfStatusLocalDir =
       entityOrEmpty<Interface::VlanIntfStatusLocalDir>(Cell::path("interface/status/eth/vlan/local", 0));
   in.vlanIntfConfigDir = entityOrEmpty<Interface::VlanIntfConfigDir>("interface/config/eth/vlan");
   in.dynVlanIntfList = agent_.dynVlanIntfList();
   in.privateVlanLibState = agent_.privateVlanLibState();
   in.interfaceInputVlan = em_.entity<Kem::Dir>("interface/input/vlan");
   in.standbyMode = agent_.standbyMode();
   vlanIntfSm_ = made("vlanIntfSm", vlanIntfSmFactory(in));
}

void RoutedInterfaces::makeSubIntfSm() {
   SubIntfInputs in;
   static_cast<VlanIntfInputs&>(in) = common();
   in.kernelIntfCollection = agent_.kernelNetworkInfoRoot();
   in.subIntfStatusDir = entityOrEmpty<Interface::SubIntfStatusDir>("interface/status/subintf");
   in.subIntfStatusLocalDir =
       entityOrEmpty<Interface::SubIntfStatusLocalDir>(Cell::path("interface/status/subintf/local", 0));
   in.subIntfConfigDir = entityOrEmpty<Interface::SubIntfConfigDir>("interface/config/subintf");
   in.intfHwCapability = entityOrEmpty<Interface::Hardware::Capability>("interface/hardware/capability");
   in.subIntfHwStatusDir =
       entityOrEmpty<Interface::Hardware::SubIntfStatusDir>("interface/hardware/status/subintf");
   in.allIntfStatusDir = entityOrEmpty<Interface::AllIntfStatusDir>("interface/status/all");
   in.oxaState = agent_.oxaState();
   in.standbyMode = agent_.standbyMode();
   subIntfSm_ = made("subIntfSm", subIntfSmFactory(in));
}

void RoutedInterfaces::handleActive() {
   if (vlanIntfSm_)
      vlanIntfSm_->standbyModeIs(false);
   if (subIntfSm_)
      subIntfSm_->standbyModeIs(false);
}

} // namespace Vorn
