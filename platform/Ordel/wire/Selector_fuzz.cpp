// Any text as a selector: what is taken has a text that is taken again and means the same; a tree can be
// asked for it.
#include "Ordel/store/TestRecords.h"
#include "Ordel/wire/Selector.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   using namespace TestRecords;
   static Ordel::Tree const tree(schema(), 1);
   Ordel::Selector selector, again;
   std::string error;
   if (!Ordel::Selector::parse({reinterpret_cast<char const*>(data), size}, selector, error))
      return error.empty() ? (std::abort(), 0) : 0;
   std::string const text = selector.text();
   // Control characters take four bytes in quotes, so the text of a long selector can be too long.
   if (text.size() <= Ordel::maxSelectorBytes &&
       (!Ordel::Selector::parse(text, again, error) || !(again == selector)))
      std::abort();
   Ordel::Located const located = tree.locate(selector);
   if ((located.status == Ordel::Status::done) != located.error.empty() || !located.entity)
      std::abort();
   return 0;
}
