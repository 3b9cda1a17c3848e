// The standard streams of a program: open when it begins, written out when it ends.
#pragma once

#include <string>

namespace Kem {

// Opens /dev/null on those of the descriptors 0 to 2 that are closed. Otherwise the next file
// that the program opens, such as the socket of the database, would get the number, and what is
// printed would be written to it. False, with errno set, where /dev/null can't be opened; nothing
// may be opened or printed then.
bool openStandardStreams();

// Writes out what stdout and std::cout still hold. Why that failed now or before, such as "No space left on
// device"; empty when all that was printed is written.
std::string whyOutputFailed();

} // namespace Kem
