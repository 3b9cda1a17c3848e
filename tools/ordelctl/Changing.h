// The commands that write: set, create, delete, load. Each is one strict write, done whole or not at all.
//
// Raised: TreeJson::SyntaxError for text that isn't JSON, TreeJson::Absent when what is to be changed doesn't
// exist, TreeJson::Refusal for a change that isn't possible.
#pragma once

#include "Nodes.h"
#include "records/Schema.h"

#include <string>
#include <string_view>

namespace Ordelctl {

// A value as it was given: in a batch as JSON, on a command line perhaps as a bare word.
struct Given {
   std::string text;
   bool isWord = true;

   // `type`: of the values at the place that it is meant for; null if unknown, or if no single value
   // belongs there.
   std::string json(Records::ValueType const* type) const;
};

void set(Nodes& nodes, std::string_view selector, Given const& value);
void create(Nodes& nodes, std::string_view path, std::string_view type);
void erase(Nodes& nodes, std::string_view selector);
// `text` is a document.
void load(Nodes& nodes, std::string_view text);

} // namespace Ordelctl
