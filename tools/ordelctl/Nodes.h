// Which directories and entities there are, as far as writes need to know: the numbers and types by which
// operations name them.
//
// Learned from the directories' listings and kept from one command of a batch to the next, without following
// what changes. That is safe because every write is strict and numbers are never used again: a command that
// relies on something that is gone gets the answer "not there", learns again, and tries once more.
#pragma once

#include "Ordel/store/Tree.h"
#include "Ordel/wire/Selector.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

class Session;

class Nodes {
  public:
   // Appends operations; may raise TreeJson::Absent and TreeJson::Refusal.
   using Build = std::function<void(Ordel::Tree const& tree, Wire::Writer& out)>;
   enum class Depth : unsigned char {
      nodes,    // the directories above what the selectors name, and what is in them by name and type
      contents, // and what the selectors name, with its contents
   };

   explicit Nodes(Session& session);

   // Builds operations against what is at the selectors and writes them. Where they turn out to depend
   // on what the tree doesn't know, or knows wrongly, they are built again. Raises the last obstacle if that
   // doesn't help.
   void write(std::vector<Ordel::Selector> const& selectors, Depth depth, Build const& build);

   // The tree, with the node that the selector starts from if it exists. Valid until the next call.
   Ordel::Tree const& learn(Ordel::Selector const& selector);

  private:
   void forget();
   bool learnPath(std::string_view path);
   bool list(std::string_view directory);
   bool writeByNodes(std::vector<Ordel::Selector> const& selectors, Build const& build);
   void send(Wire::Writer const& operations);

   Session& session_;
   std::unique_ptr<Ordel::Tree> tree_;
   std::set<std::string, std::less<>> listed_; // in this command
};

} // namespace Ordelctl
