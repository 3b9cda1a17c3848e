#include "Ordel/store/Snapshot.h"
#include "Kem/Assert.h"
#include "Ordel/store/Applier.h"
#include "Ordel/store/Store.h"
#include "Ordel/store/Walk.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Ordel {

namespace {

constexpr std::string_view magic = "ORDLSNAP";
constexpr uint32_t version = 1;
constexpr size_t headerBytes = 8 + 4 + 8 + 4 + 8;
constexpr size_t checksumBytes = 4;

std::array<uint32_t, 256> crcTable() {
   std::array<uint32_t, 256> table{};
   for (uint32_t i = 0; i < 256; ++i) {
      uint32_t crc = i;
      for (int bit = 0; bit < 8; ++bit)
         crc = crc >> 1 ^ (crc & 1 ? 0x82f63b78u : 0); // the polynomial, reflected
      table[i] = crc;
   }
   return table;
}

// A file descriptor that is closed at the end of its scope.
class File {
  public:
   File(std::string const& name, int flags, mode_t mode = 0)
       : fd_(open(name.c_str(), flags | O_CLOEXEC, mode)) {}
   ~File() {
      if (fd_ >= 0)
         ::close(fd_);
   }
   File(File const&) = delete;
   File& operator=(File const&) = delete;
   int fd() const { return fd_; }
   bool isOpen() const { return fd_ >= 0; }
   // False when the last bytes could not be written.
   bool close() {
      int const fd = fd_;
      fd_ = -1;
      return ::close(fd) == 0;
   }

  private:
   int fd_;
};

bool failed(std::string const& file, char const* what, std::string& error) {
   error = file + ": " + what + ": " + std::strerror(errno);
   return false;
}

bool writeAll(int fd, std::string_view bytes) {
   while (!bytes.empty()) {
      ssize_t const count = ::write(fd, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR)
         continue;
      if (count < 0)
         return false;
      bytes.remove_prefix(static_cast<size_t>(count));
   }
   return true;
}

// Fills the bytes; a file that has become shorter meanwhile gives fewer.
bool readAll(int fd, std::string& bytes) {
   size_t size = 0;
   while (size < bytes.size()) {
      ssize_t const count = ::read(fd, bytes.data() + size, bytes.size() - size);
      if (count < 0 && errno == EINTR)
         continue;
      if (count < 0)
         return false;
      if (count == 0)
         break;
      size += static_cast<size_t>(count);
   }
   bytes.resize(size);
   return true;
}

std::string directoryOf(std::string const& file) {
   size_t const slash = file.rfind('/');
   if (slash == std::string::npos)
      return ".";
   return slash == 0 ? "/" : file.substr(0, slash);
}

bool writeBeside(std::string const& file, std::string const& beside, std::string_view image,
                 std::string& error) {
   unlink(
       beside.c_str()); // whatever it is: what a run that was killed left, or a pipe that would be waited for
   File out(beside, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0640);
   if (!out.isOpen())
      return failed(beside, "can't be created", error);
   if (!writeAll(out.fd(), image))
      return failed(beside, "can't be written", error);
   if (fsync(out.fd()) != 0 || !out.close())
      return failed(beside, "can't be written to the disk", error);
   if (rename(beside.c_str(), file.c_str()) != 0)
      return failed(file, "can't be replaced", error);
   return true;
}

} // namespace

uint32_t crc32c(std::string_view bytes, uint32_t before) {
   static std::array<uint32_t, 256> const table = crcTable();
   uint32_t crc = ~before;
   for (char const c : bytes)
      crc = table[(crc ^ static_cast<uint8_t>(c)) & 0xff] ^ crc >> 8;
   return ~crc;
}

void Snapshot::encode(Tree const& tree, Wire::Writer& out) {
   KEM_ASSERT(!tree.isMirror());
   size_t const begin = out.size();
   out.raw(magic.data(), magic.size());
   out.u32(version);
   out.u64(tree.schema().fingerprint);
   out.u32(tree.nextNode());
   Wire::Writer body;
   Walk walk(tree, tree.root(), Walk::Extent::deep);
   while (walk.next(body, maxFrameBytes)) {
   }
   out.u64(body.size());
   out.raw(body.data(), body.size());
   out.u32(crc32c(out.view().substr(begin)));
}

std::unique_ptr<Tree> Snapshot::decode(Records::Schema const& schema, std::string_view image,
                                       std::string& error) {
   auto const refuse = [&](std::string const& reason) {
      error = reason;
      return nullptr;
   };
   if (image.substr(0, magic.size()) != magic.substr(0, image.size()) || image.empty())
      return refuse("not a snapshot of the state database");
   if (image.size() < headerBytes + checksumBytes)
      return refuse("cut off: " + std::to_string(image.size()) + " bytes are less than a header");
   Wire::Reader in(image);
   in.raw(magic.size());
   uint32_t const imageVersion = in.u32();
   if (imageVersion != version)
      return refuse("version " + std::to_string(imageVersion) + "; this build reads version " +
                    std::to_string(version));
   uint64_t const fingerprint = in.u64();
   uint32_t const nextNode = in.u32();
   uint64_t const size = in.u64();
   if (size != in.remaining() - checksumBytes)
      return refuse("cut off or damaged: a body of " + std::to_string(size) + " bytes is announced, " +
                    std::to_string(in.remaining() - checksumBytes) + " are there");
   std::string_view const body = in.raw(size);
   if (in.u32() != crc32c(image.substr(0, image.size() - checksumBytes)))
      return refuse("damaged: the checksum does not fit");
   if (fingerprint != schema.fingerprint)
      return refuse("written by a build with other records (fingerprint " + std::to_string(fingerprint) +
                    ", here " + std::to_string(schema.fingerprint) + ")");

   // A bare root with its number; the body brings the rest.
   auto tree = std::make_unique<Tree>(schema);
   Store& store = *tree->store_;
   store.isMirror = false;
   store.numberIs(*store.root, rootNode);
   if (nextNode < store.nextNode)
      return refuse("damaged: the next node can't have number " + std::to_string(nextNode));
   store.nextNode = nextNode;
   Applied const& applied = tree->applier_->load(body);
   if (!applied.isDone())
      return refuse("damaged: " + applied.error);
   for (Records::Place const& place : schema.places) {
      if (place.isCell)
         continue; // the image doesn't say of which cell it is
      Entity const* const standing = tree->find(place.path);
      if (!standing)
         return refuse("damaged: " + std::string(place.path) + " is missing");
      if (&standing->type() != place.type)
         return refuse("damaged: " + std::string(place.path) + " is a " + std::string(standing->type().name) +
                       " and should be a " + std::string(place.type->name));
   }
   return tree;
}

bool Snapshot::write(Tree const& tree, std::string const& file, std::string& error) {
   Wire::Writer image;
   encode(tree, image);
   std::string const beside = file + ".new";
   if (!writeBeside(file, beside, image.view(), error)) {
      unlink(beside.c_str());
      return false;
   }
   // The rename itself is to last, too.
   File directory(directoryOf(file), O_RDONLY | O_DIRECTORY);
   if (!directory.isOpen() || fsync(directory.fd()) != 0)
      return failed(directoryOf(file), "can't be written to the disk", error);
   return true;
}

std::unique_ptr<Tree> Snapshot::read(Records::Schema const& schema, std::string const& file,
                                     std::string& error, bool& isAbsent) {
   File in(file, O_RDONLY | O_NONBLOCK | O_NOCTTY); // opening a pipe would wait for its writer
   isAbsent = !in.isOpen() && errno == ENOENT;
   if (!in.isOpen()) {
      failed(file, "can't be opened", error);
      return nullptr;
   }
   struct stat status;
   if (fstat(in.fd(), &status) != 0) {
      failed(file, "can't be read", error);
      return nullptr;
   }
   if (!S_ISREG(status.st_mode)) {
      error = file + ": is no regular file";
      return nullptr;
   }
   if (static_cast<size_t>(status.st_size) > maxFileBytes) {
      error = file + ": has " + std::to_string(status.st_size) + " bytes, more than the " +
              std::to_string(maxFileBytes) + " that are read";
      return nullptr;
   }
   std::string image(static_cast<size_t>(status.st_size), '\0');
   if (!readAll(in.fd(), image)) {
      failed(file, "can't be read", error);
      return nullptr;
   }
   auto tree = decode(schema, image, error);
   if (!tree)
      error = file + ": " + error;
   return tree;
}

} // namespace Ordel
