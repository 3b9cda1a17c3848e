// What a record and all below it hold, as a sorted list: of the database's own tree, and of a record that a
// client has put together. Two that hold the same make the same list.
#pragma once

#include "Kem/Entity.h"
#include "Ordel/store/Tree.h"

#include <map>
#include <string>
#include <vector>

namespace Model {

std::vector<std::string> listing(Ordel::Tree const& tree, Ordel::Entity const& entity);
std::vector<std::string> listing(Kem::Entity const& entity);

// By port, the name of the input that holds the record that the database's directory of chosen records
// refers to.
std::map<std::string, std::string> chosenInputs(Ordel::Tree const& tree, char const* path);

} // namespace Model
