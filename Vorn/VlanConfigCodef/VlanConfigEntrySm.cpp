#include "Vorn/VlanConfigCodef/VlanConfigEntrySm.h"

namespace Vorn {

VlanConfigEntrySm::VlanConfigEntrySm(Bridging::VlanId vlanId,
                                     Kem::Ptr<Bridging::Input::VlanConfig const> const& vcfgIn,
                                     Kem::Ptr<Bridging::Input::VlanConfig> vcfgOut)
    : vlanId_(vlanId), vcfgOut_(std::move(vcfgOut)) {
   kemVcfgIn_.notifierIs(vcfgIn);
}

void VlanConfigEntrySm::handleConfiguredName() {
   vcfgOut_->configuredNameIs(vcfgIn()->configuredName());
}

void VlanConfigEntrySm::handleAdminState() {
   vcfgOut_->adminStateIs(vcfgIn()->adminState());
}

void VlanConfigEntrySm::handleTrunkGroup(Kem::String8 const& name) {
   auto const in = vcfgIn();
   if (auto const* const value = in->trunkGroup().find(name))
      vcfgOut_->trunkGroupIs(name, *value);
   else
      vcfgOut_->trunkGroupDel(name);
}

void VlanConfigEntrySm::handleVlanTypeAndPrimaryVlan() {
   vcfgOut_->vlanTypeAndPrimaryVlanIs(vcfgIn()->vlanTypeAndPrimaryVlan());
}

} // namespace Vorn
