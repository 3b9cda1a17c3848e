#include "Kem/Record.h"

namespace Kem {

void throwReinstantiating(char const* attribute, std::string const& wanted, std::string const& current) {
   throwRange("Reinstantiating the pointer interface where constructor parameter attribute _" +
              std::string(attribute) + " has a different value of " + wanted + " than the current value of " +
              current + " not allowed");
}

void throwNullParameter(char const* attribute, char const* type) {
   throwRange("null _" + std::string(attribute) + " parameter to mutator for " + type + "::" + attribute +
              " not allowed");
}

} // namespace Kem
