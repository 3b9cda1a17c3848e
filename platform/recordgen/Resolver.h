// Gives the names of a parsed model their meaning, and checks all that the emitters rely on.
#pragma once

#include "Model.h"

namespace RecordGen {

// Built-in types and Kem::Dir; to be called before the first file is parsed.
void addBuiltIns(Model& model);

// Resolves what the files declared. Every problem is added to model.errors; the rest of the model is complete
// only when there is none.
void resolve(Model& model);

} // namespace RecordGen
