// Documents: what `load` takes and `dump` gives.
//
//    {"bridging/input/config/lag": {"$type": "Bridging::Input::Config", "vlanConfig": {"10": {}}}, …}
//
// Each name is the path of an entity; its object says what to set. What is missing is created, what isn't
// given stays. A document becomes one block of operations, so that the database takes all of it or nothing.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Tree.h"

#include <string>
#include <string_view>
#include <vector>

namespace TreeJson {

class Document {
  public:
   // Reads through the text once. Raises SyntaxError when it isn't JSON, and Refusal when it isn't an object
   // of paths and objects, names a path twice, or names one that no entity can have. The text must live as
   // long as the document.
   explicit Document(std::string_view text);

   std::vector<std::string> const& paths() const { return paths_; }
   // The operations that apply the document. The tree must know the directories above each path, as far as
   // they exist, and all entries of these directories. Raises Refusal.
   void operations(Ordel::Tree const& tree, Wire::Writer& out) const;

  private:
   std::string_view text_;
   std::vector<std::string> paths_; // in the order of the text
};

} // namespace TreeJson
