// Fuzzes documents. The first byte of the input says how far it is helped into the tree: 0 the rest is the
// whole document; 1 it is an entity of the input of the command line; 2 its attributes; 3 the members of a
// collection of records, 4 of entities, 5 of strings; 6 a word on a command line.
//
// What is taken must be operations that a tree can read, and what then is there must come back from its
// own document.
#include "Ordel/store/TestRecords.h"
#include "treejson/Document.h"
#include "treejson/Error.h"
#include "treejson/Values.h"
#include "treejson/Writer.h"

#include <cstdio>
#include <cstdlib>

namespace {

void require(bool condition, char const* what, std::string_view text) {
   if (condition)
      return;
   std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(text.size()), text.data());
   std::abort();
}

std::string wrapped(unsigned mode, std::string const& text) {
   switch (mode) {
   case 1:
      return "{\"input/config/cli\": " + text + "}";
   case 2:
      return "{\"input/config/cli\": {" + text + "}}";
   case 3:
      return "{\"input/config/cli\": {\"learned\": {" + text + "}}}";
   case 4:
      return "{\"input/config/cli\": {\"vlanConfig\": {" + text + "}, \"group\": {" + text + "}}}";
   case 5:
      return "{\"input/config/cli\": {\"named\": {\"" + text + "\": true}}}";
   default:
      return text;
   }
}

std::string documentOf(Ordel::Tree const& tree) {
   std::string text;
   TreeJson::Writer writer(tree, TreeJson::Layout::indented, [&](std::string_view piece) { text += piece; });
   writer.document(tree.locate(Ordel::Selector()));
   writer.flush();
   return text;
}

// Whether the document was taken.
bool load(std::string const& text, Ordel::Tree& tree) {
   Wire::Writer out;
   try {
      TreeJson::Document(text).operations(tree, out);
   } catch (TreeJson::Error const& error) {
      require(*error.what() != '\0', "an error without a text", text);
      return false;
   }
   Ordel::Applied const& applied = tree.apply(out.view());
   require(!applied.isMalformed, applied.error.c_str(), text);
   return applied.isDone();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   if (size == 0)
      return 0;
   std::string const input(reinterpret_cast<char const*>(data) + 1, size - 1);
   unsigned const mode = data[0] % 7;
   if (mode == 6) {
      try {
         std::string const json = TreeJson::jsonOfWord(input, nullptr);
         TreeJson::JsonReader in(json);
         in.skip();
         in.end();
      } catch (TreeJson::SyntaxError const&) {
         require(input.find_first_of("{[\"") != std::string::npos, "a bare word was refused", input);
      }
      return 0;
   }
   Ordel::Tree first(TestRecords::schema(), 1), second(TestRecords::schema(), 1);
   if (!load(wrapped(mode, input), first))
      return 0;
   std::string const document = documentOf(first);
   require(load(document, second), "a dump can't be loaded", document);
   require(documentOf(second) == document, "a dump comes back different", document);
   return 0;
}
