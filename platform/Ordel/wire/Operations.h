// Reads operations that are known to be good, one by one: the groups of Tree::apply, the pieces of a Walk.
//
// Nothing is checked but the length; bytes from a peer go through Tree::apply first.
// Views are into the bytes given.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/wire/Protocol.h"
#include "records/Schema.h"

#include <string_view>

namespace Ordel {

struct Operation {
   Op op = Op::set; // never `at`
   uint8_t attribute = 0;
   std::string_view key;   // wire form; empty with `set`
   std::string_view value; // wire form; empty with `erase` and `create`
   uint16_t type = 0;      // with `create`
   uint32_t node = 0;      // with `create` in a directory
   std::string_view bytes; // the whole operation
};

class OperationReader {
  public:
   // The operations said of one entity of that type, without the `at`.
   OperationReader(Records::EntityType const& type, std::string_view operations)
       : type_(type), in_(operations) {}
   // False at the end, and at bytes that can't be read.
   bool next(Operation& operation);
   bool isGood() const { return in_.good(); }

  private:
   Records::EntityType const& type_;
   Wire::Reader in_;
};

// Passes one value without a look at it.
void skipValue(Records::ValueType const& type, Wire::Reader& in);

} // namespace Ordel
