#include "Zivlog/Reader.h"

#include "Zivlog/RowFormat.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

namespace Zivlog {

using namespace FileLayout;

namespace {

using Cause = ReadError::Cause;

// Cuts strings off the front of the bytes of a record; none when one would reach beyond them.
class Cutter {
  public:
   explicit Cutter(std::string_view bytes) : left_(bytes) {}
   template <class T>
   std::optional<T> number() {
      if (left_.size() < sizeof(T))
         return std::nullopt;
      T value;
      std::memcpy(&value, left_.data(), sizeof(T));
      left_.remove_prefix(sizeof(T));
      return value;
   }
   std::optional<std::string_view> string(size_t size) {
      if (left_.size() < size)
         return std::nullopt;
      std::string_view const text = left_.substr(0, size);
      left_.remove_prefix(size);
      return text;
   }
   bool done() const { return left_.empty(); }

  private:
   std::string_view left_;
};

bool decodeText(std::string_view body, Record& record) {
   Cutter cutter(body);
   auto const head = cutter.number<TextHead>();
   if (!head)
      return false;
   auto const facility = cutter.string(head->facilityBytes);
   auto const file = cutter.string(head->fileBytes);
   auto const function = cutter.string(head->functionBytes);
   auto const text = cutter.string(head->textBytes);
   if (!facility || !file || !function || !text || !cutter.done())
      return false;
   record.line = head->line;
   record.facility = *facility;
   record.file = *file;
   record.function = *function;
   record.text = *text;
   return true;
}

bool decodeList(std::string_view body, Record& record) {
   Cutter cutter(body);
   auto const head = cutter.number<ListHead>();
   if (!head || head->fieldCount > maxFields)
      return false;
   std::vector<uint16_t> lengths;
   for (uint32_t i = 0; i < head->fieldCount; ++i) {
      auto const length = cutter.number<uint16_t>();
      if (!length)
         return false;
      lengths.push_back(*length);
   }
   for (uint16_t const length : lengths) {
      auto const field = cutter.string(length);
      if (!field)
         return false;
      record.fields.push_back(*field);
   }
   record.isRow = true;
   record.formatId = head->formatId;
   return cutter.done();
}

bool decodeBody(RecordHeader const& header, std::string_view body, Record& record) {
   return header.kind == Kind::text ? decodeText(body, record) : decodeList(body, record);
}

// The header of a file that begins with `bytes`, checked in all that the rest relies on.
FileHeader validHeader(std::string_view bytes) {
   FileHeader header;
   if (bytes.size() < sizeof(header.magic) || std::memcmp(bytes.data(), magic, sizeof(magic)) != 0)
      throw ReadError(Cause::notTraceFile, "not a trace file");
   if (bytes.size() < sizeof(header))
      throw ReadError(Cause::notTraceFile, "the file ends within its header");
   std::memcpy(&header, bytes.data(), sizeof(header));
   if (header.version != version) {
      throw ReadError(Cause::notTraceFile, "trace file of version " + std::to_string(header.version) +
                                               "; this program reads version " + std::to_string(version));
   }
   if (header.check != headerCheck(header))
      throw ReadError(Cause::notTraceFile, "the header is damaged");
   // Only a forged header can fail what follows.
   uint64_t end = 2 * pageBytes;
   auto const take = [&](Area const& area, uint64_t limit) {
      if (area.offset != end || area.bytes > limit || area.bytes % 8 != 0)
         throw ReadError(Cause::notTraceFile, "the header gives impossible places");
      end += area.bytes;
   };
   take(header.area[formatArea], formatAreaBytes);
   for (unsigned level = 0; level < levelCount; ++level)
      take(header.area[level], maxRingBytes);
   if (header.fileBytes != end)
      throw ReadError(Cause::notTraceFile, "the header gives an impossible size");
   header.program[sizeof(header.program) - 1] = '\0';
   return header;
}

class OpenFile {
  public:
   explicit OpenFile(std::string const& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
      if (fd_ < 0)
         throw ReadError(Cause::unreadable, std::strerror(errno));
   }
   OpenFile(OpenFile const&) = delete;
   OpenFile& operator=(OpenFile const&) = delete;
   ~OpenFile() { ::close(fd_); }

   // Adds up to `count` bytes, fewer at the end of the file.
   void append(std::string& bytes, uint64_t count) {
      size_t const before = bytes.size();
      bytes.resize(before + count);
      size_t got = 0;
      while (got < count) {
         ssize_t const step = ::read(fd_, bytes.data() + before + got, count - got);
         if (step < 0 && errno == EINTR)
            continue;
         if (step < 0)
            throw ReadError(Cause::unreadable, std::strerror(errno));
         if (step == 0)
            break;
         got += static_cast<size_t>(step);
      }
      bytes.resize(before + got);
   }
   bool isLocked() const { return ::flock(fd_, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; }

  private:
   int fd_;
};

} // namespace

Reader Reader::ofFile(std::string const& path) {
   OpenFile file(path);
   std::string bytes;
   file.append(bytes, pageBytes);
   uint64_t const size = validHeader(bytes).fileBytes;
   if (bytes.size() == pageBytes)
      file.append(bytes, size - pageBytes);
   return Reader(std::move(bytes));
}

Reader::Stamp Reader::newestStamp(std::string const& path) {
   OpenFile file(path);
   std::string bytes;
   file.append(bytes, pageBytes + sizeof(Counters));
   uint64_t const seed = validHeader(bytes).seed;
   Counters counters{};
   if (bytes.size() >= pageBytes + sizeof(counters))
      std::memcpy(&counters, bytes.data() + pageBytes, sizeof(counters));
   return {seed, counters.sequence};
}

bool Reader::isBeingWritten(std::string const& path) {
   return OpenFile(path).isLocked();
}

Reader::Reader(std::string bytes) : bytes_(std::move(bytes)) {
   FileHeader const header = validHeader(bytes_);
   header_ = {header.program, header.pid, header.seed, header.startWallNs, 0};
   missingBytes_ = bytes_.size() < header.fileBytes ? header.fileBytes - bytes_.size() : 0;

   Counters counters{};
   if (bytes_.size() >= pageBytes + sizeof(counters))
      counters = load<Counters>(pageBytes);
   header_.closedWallNs = counters.closedWallNs;
   for (unsigned level = 0; level < levelCount; ++level) {
      rings_[level].bytes = header.area[level].bytes;
      rings_[level].written = counters.written[level];
   }

   for (unsigned area = 0; area <= levelCount; ++area)
      scan(area, header.area[area]);
   std::sort(found_.begin(), found_.end(), [](Found const& a, Found const& b) {
      return a.sequence != b.sequence ? a.sequence < b.sequence : a.place < b.place;
   });
   countRings();
}

void Reader::scan(unsigned area, Area const& place) {
   uint64_t const end = std::min<uint64_t>(place.offset + place.bytes, bytes_.size());
   for (uint64_t at = place.offset; at + sizeof(RecordHeader) <= end;) {
      if (!isRecord(area, place.offset, at, end)) {
         at += 8;
         continue;
      }
      auto const header = load<RecordHeader>(at);
      if (area == formatArea)
         defineFormat(at);
      else
         found_.push_back({header.sequence, at, area});
      at += padded(header.bytes);
   }
}

bool Reader::isRecord(unsigned area, uint64_t start, uint64_t place, uint64_t end) const {
   auto const header = load<RecordHeader>(place);
   if (header.bytes < sizeof(header) || header.bytes > maxRecordBytes || padded(header.bytes) > end - place)
      return false;
   bool const isKindOfArea = area == formatArea ? header.kind == Kind::format
                                                : header.kind == Kind::text || header.kind == Kind::row;
   if (!isKindOfArea)
      return false;
   char const* const bytes = bytes_.data() + place;
   if (header.check != recordCheck(header_.seed, area, place - start, bytes, header.bytes))
      return false;
   Record ignored;
   return decodeBody(header, {bytes + sizeof(header), header.bytes - sizeof(header)}, ignored);
}

void Reader::defineFormat(uint64_t place) {
   auto const header = load<RecordHeader>(place);
   Record definition;
   if (decodeBody(header, {bytes_.data() + place + sizeof(header), header.bytes - sizeof(header)},
                  definition) &&
       definition.fields.size() == 2)
      formats_[definition.formatId] = {definition.fields[0], definition.fields[1]};
}

void Reader::countRings() {
   for (size_t i = 0; i < found_.size(); ++i) {
      Ring& ring = rings_[found_[i].level];
      if (ring.held++ == 0)
         ring.oldest = i;
   }
   for (Ring& ring : rings_)
      ring.written = std::max(ring.written, ring.held);
}

size_t Reader::firstAfter(uint64_t sequence) const {
   auto const found =
       std::upper_bound(found_.begin(), found_.end(), sequence,
                        [](uint64_t wanted, Found const& entry) { return wanted < entry.sequence; });
   return static_cast<size_t>(found - found_.begin());
}

Record Reader::at(size_t index) const {
   Found const& found = found_.at(index);
   auto const header = load<RecordHeader>(found.place);
   Record record;
   decodeBody(header, {bytes_.data() + found.place + sizeof(header), header.bytes - sizeof(header)}, record);
   record.sequence = header.sequence;
   record.monotonicNs = header.monotonicNs;
   // Unsigned, because a forged file can hold sums that no signed number takes.
   record.wallNs = static_cast<int64_t>(header.monotonicNs + static_cast<uint64_t>(header.wallOffsetNs));
   record.level = found.level;
   record.isTruncated = header.flags & truncatedFlag;
   if (record.isRow) {
      auto const format = formats_.find(record.formatId);
      if (format != formats_.end())
         record.facility = format->second.name;
   }
   return record;
}

std::string Reader::textOf(Record const& record) const {
   if (!record.isRow)
      return std::string(record.text);
   auto const format = formats_.find(record.formatId);
   if (format != formats_.end())
      return fillFormat(format->second.format, record.fields);
   std::string text = "row of the unknown format " + std::to_string(record.formatId) + ":";
   for (std::string_view const field : record.fields)
      text.append(" ").append(field);
   return text;
}

} // namespace Zivlog
