// Sockets and descriptors of network namespaces, by the name under which the
// system keeps them in /var/run/netns.
//
// The empty name and DEFAULT_NS mean the namespace that the calling thread is in. Descriptors
// are closed by the caller, and on exec. Entering another namespace needs CAP_SYS_ADMIN, in
// this namespace and in the other.
#pragma once

#include "Sulvi/NamespaceName.h"

namespace Sulvi {

// Where the system keeps named namespaces: one file for each, which leads to the namespace.
inline constexpr char namespaceFolder[] = "/var/run/netns";

// A socket of the given kind that lives in the named namespace, or -1 with errno: that of open or setns when
// the namespace can't be entered (ENOENT when there is none of that name), else that of socket. The calling
// thread enters the namespace and is back when the call returns; that it can't come back is a failed
// assertion, since all its later work would be done in the wrong place.
int socketAt(int family, int type, int protocol, NamespaceName const& nsName);

// A descriptor of the named namespace, for setns or as the value of IFLA_NET_NS_FD; -1 with errno when there
// is none of that name, or none of that type. nsType is CLONE_NEWNET, or 0 to take any type.
int getnsByName(NamespaceName const& name, int nsType);

} // namespace Sulvi
