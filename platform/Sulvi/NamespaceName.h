// The name of a network namespace, at most 150 bytes. The empty name means that none is configured, and every
// reader takes it as the default namespace. It still isn't equal to DEFAULT_NS: ask isDefault() rather than
// compare, or replace it before it becomes a key.
#pragma once

#include "Kem/String.h"
#include "Kem/Wire.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Sulvi {

class NamespaceName {
  public:
   static constexpr size_t maxBytes = 150;

   NamespaceName() noexcept = default;
   // A longer name raises Kem::RangeException, "NamespaceName::bytes > 150 not allowed".
   NamespaceName(Kem::String8 name);
   NamespaceName(std::string_view name);
   NamespaceName(char const* name) : NamespaceName(std::string_view(name)) {}
   NamespaceName(std::string const& name) : NamespaceName(std::string_view(name)) {}

   bool empty() const { return name_.empty(); }
   // Whether this is the default namespace: the empty name or DEFAULT_NS.
   bool isDefault() const;
   Kem::String8 const& stringValue() const { return name_; }
   char const* charPtr() const { return name_.charPtr(); }
   uint32_t hash() const { return name_.hash(); }

   friend bool operator==(NamespaceName const&, NamespaceName const&) = default;
   friend std::strong_ordering operator<=>(NamespaceName const& a, NamespaceName const& b) {
      return a.name_ <=> b.name_;
   }

   void encode(Wire::Writer& writer) const { writer.string(name_); }
   // Fails the reader and returns the empty name when the name is too long.
   static NamespaceName decode(Wire::Reader& reader);

  private:
   Kem::String8 name_;
};

// The namespace that the agent runs in.
inline NamespaceName const DEFAULT_NS{"default"};

std::ostream& operator<<(std::ostream& out, NamespaceName const& name);

} // namespace Sulvi

template <>
struct std::hash<Sulvi::NamespaceName> {
   size_t operator()(Sulvi::NamespaceName const& name) const noexcept { return name.hash(); }
};
