// recordgen: the schema compiler. Reads *.schema files and writes the C++ classes of
// the records, or their reference.
//
//    recordgen --cpp FOLDER FILE...         writes the C++ files below the folder; one that is right is left
//    alone recordgen --document OUTPUT FILE...    writes the reference recordgen --check OUTPUT FILE... says
//    whether the reference is up to date
//
// Exit status: 0 done, 1 the schema is wrong or the reference is out of date, 2 usage.
#include "Emit.h"
#include "Parser.h"
#include "Resolver.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

namespace {

using namespace RecordGen;

std::optional<std::string> read(std::string const& path) {
   std::ifstream in(path, std::ios::binary);
   std::ostringstream text;
   text << in.rdbuf();
   return in ? std::optional(text.str()) : std::nullopt;
}

// A file that has this text already keeps its time stamp, so that nothing behind it is compiled again.
bool write(std::string const& path, std::string const& text) {
   if (read(path) == text)
      return true;
   if (auto const folder = std::filesystem::path(path).parent_path(); !folder.empty())
      std::filesystem::create_directories(folder);
   std::ofstream out(path, std::ios::binary);
   out << text;
   out.close();
   if (!out)
      std::cerr << path << ": can't be written\n";
   return static_cast<bool>(out);
}

bool load(Model& model, std::vector<std::string> const& files) {
   addBuiltIns(model);
   for (auto const& file : files) {
      auto const text = read(file);
      if (!text) {
         std::cerr << file << ": can't be read\n";
         return false;
      }
      try {
         parse(model, file, *text);
      } catch (SchemaError const& error) {
         model.errors.push_back(error);
      }
   }
   if (model.errors.empty())
      resolve(model);
   for (auto const& error : model.errors)
      std::cerr << error.message() << '\n';
   return model.errors.empty();
}

} // namespace

int main(int argc, char** argv) {
   std::vector<std::string> const arguments(argv + 1, argv + argc);
   std::string const command = arguments.empty() ? "" : arguments[0];
   if (arguments.size() < 3 || (command != "--cpp" && command != "--document" && command != "--check")) {
      std::cerr << "usage: recordgen --cpp FOLDER | --document OUTPUT | --check OUTPUT   FILE.schema...\n";
      return 2;
   }
   std::string const& output = arguments[1];
   Model model;
   if (!load(model, {arguments.begin() + 2, arguments.end()}))
      return 1;
   if (command == "--cpp") {
      bool isDone = true;
      for (auto const& [path, text] : cppFiles(model))
         isDone = write(output + '/' + path, text) && isDone;
      return isDone ? 0 : 1;
   }
   if (command == "--document")
      return write(output, document(model)) ? 0 : 1;
   if (read(output) == document(model))
      return 0;
   std::cerr << output << ": not what the schema files say; build the target records-doc\n";
   return 1;
}
