// The sockets through which devices are reached: one for each network namespace in use, and how many interfaces
// are in each namespace.
//
// A socket stays in its namespace when the name of that goes or comes to mean another one; so the number of
// the namespace is kept with it. The default namespace is neither counted nor closed. An empty name is the
// default namespace.
#pragma once

#include "Kem/Collections.h"
#include "Sulvi/IntfId.h"
#include "Sulvi/NamespaceName.h"

#include <cstdint>
#include <vector>

namespace Vorn {

// DEFAULT_NS for the empty name, as which it is a key.
inline Sulvi::NamespaceName const& keyOf(Sulvi::NamespaceName const& ns) {
   return ns.isDefault() ? Sulvi::DEFAULT_NS : ns;
}

class NamespaceSockets {
  public:
   NamespaceSockets() = default;
   ~NamespaceSockets(); // closes all but that of the default namespace
   NamespaceSockets(NamespaceSockets const&) = delete;
   NamespaceSockets& operator=(NamespaceSockets const&) = delete;

   int fd(Sulvi::NamespaceName const& ns) const;         // 0 when there is none
   Sulvi::NamespaceName nsOf(int fd) const;              // DEFAULT_NS for a socket that isn't one of these
   uint64_t inode(Sulvi::NamespaceName const& ns) const; // 0 when it isn't known
   void fdIs(Sulvi::NamespaceName const& ns, int fd, uint64_t inode = 0);
   // Closes the socket and forgets it; who is in the namespace stays as it is.
   void close(Sulvi::NamespaceName const& ns);

   // Number of interfaces whose records say that they are in the namespace; 0 for the default one.
   int count(Sulvi::NamespaceName const& ns) const;
   void countIs(Sulvi::NamespaceName const& ns, int count);
   // Counts the interface there and no longer where it was. Asserts "nsIntfRefcount( oldNsName ) >= 0".
   void intfIsIn(Sulvi::IntfId intfId, Sulvi::NamespaceName const& ns);
   Sulvi::NamespaceName place(Sulvi::IntfId intfId) const; // where it is counted; the default one for nowhere
   std::vector<Sulvi::IntfId> intfsIn(Sulvi::NamespaceName const& ns) const;

  private:
   struct Entry {
      int fd = 0;
      uint64_t inode = 0;
   };
   Kem::OrderedValueMap<Sulvi::NamespaceName, Entry> sockets_;
   Kem::OrderedValueMap<Sulvi::NamespaceName, int> counts_;
   Kem::ValueMap<Sulvi::IntfId, Sulvi::NamespaceName> places_; // of interfaces that are counted
};

} // namespace Vorn
