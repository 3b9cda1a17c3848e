// What the two emitters of an entity share: the words of an attribute, and parameter lists.
#pragma once

#include "Model.h"
#include "Names.h"

namespace RecordGen {

// C class, x attribute, X with a capital, id its enumerator, T type of the value or of the target, in type of
// a parameter of it, K and kin the same of the key, Map type of the collection.
Words wordsOf(Names const& names, Entity const& entity, Attribute const& attribute);

// What a reader of the attribute has to know of the one that overrules it; empty when there is none.
std::string unlessText(Attribute const& attribute);

// What its keys can't be; empty when all are legal.
std::string keysText(Attribute const& attribute);

// When it can't be 0; empty when it always can.
std::string whileText(Field const& field);

enum class Defaults { shown, left };
// "VlanId vlanId, bool internal = false" of the constructor: the key, then inputs. Another name for the key
// where it is given.
std::string parameters(Names const& names, Entity const& entity, std::string const& from, Defaults defaults,
                       std::string const& keyName = "");
// "vlanId, internal"
std::string arguments(Entity const& entity, std::string const& keyName = "");

} // namespace RecordGen
