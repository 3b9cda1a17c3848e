#include "Kem/PtrInterface.h"

namespace Kem {

PtrInterface::~PtrInterface() = default;

void PtrInterface::onZeroReferences() { delete this; }

} // namespace Kem
