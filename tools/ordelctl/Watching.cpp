#include "Watching.h"
#include "Ordel/wire/Operations.h"
#include "View.h"
#include "treejson/Change.h"
#include "treejson/Error.h"
#include "treejson/JsonText.h"
#include "treejson/Values.h"
#include "treejson/Writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unordered_set>

namespace Ordelctl {

namespace {

std::string selectorOf(Ordel::Tree const& tree, Ordel::Located const& place) {
   if (place.attribute < 0)
      return Ordel::selectorText(tree, *place.entity);
   auto const attribute = static_cast<unsigned>(place.attribute);
   if (!place.key)
      return Ordel::selectorText(tree, *place.entity, attribute);
   if (!place.entity->isDirectory())
      return Ordel::selectorText(tree, *place.entity, attribute, *place.key);
   // An entity in a directory has a path of its own, also when it is gone.
   std::string const directory = tree.path(*place.entity);
   return directory + (directory.empty() ? "" : "/") + std::string(Wire::Reader(*place.key).string());
}

// Whether the place is the one that is watched, or inside it.
bool isWithin(std::string_view place, std::string_view watched) {
   if (watched == "/")
      return true;
   return place.starts_with(watched) &&
          (place.size() == watched.size() ||
           std::string_view("./[").find(place[watched.size()]) != std::string::npos);
}

// Turns what comes in into lines.
class Lines final : public View::Follower {
  public:
   Lines(std::vector<Ordel::Selector> const& selectors, bool hasInitial,
         std::function<void(std::string_view)> const& print)
       : print_(print) {
      for (Ordel::Selector const& selector : selectors)
         watched_.push_back({selector, {}, !hasInitial});
   }

   void synced(View const& view, size_t i) override {
      view_ = &view;
      Watched& watched = watched_[i];
      bool const isSilent = std::exchange(watched.isSilent, false);
      Ordel::Located const located = view_->locate(i);
      bool const isThere = located.status == Ordel::Status::done;
      if (isThere && !watched.isThere && !isSilent)
         printValue(located);
      watched.isThere = isThere;
      if (isThere)
         watched.text = selectorOf(view_->tree(), located);
   }

   void gone(View const&, size_t i) override {
      if (std::exchange(watched_[i].isThere, false))
         printDeleted(watched_[i].text);
   }

   void changed(View const& view, Ordel::Applied const& applied) override {
      view_ = &view;
      auto const& mounts = view.mounts();
      if (std::none_of(mounts.begin(), mounts.end(), [](View::Mount const& mount) { return mount.isSynced; }))
         return; // all of this existed at the beginning
      gather(applied);
      // The watched thing itself was made, deleted, or changed inside.
      std::vector<std::string const*> whole;
      for (size_t i = 0; i < watched_.size(); ++i) {
         Watched& watched = watched_[i];
         if (!mounts[i].isSynced)
            continue;
         Ordel::Located const located = view_->locate(i);
         bool const isThere = located.status == Ordel::Status::done;
         if (isThere != watched.isThere) {
            if (isThere)
               watched.text = selectorOf(view_->tree(), located);
            whole.push_back(&watched.text);
            isThere ? printValue(located) : printDeleted(watched.text);
         }
         watched.isThere = isThere;
      }
      for (Touched const& touched : touched_) {
         auto const covers = [&](std::string const* text) { return isWithin(touched.text, *text); };
         bool const isWatched = std::any_of(watched_.begin(), watched_.end(), [&](Watched const& watched) {
            bool const isSynced = mounts[static_cast<size_t>(&watched - watched_.data())].isSynced;
            return isSynced && watched.isThere && covers(&watched.text);
         });
         if (!isWatched || std::any_of(whole.begin(), whole.end(), covers))
            continue;
         if (touched.isThere)
            printValue(touched.place);
         else
            printDeleted(touched.text);
      }
   }

  private:
   struct Watched {
      Ordel::Selector selector;
      std::string text;      // as the tree writes it, once it has been there
      bool isSilent = false; // what exists at the beginning is not printed
      bool isThere = false;
   };
   // An attribute or a member that operations of a block have changed.
   struct Touched {
      Ordel::Located place;
      std::string text;
      bool isThere;
   };

   // What the block has touched, each thing once, without the contents of what it created.
   void gather(Ordel::Applied const& applied) {
      Ordel::Tree const& tree = view_->tree();
      touched_.clear();
      std::unordered_set<std::string> known;
      std::unordered_set<Ordel::Entity const*> created;
      for (Ordel::Group const& group : applied.groups) {
         Ordel::Entity const& entity = *group.entity;
         if (entity.isErased())
            continue; // its end is printed at the place where it was
         bool isNew = false;
         for (Ordel::Entity const* above = &entity; above && !isNew; above = above->parent())
            isNew = created.count(above) > 0;
         if (isNew)
            continue;
         Ordel::OperationReader operations(entity.type(), applied.operations(group));
         for (Ordel::Operation operation; operations.next(operation);) {
            Touched touched;
            touched.place.entity = &entity;
            touched.place.attribute = operation.attribute;
            if (operation.op != Ordel::Op::set)
               touched.place.key = std::string(operation.key);
            Ordel::Entity const* const child = childAt(entity, operation);
            if (child && operation.op == Ordel::Op::create)
               created.insert(child);
            touched.text = selectorOf(tree, touched.place);
            if (!known.insert(touched.text).second)
               continue;
            touched.isThere = operation.op == Ordel::Op::set ||
                              tree.member(entity, operation.attribute, operation.key).has_value();
            touched_.push_back(std::move(touched));
         }
      }
   }

   Ordel::Entity const* childAt(Ordel::Entity const& entity, Ordel::Operation const& operation) const {
      bool const hasEntities = entity.type().attributes[operation.attribute].form == Records::Form::children;
      return hasEntities ? view_->tree().child(entity, operation.attribute, operation.key) : nullptr;
   }

   void printValue(Ordel::Located const& place) {
      std::string line = "{\"selector\": ";
      TreeJson::appendQuoted(line, selectorOf(view_->tree(), place));
      line += ", \"value\": ";
      line += TreeJson::oneLine(view_->tree(), place);
      print_(line + "}");
   }

   void printDeleted(std::string const& selector) {
      std::string line = "{\"selector\": ";
      TreeJson::appendQuoted(line, selector);
      print_(line + ", \"deleted\": true}");
   }

   std::function<void(std::string_view)> const& print_;
   std::vector<Watched> watched_;
   View const* view_ = nullptr;
   std::vector<Touched> touched_; // by the block that is looked at
};

} // namespace

void watch(Session& session, std::vector<std::string> const& selectors, bool hasInitial,
           std::function<void(std::string_view)> const& print) {
   std::vector<Ordel::Selector> parsed;
   std::vector<View::Request> requests;
   for (std::string const& selector : selectors) {
      parsed.push_back(parseSelector(selector));
      // An entity in a directory has a path of its own.
      if (parsed.back().steps.size() == 1 && parsed.back().steps[0].attribute == "entityPtr")
         parsed.back().steps.clear();
      requests.push_back({parsed.back(), {}, Ordel::mountAwait});
   }
   Lines lines(parsed, hasInitial, print);
   View const view(session, requests, nullptr, &lines);
   session.waitUntil([&] { return view.isBroken(); });
   view.check();
   throw TreeJson::Absent("nothing is left to watch");
}

// --- wait

namespace {

// Whether the present value equals the given one. Values of one type are compared in wire form, so that an
// enumerator can be given by number; everything larger is compared as JSON.
bool isEqual(Ordel::Tree const& tree, Ordel::Selector const& selector, Ordel::Located const& located,
             Given const& given) {
   Records::ValueType const* const type = TreeJson::valueTypeAt(tree, selector);
   std::string const json = given.json(type);
   if (!type) {
      try {
         return nlohmann::json::parse(json) == nlohmann::json::parse(TreeJson::oneLine(tree, located));
      } catch (nlohmann::json::exception const& error) { // such as a number that no type can hold
         throw TreeJson::Refusal(selectorOf(tree, located) + ": " + error.what());
      }
   }
   TreeJson::JsonReader in(json);
   Wire::Writer wanted;
   try {
      TreeJson::readValue(*type, in, wanted);
   } catch (TreeJson::ValueError const& error) {
      throw TreeJson::Refusal(selectorOf(tree, located) + error.field + ": " + error.what());
   }
   auto const attribute = static_cast<unsigned>(located.attribute);
   return wanted.view() == (located.key ? *tree.member(*located.entity, attribute, *located.key)
                                        : tree.value(*located.entity, attribute));
}

} // namespace

void waitFor(Session& session, std::string_view text, Condition const& condition, Kem::Seconds timeout) {
   Kem::Seconds const deadline = Kem::now() + timeout;
   Ordel::Selector const selector = parseSelector(text);
   if (condition.value)
      condition.value->json(nullptr); // a fault in the text is reported before anything else
   View const view(session, {{selector, {}, Ordel::mountAwait}});
   auto const holds = [&] {
      view.check();
      if (!view.isSynced())
         return false;
      Ordel::Located const located = view.locate(0);
      bool const isThere = located.status == Ordel::Status::done;
      if (condition.isAbsent || !isThere)
         return condition.isAbsent && !isThere;
      return !condition.value || isEqual(view.tree(), selector, located, *condition.value);
   };
   if (session.waitUntil(holds, deadline))
      return;
   std::ostringstream reason;
   reason << selector.text() << ": not "
          << (condition.isAbsent ? "gone"
              : condition.value  ? "so"
                                 : "there")
          << " within " << timeout << " s";
   throw TreeJson::Absent(reason.str());
}

} // namespace Ordelctl
