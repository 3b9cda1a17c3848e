#include "Zivlog/TraceFile.h"

#include "Kem/Assert.h"
#include "Zivlog/RowFormat.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace Zivlog {

using namespace FileLayout;

namespace {

constexpr uint64_t nsOfSecond = 1'000'000'000;
constexpr size_t maxNameBytes = 63; // of facility, file and function

int64_t readClock(clockid_t id) {
   timespec now;
   ::clock_gettime(id, &now);
   return static_cast<int64_t>(now.tv_sec) * static_cast<int64_t>(nsOfSecond) + now.tv_nsec;
}

std::string_view baseName(std::string_view path) {
   size_t const slash = path.rfind('/');
   return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

char* put(char* at, std::string_view bytes) {
   std::memcpy(at, bytes.data(), bytes.size());
   return at + bytes.size();
}

// The counters are read by other processes while they are written: whoever sees
// one finds its record complete.
template <class T>
void publish(T& counter, T value) {
   std::atomic_ref<T>(counter).store(value, std::memory_order_release);
}

struct RegisteredFormat {
   std::string name;
   std::string format;
   unsigned fieldCount;
};

// In the order of their numbers, from 1.
std::vector<RegisteredFormat>& registeredFormats() {
   static auto* const formats = new std::vector<RegisteredFormat>;
   return *formats;
}

std::string errnoText(char const* what, int error) {
   return std::string(what) + ": " + std::strerror(error);
}

// A new file of `bytes` bytes, all of them allocated. Returns the descriptor, or
// -1 with the reason in `error`.
int createFile(std::string const& path, uint64_t bytes, std::string& error) {
   // Beyond the limit the kernel would end the process by SIGXFSZ.
   rlimit limit;
   if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < bytes) {
      error = "larger than the limit of this process for files";
      return -1;
   }
   ::unlink(path.c_str()); // what a process killed at this very place left
   int const fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640);
   if (fd < 0) {
      error = std::strerror(errno);
      return -1;
   }
   // The lock says that the file has a living writer.
   int failure = ::flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
   if (failure == 0)
      failure = ::posix_fallocate(fd, 0, static_cast<off_t>(bytes));
   if (failure != 0) {
      error = errnoText("allocating its space", failure);
      ::close(fd);
      ::unlink(path.c_str());
      return -1;
   }
   return fd;
}

} // namespace

Clocks const systemClocks = {
    [] { return static_cast<uint64_t>(readClock(CLOCK_MONOTONIC)); },
    [] { return readClock(CLOCK_REALTIME); },
};

FormatId registerFormat(std::string_view name, std::string_view format, unsigned fieldCount) {
   KEM_ASSERT(fieldCount <= maxFields);
   KEM_ASSERT(fieldsOfFormat(format) == fieldCount);
   auto& formats = registeredFormats();
   for (size_t i = 0; i < formats.size(); ++i) {
      if (formats[i].name == name && formats[i].format == format)
         return static_cast<FormatId>(i + 1);
   }
   formats.push_back({std::string(name), std::string(format), fieldCount});
   return static_cast<FormatId>(formats.size());
}

std::string TraceFile::open(std::string const& path, Sizes const& sizes) {
   close();

   FileHeader header{};
   std::memcpy(header.magic, magic, sizeof(magic));
   header.version = version;
   header.pid = static_cast<uint32_t>(::getpid());
   header.startWallNs = clocks_.wallNs();
   header.startMonotonicNs = clocks_.monotonicNs();
   std::snprintf(header.program, sizeof(header.program), "%s", program_invocation_short_name);
   if (::getrandom(&header.seed, sizeof(header.seed), GRND_NONBLOCK) != sizeof(header.seed))
      header.seed = mix(header.startMonotonicNs, header.pid);

   header.area[formatArea] = {2 * pageBytes, formatAreaBytes};
   uint64_t end = 2 * pageBytes + formatAreaBytes;
   for (unsigned level = 0; level < levelCount; ++level) {
      uint64_t const bytes = uint64_t{sizes[level]} * 1024;
      if (bytes > maxRingBytes) {
         return "the size of level " + std::to_string(level) + " is " + std::to_string(sizes[level]) +
                " KiB, more than " + std::to_string(maxRingBytes / 1024);
      }
      header.area[level] = {end, bytes};
      end += bytes;
   }
   header.fileBytes = end;
   header.check = headerCheck(header);

   // The file gets its name only when it is complete, so that a reader never sees half of a header.
   std::string const unnamed = path + ".new";
   std::string error;
   int const fd = createFile(unnamed, end, error);
   if (fd < 0)
      return error;
   void* const mapped = ::mmap(nullptr, end, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
   if (mapped == MAP_FAILED) {
      error = errnoText("mapping it", errno);
   } else {
      std::memcpy(mapped, &header, sizeof(header));
      if (::rename(path.c_str(), (path + ".old").c_str()) != 0 && errno != ENOENT)
         error = errnoText("keeping the former file as .old", errno);
      else if (::rename(unnamed.c_str(), path.c_str()) != 0)
         error = errnoText("naming it", errno);
   }
   if (!error.empty()) {
      if (mapped != MAP_FAILED)
         ::munmap(mapped, end);
      ::close(fd);
      ::unlink(unnamed.c_str());
      return error;
   }

   fd_ = fd;
   base_ = static_cast<char*>(mapped);
   fileBytes_ = end;
   seed_ = header.seed;
   sequence_ = 0;
   counters_ = reinterpret_cast<Counters*>(base_ + pageBytes);
   written_ = {};
   for (unsigned area = 0; area < areas_.size(); ++area) {
      Area const& place = header.area[area];
      areas_[area] = {};
      if (place.bytes != 0)
         areas_[area] = {base_ + place.offset, place.bytes, 0, FileLayout::recordLimit(place.bytes)};
   }
   storedFormats_ = 0;
   wallOffsetNs_ = header.startWallNs - static_cast<int64_t>(header.startMonotonicNs);
   comparedClocksNs_ = header.startMonotonicNs;
   return {};
}

void TraceFile::close() {
   if (!isOpen())
      return;
   publish(counters_->closedWallNs, clocks_.wallNs());
   ::munmap(base_, fileBytes_);
   ::close(fd_);
   base_ = nullptr;
   counters_ = nullptr;
   areas_ = {};
   fd_ = -1;
}

void TraceFile::flush() {
   if (isOpen())
      ::msync(base_, fileBytes_, MS_SYNC);
}

void TraceFile::text(unsigned level, std::string_view facility, std::string_view file, uint32_t line,
                     std::string_view function, std::string_view text) {
   level = std::min(level, levelCount - 1);
   Ring& ring = areas_[level];
   if (!ring.base)
      return;
   facility = facility.substr(0, maxNameBytes);
   file = baseName(file).substr(0, maxNameBytes);
   function = function.substr(0, maxNameBytes);
   size_t const fixed =
       sizeof(RecordHeader) + sizeof(TextHead) + facility.size() + file.size() + function.size();
   static_assert(sizeof(RecordHeader) + sizeof(TextHead) + 3 * maxNameBytes < 1024 / 4,
                 "fits in the smallest ring");
   bool const truncated = text.size() > ring.recordLimit - fixed;
   text = text.substr(0, ring.recordLimit - fixed);

   uint32_t const bytes = static_cast<uint32_t>(fixed + text.size());
   char* const record = reserve(ring, bytes);
   TextHead const head = {line, static_cast<uint16_t>(facility.size()), static_cast<uint16_t>(file.size()),
                          static_cast<uint16_t>(function.size()), static_cast<uint16_t>(text.size())};
   char* at = put(record + sizeof(RecordHeader), {reinterpret_cast<char const*>(&head), sizeof(head)});
   at = put(at, facility);
   at = put(at, file);
   at = put(at, function);
   put(at, text);
   commit(level, ring, record, bytes, Kind::text, truncated);
}

void TraceFile::row(unsigned level, FormatId format, std::span<std::string_view const> fields) {
   if (!isOpen())
      return;
   KEM_ASSERT(format >= 1 && format <= registeredFormats().size());
   KEM_ASSERT(fields.size() == registeredFormats()[format - 1].fieldCount);
   if (format > storedFormats_)
      storeFormats();
   level = std::min(level, levelCount - 1);
   if (areas_[level].base)
      list(level, Kind::row, format, fields);
}

// Formats are registered once for the process, and written to each file when a row
// first needs one that isn't there.
void TraceFile::storeFormats() {
   auto const& formats = registeredFormats();
   for (; storedFormats_ < formats.size(); ++storedFormats_) {
      RegisteredFormat const& format = formats[storedFormats_];
      std::string_view const fields[] = {format.name, format.format};
      uint64_t const needed = padded(sizeof(RecordHeader) + sizeof(ListHead) + 2 * sizeof(uint16_t) +
                                     format.name.size() + format.format.size());
      Ring const& area = areas_[formatArea];
      if (needed <= area.recordLimit && area.next + needed <= area.bytes)
         list(formatArea, Kind::format, storedFormats_ + 1, fields);
   }
}

void TraceFile::list(unsigned area, Kind kind, uint32_t formatId, std::span<std::string_view const> fields) {
   Ring& ring = areas_[area];
   size_t const fixed = sizeof(RecordHeader) + sizeof(ListHead) + fields.size() * sizeof(uint16_t);
   static_assert(sizeof(RecordHeader) + sizeof(ListHead) + maxFields * sizeof(uint16_t) < 1024 / 4,
                 "fits in the smallest ring");
   // First the lengths, cut where the record is full.
   std::array<uint16_t, maxFields> lengths;
   size_t left = ring.recordLimit - fixed;
   bool truncated = false;
   for (size_t i = 0; i < fields.size(); ++i) {
      size_t const length = std::min(fields[i].size(), left);
      truncated |= length < fields[i].size();
      lengths[i] = static_cast<uint16_t>(length);
      left -= length;
   }

   uint32_t const bytes = static_cast<uint32_t>(ring.recordLimit - left);
   char* const record = reserve(ring, bytes);
   ListHead const head = {formatId, static_cast<uint32_t>(fields.size())};
   char* at = put(record + sizeof(RecordHeader), {reinterpret_cast<char const*>(&head), sizeof(head)});
   at = put(at, {reinterpret_cast<char const*>(lengths.data()), fields.size() * sizeof(uint16_t)});
   for (size_t i = 0; i < fields.size(); ++i)
      at = put(at, fields[i].substr(0, lengths[i]));
   commit(area, ring, record, bytes, kind, truncated);
}

// Finds the place of the next record. Where the ring begins again, the rest up to its end is cleared: records
// of the previous round would otherwise stay there for another round, far older than all the others.
char* TraceFile::reserve(Ring& ring, uint32_t bytes) {
   if (ring.next + padded(bytes) > ring.bytes) {
      std::memset(ring.base + ring.next, 0, ring.bytes - ring.next);
      ring.next = 0;
   }
   return ring.base + ring.next;
}

// The wall clock is compared with the monotonic one once a second, so that records show when it was set.
void TraceFile::commit(unsigned area, Ring& ring, char* record, uint32_t bytes, Kind kind, bool truncated) {
   uint64_t const now = clocks_.monotonicNs();
   if (now - comparedClocksNs_ >= nsOfSecond) {
      wallOffsetNs_ = clocks_.wallNs() - static_cast<int64_t>(now);
      comparedClocksNs_ = now;
   }
   RecordHeader header = {
       0, ++sequence_, now, wallOffsetNs_, bytes, kind, truncated ? truncatedFlag : uint8_t{0}, 0};
   std::memcpy(record, &header, sizeof(header));
   header.check = recordCheck(seed_, area, ring.next, record, bytes);
   std::memcpy(record, &header.check, sizeof(header.check));
   ring.next += padded(bytes);

   publish(counters_->sequence, sequence_);
   if (area < levelCount)
      publish(counters_->written[area], ++written_[area]);
}

} // namespace Zivlog
