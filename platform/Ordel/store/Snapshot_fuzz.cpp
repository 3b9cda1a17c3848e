// Any bytes as the body of a snapshot with a good header and checksum, and as a whole image: refused with a
// reason, or a tree that gives the same image of itself.
#include "Ordel/store/Snapshot.h"
#include "Ordel/store/TestRecords.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   using namespace TestRecords;
   std::string_view const bytes(reinterpret_cast<char const*>(data), size);
   std::string error;
   Ordel::Snapshot::decode(schema(), bytes, error);

   Wire::Writer image;
   image.raw("ORDLSNAP", 8);
   image.u32(1);
   image.u64(schema().fingerprint);
   image.u32(1000);
   image.u64(size);
   image.raw(bytes.data(), size);
   image.u32(Ordel::crc32c(image.view()));
   error.clear();
   auto const tree = Ordel::Snapshot::decode(schema(), image.view(), error);
   if ((tree == nullptr) == error.empty())
      std::abort();
   if (!tree)
      return 0;
   Wire::Writer first, second;
   Ordel::Snapshot::encode(*tree, first);
   auto const again = Ordel::Snapshot::decode(schema(), first.view(), error);
   if (!again || dump(*again) != dump(*tree))
      std::abort();
   return 0;
}
