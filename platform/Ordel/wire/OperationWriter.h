// Writes operations, the counterpart of OperationReader: the one place that knows their layout on the way out.
//
//    OperationWriter write(out);
//    write.at(node, 1).step(attribute, key);
//    write.set(name, value).put(port, key, value).erase(port, other);
//
// Keys and values are in wire form. Where a caller encodes them itself, `begin` writes what is before them and
// the caller goes on in the buffer. Nothing is checked.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/wire/Protocol.h"

#include <string_view>

namespace Ordel {

class OperationWriter {
  public:
   // The buffer must outlive the writer.
   explicit OperationWriter(Wire::Writer& out) : out_(out) {}

   // All that follows is said of the node, or of the member below it to which so many steps lead.
   OperationWriter& at(uint32_t node, uint8_t stepCount = 0) {
      out_.u8(static_cast<uint8_t>(Op::at));
      out_.u32(node);
      out_.u8(stepCount);
      return *this;
   }
   OperationWriter& step(unsigned attribute, std::string_view key) {
      out_.u8(static_cast<uint8_t>(attribute));
      return raw(key);
   }
   OperationWriter& set(unsigned attribute, std::string_view value) {
      begin(Op::set, attribute);
      return raw(value);
   }
   OperationWriter& put(unsigned attribute, std::string_view key, std::string_view value) {
      begin(Op::put, attribute);
      return raw(key).raw(value);
   }
   OperationWriter& erase(unsigned attribute, std::string_view key) {
      begin(Op::erase, attribute);
      return raw(key);
   }
   OperationWriter& create(unsigned attribute, std::string_view key, uint16_t type) {
      begin(Op::create, attribute);
      raw(key);
      out_.u16(type);
      return *this;
   }
   // In a directory, whose entities are in its first attribute. `node` 0: the database gives the number.
   OperationWriter& createNode(std::string_view key, uint16_t type, uint32_t node) {
      create(0, key, type);
      out_.u32(node);
      return *this;
   }
   // Key and value, or for a creation key and type, are written by the caller.
   Wire::Writer& begin(Op op, unsigned attribute) {
      out_.u8(static_cast<uint8_t>(op));
      out_.u8(static_cast<uint8_t>(attribute));
      return out_;
   }

  private:
   OperationWriter& raw(std::string_view bytes) {
      out_.raw(bytes.data(), bytes.size());
      return *this;
   }
   Wire::Writer& out_;
};

} // namespace Ordel
