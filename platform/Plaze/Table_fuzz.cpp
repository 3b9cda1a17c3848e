// Fuzzes what a reader does with a file: the checks of the header, the slots, and the key shadow over
// two states of one file. The first byte of the input says how far it is helped past the checks, which
// blind changes would never get through: 0 the input is the whole file; 1 its header is a right one of 4
// slots; 2 and above also its sequences are even, and the second half of the input is what the file
// becomes under the open reader.
#include "Plaze/KeyShadow.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace Plaze;

constexpr Layout::Places places{16, 40, 4};

std::string const& path() {
   static std::string const name = "/dev/shm/plaze-fuzz-" + std::to_string(getpid());
   static int const atEnd = std::atexit([] { unlink(path().c_str()); });
   (void)atEnd;
   return name;
}

void writeFile(std::string const& bytes) {
   // Over the old bytes and never shorter: the open reader has the file mapped.
   int const fd = open(path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
   if (fd < 0 || pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
      std::abort();
   close(fd);
}

// Counters, sequences and slots from the input, behind a header that fits them.
std::string helped(std::string_view input, bool hasEvenSequences) {
   Layout::Header header{};
   std::memcpy(header.magic, Layout::magic, sizeof(header.magic));
   header.version = Layout::version;
   header.keyBytes = places.keyBytes;
   header.valueBytes = places.valueBytes;
   header.capacity = places.capacity;
   header.generation = 1;
   header.lineage = 7;
   header.typeName[0] = 'T';
   header.check = Layout::headerCheck(header);
   std::string file(places.fileBytes(), '\0');
   std::memcpy(file.data(), &header, sizeof(header));
   auto take = [&](size_t at, size_t bytes) {
      bytes = std::min(bytes, input.size());
      std::memcpy(file.data() + at, input.data(), bytes);
      input.remove_prefix(bytes);
   };
   take(Layout::countersOffset, sizeof(Layout::Counters));
   take(Layout::sequencesOffset, places.capacity * Layout::wordBytes);
   take(places.slotsOffset(), places.capacity * places.slotBytes());
   for (size_t slot = 0; hasEvenSequences && slot < places.capacity; ++slot)
      file[Layout::sequencesOffset + slot * Layout::wordBytes] &= ~1;
   return file;
}

void look(Reader& reader, KeyShadow& shadow) {
   size_t told = 0;
   auto const outcome = shadow.pass(reader, [&](std::string_view key, KeyShadow::Change change) {
      bool const isThere = shadow.slots().find(key) != shadow.slots().end();
      if (isThere == (change == KeyShadow::Change::removed))
         std::abort();
      ++told;
   });
   if (told != outcome.changes)
      std::abort();
   for (auto const& [key, slot] : shadow.slots()) {
      Entry entry;
      uint64_t sequence;
      if (key.empty() || reader.state() != Reader::State::good || slot >= reader.capacity())
         std::abort();
      if (reader.read(slot, entry, sequence) == Reader::Result::entry &&
          (entry.key.empty() || entry.key.size() > reader.file().header().keyBytes ||
           entry.value.size() > reader.file().header().valueBytes))
         std::abort();
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   if (size == 0)
      return 0;
   std::string_view const input(reinterpret_cast<char const*>(data) + 1, size - 1);
   unlink(path().c_str());
   Reader reader(path());
   KeyShadow shadow;
   if (data[0] == 0) {
      writeFile(std::string(input));
      look(reader, shadow);
      return 0;
   }
   bool const hasEvenSequences = data[0] > 1;
   writeFile(helped(input.substr(0, input.size() / 2), hasEvenSequences));
   look(reader, shadow);
   writeFile(helped(input.substr(input.size() / 2), hasEvenSequences));
   look(reader, shadow);
   return 0;
}
