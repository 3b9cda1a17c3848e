#include "Kem/Record.h"

namespace Kem {

void throwReinstantiating(char const* attribute, std::string const& standing, std::string const& asked) {
   throwRange("Reinstantiating the pointer interface where constructor parameter attribute _" +
              std::string(attribute) + " has a different value of " + standing +
              " than the current value of " + asked + " not allowed");
}

void throwNullParameter(char const* attribute, char const* type) {
   throwRange("null _" + std::string(attribute) + " parameter to mutator for " + type + "::" + attribute +
              " not allowed");
}

} // namespace Kem
