#include "Sulvi/NamespaceName.h"

#include "Kem/Exception.h"

#include <ostream>
#include <utility>

namespace Sulvi {

namespace {

void checkSize(size_t bytes) {
   if (bytes > NamespaceName::maxBytes)
      Kem::throwRange("NamespaceName::bytes > 150 not allowed");
}

} // namespace

NamespaceName::NamespaceName(Kem::String8 name) {
   checkSize(name.size());
   name_ = std::move(name);
}

NamespaceName::NamespaceName(std::string_view name) {
   checkSize(name.size());
   name_ = name;
}

bool NamespaceName::isDefault() const {
   return empty() || *this == DEFAULT_NS;
}

NamespaceName NamespaceName::decode(Wire::Reader& reader) {
   std::string_view const name = reader.string();
   if (name.size() > maxBytes) {
      reader.fail();
      return {};
   }
   return NamespaceName(name);
}

std::ostream& operator<<(std::ostream& out, NamespaceName const& name) {
   return out << name.stringValue().view();
}

} // namespace Sulvi
