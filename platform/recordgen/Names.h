// How things of the schema are named in C++, seen from a namespace: short where they are of that namespace.
#pragma once

#include "Model.h"
#include "Text.h"

#include <set>
#include <string>

namespace RecordGen {

class Names {
  public:
   explicit Names(Model const& model);

   std::string of(ValueType const& type, std::string const& from) const;
   std::string of(Entity const& entity, std::string const& from) const;
   // As a parameter or a result: small types as they are, others as const&.
   std::string passed(ValueType const& type, std::string const& from) const;
   // The default in C++, for an initializer; empty for one that a default constructed value has.
   std::string initial(ValueType const& type, Literal const& literal, std::string const& from) const;

  private:
   std::string qualified(std::string const& nameSpace, std::string const& name,
                         std::string const& from) const;
   std::set<std::string> known_; // full names of all types and namespaces
};

// "records/Bridging/Input/VlanConfig.h", "records/Bridging/types.h"
std::string headerOf(Entity const& entity);
std::string typesHeaderOf(std::string const& nameSpace);
// Name of the schema file without folders and ending.
std::string stemOf(std::string const& file);

// Names of the types on which these depend, that #include needs: "Sulvi/IntfId.h",
// "records/Bridging/types.h".
void addHeader(std::set<std::string>& headers, ValueType const& type);

std::string banner(std::string const& source);
// "namespace Bridging::Input {" for all that follow, and its end.
std::string openNamespace(std::string const& nameSpace);
std::string closeNamespace(std::string const& nameSpace);

} // namespace RecordGen
