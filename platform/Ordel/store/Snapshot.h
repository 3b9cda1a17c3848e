// The tree as a file: written whole and atomically, read back whole or not at all.
//
//    image   8 bytes magic, u32 version, u64 fingerprint of the schema, u32 next node, u64 size of the body,
//            body: operations that build the tree from a bare root, u32 CRC-32C of all that is before it
//
// Node numbers are kept. Nothing is merged: an image gives exactly the tree that was written.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Tree.h"

#include <memory>
#include <string>
#include <string_view>

namespace Ordel {

class Snapshot {
  public:
   static constexpr size_t maxFileBytes = size_t{1} << 30; // a larger file isn't read

   static void encode(Tree const& tree, Wire::Writer& out);
   // Null with the reason in `error` when the image is not a whole and undamaged one of this schema.
   static std::unique_ptr<Tree> decode(Records::Schema const& schema, std::string_view image,
                                       std::string& error);

   // Writes beside the file and renames. False with file and reason in `error`:
   // the old file is then untouched.
   static bool write(Tree const& tree, std::string const& file, std::string& error);
   // Null with file and reason in `error`, also for what is no regular file or too large; `isAbsent` tells that
   // there is no such file. Never changes the file, never waits for one.
   static std::unique_ptr<Tree> read(Records::Schema const& schema, std::string const& file,
                                     std::string& error, bool& isAbsent);
};

// CRC-32C (Castagnoli), as in RFC 3720; `before` is the result for the bytes that are before these.
uint32_t crc32c(std::string_view bytes, uint32_t before = 0);

} // namespace Ordel
