// The collections of the platform by the names that the logic uses.
//
// HashMap and RbTreeMap own counted objects; ValueMap and OrderedValueMap hold small values in place, without
// an allocation for each. All have find (null when absent), findOrInsert, erase, size in constant time, and
// iterators that survive any removal and addition.
#pragma once

#include "Kem/HashTable.h"
#include "Kem/OrderedTable.h"
#include "Kem/Ptr.h"

namespace Kem {

template <class T, class Key>
using HashMap = HashTable<Key, Ptr<T>>;

template <class T, class Key>
using RbTreeMap = OrderedTable<Key, Ptr<T>>;

template <class Key, class Value>
using ValueMap = HashTable<Key, Value>;

template <class Key, class Value>
using OrderedValueMap = OrderedTable<Key, Value>;

} // namespace Kem
