// What a generated NotifieeConst asks of the reactor that derives from it: which of its functions the reactor
// overrides. Used by generated code only.
#pragma once

#include "Kem/Notifiee.h"

#include <type_traits>

// Of an attribute of one value: onX().
#define RECORDS_WANTED(wanted, Derived, Base, function, id)                                                  \
   static_assert(KEM_REACHABLE_PLAIN(Derived, function), "a reactor overrides " #function " in public");     \
   if (KEM_OVERRIDES(Derived, Base, function))                                                               \
   wanted.plain |= uint64_t(1) << id

// Of a collection: onX(key), onX(), onXkemImmediate().
#define RECORDS_WANTED_COLLECTION(wanted, Derived, Base, function, id, Key)                                  \
   static_assert(KEM_REACHABLE(Derived, function, Key), "a reactor overrides " #function " in public");      \
   static_assert(KEM_REACHABLE_PLAIN(Derived, function##kemImmediate),                                       \
                 "a reactor overrides " #function "kemImmediate in public");                                 \
   if (KEM_OVERRIDES_KEYED(Derived, Base, function, Key))                                                    \
      wanted.keyed |= uint64_t(1) << id;                                                                     \
   if (KEM_OVERRIDES(Derived, Base, function))                                                               \
      wanted.plain |= uint64_t(1) << id;                                                                     \
   if (KEM_OVERRIDES(Derived, Base, function##kemImmediate))                                                 \
   wanted.immediate |= uint64_t(1) << id
