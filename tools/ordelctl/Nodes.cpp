#include "Nodes.h"
#include "Session.h"
#include "View.h"
#include "treejson/Error.h"

namespace Ordelctl {

namespace {

std::string_view parentPath(std::string_view path) {
   size_t const slash = path.rfind('/');
   return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

constexpr std::string_view directoryType = "Kem::Dir";

} // namespace

Nodes::Nodes(Session& session) : session_(session) {
   forget();
}

void Nodes::forget() {
   tree_ = std::make_unique<Ordel::Tree>(Records::schema());
   listed_.clear();
}

// Learns what is in a directory. False when there is no such directory.
bool Nodes::list(std::string_view directory) {
   if (!listed_.insert(std::string(directory)).second)
      return tree_->find(directory) != nullptr;
   // What was learned of the entities on the way must agree with the answer.
   for (std::string_view above = directory; !above.empty();) {
      above = parentPath(above);
      Ordel::Entity const* const known = tree_->find(above);
      if (known && !known->isDirectory()) {
         forget();
         break;
      }
   }
   View const view(session_,
                   {{{std::string(directory), {}}, std::string(directoryType), Ordel::mountShallow}},
                   tree_.get(), nullptr, true);
   return view.mounts()[0].status == Ordel::Status::done;
}

// Learns the nodes on the way to the path, and the one that it names. False when all of it was known before.
bool Nodes::learnPath(std::string_view path) {
   Ordel::Entity const* const known = tree_->find(path);
   if (known && known->node() != 0)
      return false;
   std::string_view directory = parentPath(path);
   while (!list(directory) && !directory.empty())
      directory = parentPath(directory);
   return true;
}

Ordel::Tree const& Nodes::learn(Ordel::Selector const& selector) {
   listed_.clear();
   learnPath(selector.path);
   return *tree_;
}

void Nodes::send(Wire::Writer const& operations) {
   Session::Reply const reply = session_.write(operations.view());
   if (reply.status != Ordel::Status::done)
      throw TreeJson::Absent(reply.text);
}

void Nodes::write(std::vector<Ordel::Selector> const& selectors, Depth depth, Build const& build) {
   if (depth == Depth::nodes && writeByNodes(selectors, build))
      return;
   // Everything is looked at again, contents too. Contents are not kept, since nothing would keep them up
   // to date.
   struct Forgetting {
      Nodes& nodes;
      ~Forgetting() { nodes.forget(); }
   } const forgetting{*this};
   forget();
   std::vector<View::Request> requests;
   for (Ordel::Selector const& selector : selectors) {
      learnPath(selector.path);
      requests.push_back({selector, {}, 0});
   }
   // What doesn't exist is absent from the tree too, and building the operations shows what follows
   // from that.
   View const view(session_, requests, tree_.get(), nullptr, true);
   Wire::Writer operations;
   build(*tree_, operations);
   send(operations);
}

// False when a closer look may help: a member may be of a derived type, which the listings don't show, or
// something that was learned in an earlier command may have been deleted.
bool Nodes::writeByNodes(std::vector<Ordel::Selector> const& selectors, Build const& build) {
   listed_.clear();
   bool isFresh = true;
   for (Ordel::Selector const& selector : selectors)
      isFresh &= learnPath(selector.path);
   try {
      Wire::Writer operations;
      build(*tree_, operations);
      send(operations);
   } catch (TreeJson::Refusal const&) {
      return false;
   } catch (TreeJson::Absent const&) {
      if (isFresh)
         throw;
      return false;
   }
   return true;
}

} // namespace Ordelctl
