// Whose files are taken for tables.
//
// A table and each directory above it must belong to root or to the user of this process, and nobody else may
// write them: otherwise another user could have made them first, could change what they say, or could put
// something else in their place. A directory that all may write, such as /dev/shm, is trusted only where it
// has the sticky bit and belongs to root: nobody takes away another one's file there. A group may write only
// if it is root's or the one of this process. Symbolic links among the directories are followed where their
// owner is trusted.
#pragma once

#include <string>
#include <sys/stat.h>

namespace Plaze {

// Why the file or directory isn't trusted, as the end of a sentence that names it: "belongs to user 1001, who
// is neither root nor this process's"; empty where it is.
std::string whyNotTrusted(struct stat const& status);

// The same for the directory and all above it, with the name of the one that isn't trusted. Those that don't
// exist are passed over.
std::string whyNotTrustedWay(std::string const& directory);

} // namespace Plaze
