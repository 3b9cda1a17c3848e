// Which files there are: a header for each entity, one with the value types of each namespace, one that
// includes all of a namespace, and a source for each schema file.
#include "Emit.h"

namespace RecordGen {

namespace {

std::string sourceOf(Model const& model, Names const& names, std::string const& file) {
   std::set<std::string> headers = {"records/Codec.h"};
   Text body;
   body.put(typesSource(model, names, file));
   std::string open;
   for (auto const& entity : model.entities) {
      if (entity->isDirectory() || entity->at.file != file)
         continue;
      if (open != entity->nameSpace) {
         if (!open.empty())
            body.gap().put(closeNamespace(open));
         open = entity->nameSpace;
         body.gap().put(openNamespace(open));
      }
      body.gap().put(entitySource(names, *entity, headers));
   }
   if (!open.empty())
      body.gap().put(closeNamespace(open));
   for (auto const& type : model.types)
      if (!type->isBuiltIn && type->at.file == file)
         headers.insert(typesHeaderOf(type->nameSpace));

   Text out;
   out.put(banner(stemOf(file) + ".schema"));
   for (auto const& header : headers)
      out.put("#include \"" + header + '"');
   out.gap().put("#include <ostream>").gap().put(body.str());
   return out.str();
}

} // namespace

std::map<std::string, std::string> cppFiles(Model const& model) {
   Names const names(model);
   std::map<std::string, std::string> files;
   std::map<std::string, std::set<std::string>> all; // headers by namespace
   for (auto const& type : model.types)
      if (!type->isBuiltIn)
         all[type->nameSpace].insert(typesHeaderOf(type->nameSpace));
   for (auto const& [nameSpace, headers] : all)
      files[typesHeaderOf(nameSpace)] = folded(typesHeader(model, names, nameSpace));
   for (auto const& entity : model.entities) {
      if (entity->isDirectory())
         continue;
      files[headerOf(*entity)] = folded(entityHeader(names, *entity));
      all[entity->nameSpace].insert(headerOf(*entity));
   }
   for (auto const& [nameSpace, headers] : all) {
      Text out;
      out.put(banner("the schema files"))
          .put("// All records and types of " + nameSpace + ".\n#pragma once")
          .gap();
      for (auto const& header : headers)
         out.put("#include \"" + header + '"');
      files["records/" + slashed(nameSpace) + ".h"] = out.str();
   }
   for (auto const& file : model.files)
      files[stemOf(file) + ".cpp"] = folded(sourceOf(model, names, file));
   files["schema.cpp"] = schemaSource(model);
   files["type_info.cpp"] = typeInfoSource(model);
   return files;
}

} // namespace RecordGen
