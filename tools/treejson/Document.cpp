#include "treejson/Document.h"
#include "Ordel/wire/Selector.h"
#include "treejson/Change.h"
#include "treejson/Error.h"
#include "treejson/JsonReader.h"

#include <unordered_set>

namespace TreeJson {

Document::Document(std::string_view text) : text_(text) {
   JsonReader in(text);
   if (in.kind() != JsonKind::object)
      throw Refusal("a document is an object of paths, not " + described(in));
   std::unordered_set<std::string> known;
   std::string path;
   // Syntax first: text that isn't JSON is refused for that before its contents are looked at.
   JsonReader whole = in;
   whole.skip();
   whole.end();
   for (in.beginObject(); in.nextKey(path);) {
      Ordel::Selector selector;
      std::string error;
      if (!Ordel::Selector::parse(path, selector, error))
         throw Refusal(error);
      if (!selector.steps.empty() || selector.path.empty())
         throw Refusal(path + ": a document holds entities by path; this names something else");
      if (in.kind() != JsonKind::object)
         throw Refusal(path + ": " + described(in) + " is no entity; expected an object");
      if (!known.insert(path).second)
         throw Refusal(path + ": given twice");
      paths_.push_back(path);
      in.skip();
   }
}

void Document::operations(Ordel::Tree const& tree, Wire::Writer& out) const {
   JsonReader in(text_);
   Change change(tree, out);
   std::string path;
   for (in.beginObject(); in.nextKey(path);)
      change.merge(path, in);
}

} // namespace TreeJson
