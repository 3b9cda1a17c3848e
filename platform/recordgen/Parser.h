// Reads schema files into the model. Names are kept as written, with the namespace that they were written in;
// what they mean is the resolver's matter.
#pragma once

#include "Model.h"

#include <string>
#include <string_view>

namespace RecordGen {

// Adds what the file declares. Throws SchemaError at the first thing that breaks the grammar.
void parse(Model& model, std::string const& file, std::string_view text);

} // namespace RecordGen
