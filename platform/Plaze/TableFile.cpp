#include "Plaze/TableFile.h"

#include "Plaze/Trust.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/random.h>
#include <unistd.h>

namespace Plaze {

namespace {

[[noreturn]] void throwSystem(std::string const& path, std::string const& what, int error = errno) {
   throw Error(Error::Kind::system, path, what + ": " + std::strerror(error));
}

std::string directoryOf(std::string const& path) {
   return std::filesystem::path(path).parent_path();
}

// The name of an open file as long as this process runs, for linkat.
std::string descriptorPath(int fd) {
   return "/proc/self/fd/" + std::to_string(fd);
}

} // namespace

void makeDirectoryOf(std::string const& path) {
   std::string const directory = directoryOf(path);
   if (std::string const why = whyNotTrustedWay(directory); !why.empty())
      throw Error(Error::Kind::refused, path, why);
   // With rights that the next one who looks trusts, whatever the mask of this process.
   std::filesystem::path at;
   for (auto const& part : std::filesystem::path(directory)) {
      at /= part;
      if (mkdir(at.c_str(), 0755) != 0 && errno != EEXIST && errno != EISDIR)
         throwSystem(at, "can't be made");
   }
   if (std::string const why = whyNotTrustedWay(directory); !why.empty())
      throw Error(Error::Kind::refused, path, why); // somebody was faster
}

uint64_t randomNumber() {
   uint64_t number = 0;
   if (getrandom(&number, sizeof(number), 0) != sizeof(number))
      number = static_cast<uint64_t>(getpid());
   return number;
}

std::unique_ptr<TableFile> TableFile::open(std::string const& path, bool isWritable) {
   std::unique_ptr<TableFile> file(new TableFile(path));
   if (std::string const why = whyNotTrustedWay(directoryOf(path)); !why.empty())
      file->refuse(why);
   // Not blocking: a pipe of that name must not hold us up.
   file->fd_ = ::open(path.c_str(), (isWritable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
   if (file->fd_ < 0 && errno == ELOOP)
      file->refuse("is a symbolic link");
   if (file->fd_ < 0 && (errno == ENOENT || errno == ENOTDIR))
      throw Error(Error::Kind::absent, path, "there is no table of that name");
   if (file->fd_ < 0)
      throwSystem(path, "can't be opened");
   if (fstat(file->fd_, &file->status_) != 0)
      throwSystem(path, "can't be read");
   if (!S_ISREG(file->status_.st_mode))
      file->refuse("is no file");
   if (std::string const why = whyNotTrusted(file->status_); !why.empty())
      file->refuse(why);
   if (file->status_.st_nlink > 1)
      file->refuse("has " + std::to_string(file->status_.st_nlink) + " names");
   file->checkHeader();
   file->map(isWritable);
   return file;
}

void TableFile::checkHeader() {
   ssize_t const got = pread(fd_, &header_, sizeof(header_), 0);
   if (got < 0)
      throwSystem(path_, "can't be read");
   if (got != sizeof(header_) || std::memcmp(header_.magic, Layout::magic, sizeof(Layout::magic)) != 0)
      refuse("is no table");
   if (header_.version != Layout::version)
      refuse("is of version " + std::to_string(header_.version) + ", not " + std::to_string(Layout::version));
   if (header_.check != Layout::headerCheck(header_))
      refuse("the header is damaged: its check is wrong");
   // A header that passes its check may still have been made by somebody else.
   if (header_.keyBytes == 0 || header_.keyBytes > Layout::maxKeyBytes ||
       header_.valueBytes > Layout::maxValueBytes || header_.capacity == 0 ||
       header_.capacity > Layout::maxCapacity)
      refuse("the header is damaged: sizes are out of range");
   if (header_.typeName[0] == 0 || header_.typeName[sizeof(header_.typeName) - 1] != 0)
      refuse("the header is damaged: the type has no name");
   places_ = {header_.keyBytes, header_.valueBytes, header_.capacity};
   if (places_.fileBytes() > Layout::maxFileBytes)
      refuse("the header is damaged: sizes are out of range");
   if (static_cast<uint64_t>(status_.st_size) < places_.fileBytes())
      refuse("is cut short: " + std::to_string(status_.st_size) + " bytes of " +
             std::to_string(places_.fileBytes()));
}

std::unique_ptr<TableFile> TableFile::create(std::string const& path, Shape const& shape, uint32_t capacity,
                                             uint64_t generation, uint64_t lineage) {
   std::unique_ptr<TableFile> file(new TableFile(path));
   Layout::Header& header = file->header_;
   Layout::Places const places{shape.keyBytes, shape.valueBytes, capacity};
   if (shape.typeName.empty() || shape.typeName.size() >= sizeof(header.typeName) || shape.keyBytes == 0 ||
       shape.keyBytes > Layout::maxKeyBytes || shape.valueBytes > Layout::maxValueBytes || capacity == 0 ||
       capacity > Layout::maxCapacity || places.fileBytes() > Layout::maxFileBytes)
      file->refuse("a table of " + std::to_string(capacity) + " entries of " + shape.typeName +
                   " is out of range");
   std::memcpy(header.magic, Layout::magic, sizeof(Layout::magic));
   header.version = Layout::version;
   header.keyBytes = shape.keyBytes;
   header.valueBytes = shape.valueBytes;
   header.capacity = capacity;
   header.generation = generation;
   header.lineage = lineage;
   header.fingerprint = shape.fingerprint;
   std::memcpy(header.typeName, shape.typeName.data(), shape.typeName.size());
   header.check = Layout::headerCheck(header);
   file->places_ = places;

   // The file has no name until it is whole, and vanishes by itself if this process dies before that.
   file->fd_ = ::open(directoryOf(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0644);
   if (file->fd_ < 0)
      throwSystem(path, "can't be made");
   // All of it has room before any of it is touched: later nobody could
   // be told that the memory is used up.
   if (int const failed = posix_fallocate(file->fd_, 0, static_cast<off_t>(places.fileBytes())))
      throwSystem(path, "no room for " + std::to_string(places.fileBytes()) + " bytes", failed);
   if (fstat(file->fd_, &file->status_) != 0)
      throwSystem(path, "can't be read");
   file->map(true);
   std::memcpy(file->base(), &header, sizeof(header));
   return file;
}

void TableFile::map(bool isWritable) {
   if (!mapping_.map(fd_, places_.fileBytes(), isWritable))
      throwSystem(path_, "can't be mapped");
}

TableFile::~TableFile() {
   if (fd_ >= 0)
      close(fd_);
}

bool TableFile::linkAs(std::string const& path) {
   if (linkat(AT_FDCWD, descriptorPath(fd_).c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0)
      return true;
   if (errno != EEXIST)
      throwSystem(path, "can't be named");
   return false;
}

void TableFile::replace(std::string const& path) {
   // Only the holder of the table's lock comes here, so the name beside it is nobody else's.
   std::string const beside = path + "~";
   unlink(beside.c_str());
   if (!linkAs(beside))
      refuse("another process makes it at the same time");
   if (rename(beside.c_str(), path.c_str()) != 0)
      throwSystem(path, "can't be replaced");
}

mode_t TableFile::mode() const {
   struct stat status;
   return fstat(fd_, &status) == 0 ? status.st_mode & 0777 : 0600;
}

void TableFile::modeIs(mode_t mode) {
   if (fchmod(fd_, mode) != 0)
      throwSystem(path_, "the rights can't be set");
}

Shape TableFile::shape() const {
   return {header_.typeName, header_.fingerprint, header_.keyBytes, header_.valueBytes};
}

} // namespace Plaze
