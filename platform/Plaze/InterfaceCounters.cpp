#include "Plaze/InterfaceCounters.h"

namespace Plaze::Interface {

Kem::TypeInfo const AllIntfCounterDir::typeInfo_ = {"Plaze::Interface::AllIntfCounterDir", Kem::noTypeId,
                                                    nullptr, nullptr};

Kem::Ptr<AllIntfCounterDir> AllIntfCounterDir::make(Kem::Name name, std::string filePath) {
   return Kem::Ptr<AllIntfCounterDir>::adopt(new AllIntfCounterDir(std::move(name), std::move(filePath)));
}

AllIntfCounterDir::AllIntfCounterDir(Kem::Name name, std::string filePath)
    : TypedTable(std::move(name), *tableType(typeInfo_.name), std::move(filePath)) {
   follow();
}

} // namespace Plaze::Interface
