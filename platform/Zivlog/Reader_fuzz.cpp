// Fuzzes the Reader. The first byte of the input says how far it is helped past the checks, which blind
// changes of bytes would never get through: 0 the input is the whole file; 1 a valid header is before it;
// 2 and above it is also cut into records, whose lengths, places and checks are made right and whose contents
// are the input's.
#include "Zivlog/Reader.h"

#include <cstdlib>

using namespace Zivlog::FileLayout;
using Zivlog::levelCount;

namespace {

std::string withHeader(std::string const& areas) {
   constexpr uint64_t ringBytes = 4096;
   FileHeader header{};
   std::memcpy(header.magic, magic, sizeof(magic));
   header.version = version;
   header.seed = 7;
   header.area[formatArea] = {2 * pageBytes, formatAreaBytes};
   uint64_t end = 2 * pageBytes + formatAreaBytes;
   for (unsigned level = 0; level < levelCount; ++level) {
      header.area[level] = {end, ringBytes};
      end += ringBytes;
   }
   header.fileBytes = end;
   header.check = headerCheck(header);
   std::string file(2 * pageBytes, '\0');
   std::memcpy(file.data(), &header, sizeof(header));
   return file + areas;
}

// Each record is a byte for its level (10: a format), a byte for its length, and
// that many bytes after the check.
std::string withRecords(std::string_view input) {
   std::string file = withHeader(std::string(formatAreaBytes + uint64_t{levelCount} * 4096, '\0'));
   uint64_t next[levelCount + 1] = {};
   while (input.size() > 2) {
      unsigned const area = static_cast<uint8_t>(input[0]) % (levelCount + 1);
      std::string record(sizeof(uint64_t), '\0');
      size_t const length = static_cast<uint8_t>(input[1]);
      record += input.substr(2, length);
      input.remove_prefix(std::min(input.size(), 2 + length));
      record.resize(std::max<size_t>(record.size(), sizeof(RecordHeader)));
      uint32_t const bytes = static_cast<uint32_t>(record.size());
      std::memcpy(record.data() + offsetof(RecordHeader, bytes), &bytes, sizeof(bytes));
      record.resize(padded(bytes));
      if (next[area] + record.size() > 4096)
         continue;
      uint64_t const check = recordCheck(7, area, next[area], record.data(), bytes);
      std::memcpy(record.data(), &check, sizeof(check));
      uint64_t const start =
          area == formatArea ? 2 * pageBytes : 2 * pageBytes + formatAreaBytes + uint64_t{area} * 4096;
      std::memcpy(file.data() + start + next[area], record.data(), record.size());
      next[area] += record.size();
   }
   return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   if (size == 0)
      return 0;
   std::string const input(reinterpret_cast<char const*>(data) + 1, size - 1);
   try {
      auto const reader = Zivlog::Reader::ofBytes(data[0] == 0   ? input
                                                  : data[0] == 1 ? withHeader(input)
                                                                 : withRecords(input));
      uint64_t before = 0;
      for (size_t i = 0; i < reader.size(); ++i) {
         Zivlog::Record const record = reader.at(i);
         if (record.sequence < before || record.level >= levelCount || record.fields.size() > maxFields)
            std::abort();
         before = record.sequence;
         if (reader.textOf(record).size() > size_t{2} * maxRecordBytes)
            std::abort();
      }
   } catch (Zivlog::ReadError const&) {
   }
   return 0;
}
