// Reads a shared-memory table that another process writes, whatever state that process and the file are in.
//
// It maps the file for reading only, and finds the path's new file by itself when the table has grown, been
// replaced, or come into being (refresh). A slot is copied whole or not at all: a torn copy is repeated, at
// most maxTries times, and then reported as torn. Nothing that is in the file can make it read outside of its
// mapping; TableFile.h names the one thing that a damaged file can still do.
//
// It keeps nothing of what it read; KeyShadow does.
#pragma once

#include "Plaze/TableFile.h"

#include <functional>

namespace Plaze {

struct Entry {
   std::string key, value;
};

class Reader {
  public:
   // Bounds how long a reader stays at a slot whose writer was stopped in the middle of it: some 20
   // microseconds, then it yields the processor between tries, so that a writer on the same one can go on.
   static constexpr unsigned maxTries = 200;
   static constexpr unsigned busyTries = 100;

   enum class State {
      absent,  // there is no file
      refused, // the file is no such table: reason() says why
      good,
   };
   enum class Result {
      entry,   // copied
      free,    // the slot holds nothing
      torn,    // being written all the time
      damaged, // complete, but holds what no writer makes
   };

   explicit Reader(std::string path) : path_(std::move(path)) {}
   // Refuses tables of other shapes.
   Reader(std::string path, Shape shape) : path_(std::move(path)), shape_(std::move(shape)) {}

   // Opens the file that is at the path now, where it isn't the open one.
   // Costs one system call where it is.
   State refresh();
   State state() const { return state_; }
   std::string const& path() const { return path_; }
   std::string const& reason() const { return reason_; }

   // --- While good.
   TableFile const& file() const { return *file_; }
   uint32_t capacity() const { return file_->places().capacity; }
   uint64_t change() const { return file_->change().load(std::memory_order_acquire); }
   uint64_t mark(uint32_t block) const { return file_->mark(block).load(std::memory_order_acquire); }
   uint64_t sequence(uint32_t slot) const { return file_->sequence(slot).load(std::memory_order_relaxed); }
   // `slot` below capacity(). `sequence` is that of the copy, or the last one seen where there is none.
   // `entry` is to be looked at only where there is one.
   Result read(uint32_t slot, Entry& entry, uint64_t& sequence) const;

   // For tests: runs between the copy of a slot and the look at whether it is whole.
   void onMidReadIs(std::function<void()> fault) { onMidRead_ = std::move(fault); }

  private:
   State stateIs(State state, std::string reason = {});

   std::string const path_;
   std::optional<Shape> const shape_;
   std::unique_ptr<TableFile> file_; // set while good
   struct stat refused_ = {}; // the file that was refused, not to be opened again while it exists unchanged
   State state_ = State::absent;
   std::string reason_;
   std::function<void()> onMidRead_;
};

} // namespace Plaze
