#include "Ordel/client/References.h"

namespace Ordel {

void References::referenceIs(Kem::Ptr<Kem::Entity> const& holder, Kem::AttrId attribute, std::string key,
                             std::string selector) {
   Place place(holder.ptr(), attribute, std::move(key));
   if (selector.empty() && std::get<2>(place).empty()) {
      holder->applyReference(attribute, nullptr, nullptr);
      all_.erase(place);
      return;
   }
   Target& target = all_[place];
   target.holder = holder;
   target.selector = std::move(selector);
   apply(place, target);
}

void References::referenceDel(Kem::Entity const& holder, Kem::AttrId attribute, std::string const& key) {
   all_.erase(Place(&holder, attribute, key));
}

void References::apply(Place const& place, Target& target) {
   auto const found = find_(context_, target.selector);
   if (found.ptr() == target.current && found)
      return;
   target.current = found.ptr();
   auto const& [holder, attribute, key] = place;
   if (key.empty()) {
      target.holder->applyReference(attribute, nullptr, found);
      return;
   }
   Wire::Reader in(key);
   target.holder->visitMemberKey(
       attribute, in, [&, id = attribute](void const* k) { target.holder->applyReference(id, k, found); });
}

void References::resolve() {
   for (auto at = all_.begin(); at != all_.end();) {
      // A holder that nobody else keeps has left the tree.
      if (at->second.holder->references() == 1) {
         at = all_.erase(at);
         continue;
      }
      apply(at->first, at->second);
      ++at;
   }
}

} // namespace Ordel
