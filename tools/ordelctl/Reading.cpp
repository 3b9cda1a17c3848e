#include "Reading.h"
#include "Ordel/wire/KeyText.h"
#include "View.h"
#include "treejson/Error.h"
#include "treejson/Values.h"

namespace Ordelctl {

namespace {

// What the mount brought in; raises the reason when there is nothing.
Ordel::Located mounted(View const& view) {
   View::Mount const& mount = view.mounts()[0];
   if (mount.status == Ordel::Status::absent)
      throw TreeJson::Absent(mount.error);
   Ordel::Located located = view.locate(0);
   if (located.status == Ordel::Status::absent)
      throw TreeJson::Absent(located.error);
   if (located.status != Ordel::Status::done)
      throw TreeJson::Refusal(located.error);
   return located;
}

// As it is written in brackets.
std::string keyInSelector(std::string_view text) {
   std::string const bracketed = Ordel::bracketed(text);
   return bracketed.substr(1, bracketed.size() - 2);
}

} // namespace

void get(Session& session, std::string_view selector, TreeJson::Layout layout,
         TreeJson::Writer::Sink const& sink) {
   View const view(session, {{parseSelector(selector), {}, 0}});
   TreeJson::Writer writer(view.tree(), layout, sink);
   writer.located(mounted(view));
   writer.flush();
}

std::vector<std::string> list(Session& session, std::string_view selector) {
   // The contents of a directory's entries are not wanted; for everything else the flag changes nothing.
   View const view(session, {{parseSelector(selector), {}, Ordel::mountShallow}});
   Ordel::Located const located = mounted(view);
   Records::EntityType const& type = located.entity->type();
   int attribute = located.attribute;
   std::vector<std::string> names;
   if (attribute < 0 && !type.isDirectory()) {
      for (uint16_t const i : TreeJson::naturalOrder(type.attributes))
         names.emplace_back(type.attributes[i].name);
      return names;
   }
   attribute = attribute < 0 ? 0 : attribute; // of a directory
   if (located.key || !type.attributes[static_cast<size_t>(attribute)].key)
      throw TreeJson::Refusal(std::string(selector) + ": is a value and has nothing in it to list");
   for (TreeJson::SortedKey const& key :
        TreeJson::sortedKeys(view.tree(), *located.entity, static_cast<unsigned>(attribute)))
      names.push_back(keyInSelector(key.text));
   return names;
}

void dump(Session& session, std::string_view selector, TreeJson::Layout layout,
          TreeJson::Writer::Sink const& sink) {
   View const view(session, {{parseSelector(selector), {}, 0}});
   TreeJson::Writer writer(view.tree(), layout, sink);
   writer.document(mounted(view));
   writer.flush();
}

} // namespace Ordelctl
