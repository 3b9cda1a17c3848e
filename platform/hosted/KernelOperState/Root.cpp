#include "KernelOperState/Root.h"

#include "Kem/Activity.h"

namespace KernelOperState {

namespace {

template <class T>
Kem::Ptr<T> recordIs(Kem::Ptr<T>& record, Kem::Name const& name) {
   if (!record) {
      record = T::make();
      record->nameIs(name);
   }
   return record;
}

template <class T, class... Inputs>
Kem::Ptr<T> machineIs(Kem::Ptr<T>& machine, Inputs const&... inputs) {
   if (!machine)
      machine = Kem::makePtr<T>(inputs...);
   return machine;
}

} // namespace

Kem::Ptr<IntfStatusDir> Root::intfStatusDirIs(Kem::Name const& name) {
   return recordIs(intfStatusDir_, name);
}

Kem::Ptr<IntfStatusLocalDir> Root::intfStatusLocalDirIs(Kem::Name const& name) {
   return recordIs(intfStatusLocalDir_, name);
}

Kem::Ptr<KernelNetNsInfo::Root> Root::netNsCollectionIs(Kem::Name const& name) {
   return recordIs(netNsCollection_, name);
}

Kem::Ptr<KernelNetNsInfo::Manager>
Root::netNsManagerIs(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                     Kem::Ptr<KernelNetNsInfo::Root> const& netNsCollection) {
   return machineIs(netNsManager_, kemFwkActivity, netNsCollection);
}

Kem::Ptr<KernelOperStateManager> Root::kosmIs() {
   return machineIs(kosm_);
}

Kem::Ptr<IntfStatusOperStatusSm>
Root::intfStatusOperStatusSmIs(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                               Kem::Ptr<IntfStatusDir const> const& intfStatusDir,
                               Kem::Ptr<IntfStatusLocalDir const> const& intfStatusLocalDir,
                               Kem::Ptr<KernelOperStateManager> const& kosm,
                               Kem::Ptr<KernelNetNsInfo::Root const> const& netNsCollection) {
   return machineIs(intfStatusOperStatusSm_, kemFwkActivity, intfStatusDir, intfStatusLocalDir, kosm,
                    netNsCollection);
}

} // namespace KernelOperState
