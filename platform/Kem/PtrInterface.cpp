#include "Kem/PtrInterface.h"

namespace Kem {

PtrInterface::~PtrInterface() = default;

void PtrInterface::onZeroReferences() {
   // A destructor may take and drop references of the dying object: they must not
   // bring the count to zero again.
   word_.fetch_add(dyingBias, std::memory_order_relaxed);
   delete this;
}

} // namespace Kem
