// Any bytes as blocks of operations: no crash, a refused block leaves no trace, and what takes effect brings
// a mirror to the same tree.
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/Walk.h"

#include <cstdlib>

namespace {

void check(bool isTrue) {
   if (!isTrue)
      std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   using namespace TestRecords;
   std::string_view bytes(reinterpret_cast<char const*>(data), size);
   Ordel::Tree tree(schema(), 1);
   Ordel::Tree mirror(schema());
   mirror.mount(Ordel::rootNode, schema().entities[dirType], "");
   Ordel::Walk walk(tree, tree.root(), Ordel::Walk::Extent::deep);
   Wire::Writer all;
   check(!walk.next(all, 1 << 20));
   check(mirror.apply(all.view()).isDone());
   while (!bytes.empty()) {
      // A byte of flags, one of the length, and a block.
      uint8_t const flags = static_cast<uint8_t>(bytes[0]) & 1;
      size_t const length = bytes.size() > 1 ? static_cast<uint8_t>(bytes[1]) : 0;
      std::string_view const block = bytes.substr(std::min<size_t>(2, bytes.size())).substr(0, length);
      bytes.remove_prefix(std::min(bytes.size(), 2 + block.size()));
      std::string const before = dump(tree);
      Ordel::Applied const& applied = tree.apply(block, flags);
      check(applied.isDone() == applied.error.empty());
      check(applied.isDone() || dump(tree) == before);
      check(mirror.apply(applied.bytes).isDone());
      check(dump(mirror) == dump(tree));
   }
   return 0;
}
