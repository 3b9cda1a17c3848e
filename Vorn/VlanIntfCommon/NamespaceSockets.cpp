#include "Vorn/VlanIntfCommon/NamespaceSockets.h"

#include "Kem/Assert.h"
#include "Netlink/Kernel.h"

namespace Vorn {

NamespaceSockets::~NamespaceSockets() {
   sockets_.forEach([](Sulvi::NamespaceName const& ns, Entry const& entry) {
      if (!ns.isDefault())
         Netlink::kernel().close(entry.fd);
   });
}

int NamespaceSockets::fd(Sulvi::NamespaceName const& ns) const {
   auto const* const found = sockets_.find(keyOf(ns));
   return found ? found->fd : 0;
}

Sulvi::NamespaceName NamespaceSockets::nsOf(int fd) const {
   auto found = Sulvi::DEFAULT_NS;
   sockets_.forEach([&](Sulvi::NamespaceName const& ns, Entry const& entry) {
      if (entry.fd == fd)
         found = ns;
   });
   return found;
}

uint64_t NamespaceSockets::inode(Sulvi::NamespaceName const& ns) const {
   auto const* const found = sockets_.find(keyOf(ns));
   return found ? found->inode : 0;
}

void NamespaceSockets::fdIs(Sulvi::NamespaceName const& ns, int fd, uint64_t inode) {
   *sockets_.findOrInsert(keyOf(ns), [] { return Entry(); }).first = {fd, inode};
}

void NamespaceSockets::close(Sulvi::NamespaceName const& ns) {
   if (ns.isDefault())
      return;
   if (int const open = fd(ns))
      Netlink::kernel().close(open);
   sockets_.erase(ns);
}

int NamespaceSockets::count(Sulvi::NamespaceName const& ns) const {
   auto const* const found = counts_.find(keyOf(ns));
   return found ? *found : 0;
}

void NamespaceSockets::countIs(Sulvi::NamespaceName const& ns, int count) {
   if (count == 0)
      counts_.erase(keyOf(ns));
   else
      *counts_.findOrInsert(keyOf(ns), [] { return 0; }).first = count;
}

void NamespaceSockets::intfIsIn(Sulvi::IntfId intfId, Sulvi::NamespaceName const& ns) {
   auto const& newNs = keyOf(ns);
   if (auto const* const place = places_.find(intfId)) {
      auto const old = *place;
      if (old == newNs)
         return;
      places_.erase(intfId);
      KEM_INVARIANT(count(old) - 1 >= 0, "nsIntfRefcount( oldNsName ) >= 0");
      countIs(old, count(old) - 1);
   }
   if (newNs.isDefault())
      return;
   places_.findOrInsert(intfId, [&] { return newNs; });
   countIs(newNs, count(newNs) + 1);
}

Sulvi::NamespaceName NamespaceSockets::place(Sulvi::IntfId intfId) const {
   auto const* const found = places_.find(intfId);
   return found ? *found : Sulvi::DEFAULT_NS;
}

std::vector<Sulvi::IntfId> NamespaceSockets::intfsIn(Sulvi::NamespaceName const& ns) const {
   std::vector<Sulvi::IntfId> found;
   places_.forEach([&](Sulvi::IntfId intfId, Sulvi::NamespaceName const& place) {
      if (place == ns)
         found.push_back(intfId);
   });
   return found;
}

} // namespace Vorn
