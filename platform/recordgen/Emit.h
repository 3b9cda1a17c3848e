// The emitters: each writes one kind of text from a resolved model. None of them can fail.
#pragma once

#include "Model.h"
#include "Names.h"

#include <cstdint>
#include <map>
#include <string>

namespace RecordGen {

// Value types of one namespace: the header, and what goes into the source of one schema file.
std::string typesHeader(Model const& model, Names const& names, std::string const& nameSpace);
std::string typesSource(Model const& model, Names const& names, std::string const& file);

// One entity: its header; its part of the source of its schema file, and the headers that this part needs.
std::string entityHeader(Names const& names, Entity const& entity);
std::string entitySource(Names const& names, Entity const& entity, std::set<std::string>& headers);

// Records::schema() and Records::typeInfo().
std::string schemaSource(Model const& model);
std::string typeInfoSource(Model const& model);
// Of everything that the wire form depends on.
uint64_t fingerprint(Model const& model);

// docs/records.md
std::string document(Model const& model);

// All files of the C++ side by their path: headers under "records/", sources beside.
std::map<std::string, std::string> cppFiles(Model const& model);

} // namespace RecordGen
