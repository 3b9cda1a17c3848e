// One file of a table, mapped: the base of Writer and Reader. It checks that the file is a table, and knows
// nothing of sequences or of what is in the slots.
//
// Only files of trusted owners are opened (Trust.h), and none through a symbolic link. Even such a file may
// be cut short by whoever may write it: the mapping then reads as zeros, and isLost() says so (Mapping.h).
// Our own writer never does that: a table that grows is a new file.
#pragma once

#include "Plaze/Layout.h"
#include "Plaze/Mapping.h"

#include "Kem/Exception.h"

#include <memory>
#include <string>
#include <sys/stat.h>

namespace Plaze {

// What a file refuses with: "/dev/shm/ar/Plaze/bridging/status: is no table".
class Error : public Kem::Exception {
  public:
   enum class Kind {
      absent,  // there is no such file
      refused, // the file is no such table, or another process writes it
      system,  // the system refuses: rights, room
   };
   Error(Kind kind, std::string const& path, std::string const& reason)
       : Kem::Exception(path + ": " + reason), kind_(kind) {}
   Kind kind() const { return kind_; }

  private:
   Kind kind_;
};

class TableFile {
  public:
   // Opens and maps the file, for reading or for both. Raises Error.
   static std::unique_ptr<TableFile> open(std::string const& path, bool isWritable);
   // A new file that has no name yet, with room on the disk for all of it. Its directory must exist.
   static std::unique_ptr<TableFile> create(std::string const& path, Shape const& shape, uint32_t capacity,
                                            uint64_t generation, uint64_t lineage);
   ~TableFile();
   TableFile(TableFile const&) = delete;
   TableFile& operator=(TableFile const&) = delete;

   // False where another file has that name: nothing has happened then.
   bool linkAs(std::string const& path);
   // Takes the place of the file of that name, in one step.
   void replace(std::string const& path);
   bool isSame(struct stat const& status) const {
      return status.st_dev == status_.st_dev && status.st_ino == status_.st_ino;
   }
   // Part of it was gone when it was touched. Nothing that was read since the last
   // time that this was asked counts.
   bool isLost() const { return mapping_.isLost(); }

   Layout::Header const& header() const { return header_; }
   Shape shape() const;
   Layout::Places const& places() const { return places_; }
   mode_t mode() const;
   void modeIs(mode_t mode);

   char const* base() const { return mapping_.base(); }
   char* base() { return mapping_.base(); }
   std::atomic_ref<uint64_t> change() const { return counter(offsetof(Layout::Counters, change)); }
   std::atomic_ref<uint64_t> entries() const { return counter(offsetof(Layout::Counters, entries)); }
   std::atomic_ref<uint64_t> writerPid() const { return counter(offsetof(Layout::Counters, writerPid)); }
   std::atomic_ref<uint64_t> sequence(uint32_t slot) const {
      return Layout::wordAt(mapping_.base(), Layout::sequencesOffset + uint64_t(slot) * Layout::wordBytes);
   }
   std::atomic_ref<uint64_t> mark(uint32_t block) const {
      return Layout::wordAt(mapping_.base(), places_.marksOffset() + uint64_t(block) * Layout::wordBytes);
   }
   uint64_t slotOffset(uint32_t slot) const { return places_.slotsOffset() + slot * places_.slotBytes(); }

  private:
   explicit TableFile(std::string path) : path_(std::move(path)) {}
   std::atomic_ref<uint64_t> counter(size_t at) const {
      return Layout::wordAt(mapping_.base(), Layout::countersOffset + at);
   }
   void checkHeader();
   void map(bool isWritable);
   [[noreturn]] void refuse(std::string const& reason) const {
      throw Error(Error::Kind::refused, path_, reason);
   }

   std::string path_;
   int fd_ = -1;
   struct stat status_ = {};
   Layout::Header header_ = {}; // a copy: what it says can't change under us
   Layout::Places places_ = {};
   Mapping mapping_;
};

// Makes the directory of the file and those above it where they are absent. Raises Error, also where one of
// them isn't trusted.
void makeDirectoryOf(std::string const& path);

// A number that no other table has.
uint64_t randomNumber();

} // namespace Plaze
