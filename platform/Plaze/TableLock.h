// The right to write a table: one process at a time has it.
//
// The lock is on a file of its own beside the table, "status.lock~" beside "status", which only its owner can
// open. On the table itself, which all may read, any reader could hold the lock and so keep the writer out.
// The file stays when the writer goes; the lock goes with the process.
#pragma once

#include <string>

namespace Plaze {

class TableLock {
  public:
   // Takes the lock, and makes the file where it is absent; the directory must exist. Raises Error: refused
   // where another process has it, with that process's number, or where the file isn't ours.
   explicit TableLock(std::string const& path);
   ~TableLock();
   TableLock(TableLock const&) = delete;
   TableLock& operator=(TableLock const&) = delete;

  private:
   int fd_ = -1;
};

} // namespace Plaze
