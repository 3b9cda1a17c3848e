#include "Plaze/Mount.h"

#include "Kem/Trace.h"
#include "Plaze/BridgingStatus.h"
#include "Plaze/InterfaceCounters.h"

namespace KemPlaze {

namespace {

Kem::TraceFacility mountTrace("Plaze::Mount");

// Null for a type that there isn't.
Kem::Ptr<Kem::Entity> makeTable(std::string const& type, Kem::Name name, std::string filePath) {
   if (type == Plaze::Bridging::Status::typeInfo_.name)
      return Plaze::Bridging::Status::make(std::move(name), std::move(filePath));
   if (type == Plaze::Interface::AllIntfCounterDir::typeInfo_.name)
      return Plaze::Interface::AllIntfCounterDir::make(std::move(name), std::move(filePath));
   return nullptr;
}

} // namespace

Mount::Mount(std::string systemName, std::string root)
    : systemName_(std::move(systemName)), root_(std::move(root)) {
   handleInitialized();
}

Mount::~Mount() = default;

void Mount::handleInitialized() {
   refusal_ = Plaze::whyNotSystemName(systemName_);
   if (refusal_.empty() && !root_.starts_with('/'))
      refusal_ = "\"" + root_ + "\" is no absolute path";
}

Kem::Ptr<Kem::Entity> Mount::doMount(std::string const& path, std::string const& type,
                                     MountInfo const& info) {
   auto refuse = [&](std::string const& why) {
      KEM_TRACE(mountTrace, 0, "mount of " << path << " as " << type << " refused: " << why);
      return nullptr;
   };
   if (!refusal_.empty())
      return refuse(refusal_);
   if (std::string const why = Plaze::whyNotPath(path); !why.empty())
      return refuse(why);
   if (info.mode != keyShadow)
      return refuse("no mode " + std::to_string(info.mode) + ", only " + std::to_string(keyShadow));
   if (auto const standing = getEntity(path))
      return standing->typeInfo().name == type
                 ? standing
                 : refuse(std::string("it is mounted as ") + standing->typeInfo().name);
   auto const table = makeTable(type, path, root_ + Plaze::publishedPath(systemName_, path));
   if (!table)
      return refuse("there is no such type of table");
   entities_.emplace(path, table);
   KEM_TRACE(mountTrace, 5, "mounted " << path << " as " << type);
   return table;
}

Kem::Ptr<Kem::Entity> Mount::getEntity(std::string const& path) const {
   auto const at = entities_.find(path);
   return at == entities_.end() ? nullptr : at->second;
}

} // namespace KemPlaze
