#include "Plaze/BridgingStatus.h"

namespace Plaze::Bridging {

Kem::TypeInfo const Status::typeInfo_ = {"Plaze::Bridging::Status", Kem::noTypeId, nullptr, nullptr};

Kem::Ptr<Status> Status::make(Kem::Name name, std::string filePath) {
   return Kem::Ptr<Status>::adopt(new Status(std::move(name), std::move(filePath)));
}

Status::Status(Kem::Name name, std::string filePath)
    : TypedTable(std::move(name), *tableType(typeInfo_.name), std::move(filePath)) {
   follow();
}

} // namespace Plaze::Bridging
