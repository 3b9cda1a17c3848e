#include "Changing.h"
#include "Failures.h"
#include "View.h"
#include "treejson/Change.h"
#include "treejson/Document.h"
#include "treejson/Values.h"

namespace Ordelctl {

std::string Given::json(Records::ValueType const* type) const {
   return isWord ? TreeJson::jsonOfWord(text, type) : text;
}

void set(Nodes& nodes, std::string_view selectorText, Given const& value) {
   Ordel::Selector const selector = parseSelector(selectorText);
   // To replace a whole collection, its present contents must be known.
   bool const isMember = !selector.steps.empty() && selector.steps.back().hasKey;
   Records::ValueType const* const type = TreeJson::valueTypeAt(nodes.learn(selector), selector);
   auto const depth = isMember || type ? Nodes::Depth::nodes : Nodes::Depth::contents;
   value.json(nullptr); // a fault in the text is reported before anything else
   nodes.write({selector}, depth, [&](Ordel::Tree const& tree, Wire::Writer& out) {
      std::string const json = value.json(TreeJson::valueTypeAt(tree, selector));
      TreeJson::JsonReader in(json);
      TreeJson::Change(tree, out).set(selector, in);
   });
}

void create(Nodes& nodes, std::string_view path, std::string_view type) {
   Ordel::Selector const selector = parseSelector(path);
   if (!selector.steps.empty())
      throw UsageError(std::string(path) + ": a path is expected, without attributes and keys");
   nodes.write({selector}, Nodes::Depth::nodes, [&](Ordel::Tree const& tree, Wire::Writer& out) {
      TreeJson::Change(tree, out).create(selector.path, type);
   });
}

void erase(Nodes& nodes, std::string_view selectorText) {
   Ordel::Selector const selector = parseSelector(selectorText);
   nodes.write({selector}, Nodes::Depth::nodes, [&](Ordel::Tree const& tree, Wire::Writer& out) {
      TreeJson::Change(tree, out).erase(selector);
   });
}

void load(Nodes& nodes, std::string_view text) {
   TreeJson::Document const document(text);
   std::vector<Ordel::Selector> selectors;
   for (std::string const& path : document.paths())
      selectors.push_back({path, {}});
   nodes.write(selectors, Nodes::Depth::nodes,
               [&](Ordel::Tree const& tree, Wire::Writer& out) { document.operations(tree, out); });
}

} // namespace Ordelctl
