// The trace file of the process: one TraceFile, and free functions over it.
//
// All of it is for one thread, the one that traces. While no file is open, records are
// dropped at the cost of a test.
#pragma once

#include "Zivlog/TraceFile.h"

namespace Zivlog {

// Opens the trace file of the process, and has a failed assertion flush it. `fileName` is the name alone;
// "%d" in it becomes the process id. `sizes` are KiB for each level 0 to 9. The file is in the directory
// that the environment variable ZIVLOGDIR names; without it in /var/log/vorn if that can be written, else in
// the working directory. Of a name with "%d", the eight newest files are kept in that directory, this one
// among them, and older ones of ended processes removed; of another name, the file of the process before is
// kept as NAME.old. Returns whether there is a file. If it can't be created (no directory, no permission,
// disk full), one line on standard error says why, and the process goes on without.
bool initialize(std::string_view fileName, Sizes const& sizes);

bool isOpen();
// Ends tracing to the file and marks it as closed in order.
void close();
// Brings the file to the disk and waits for it. Does nothing while no file is open.
void flush();
// The trace file of the process, or null while none is open. Valid until close() or the next initialize().
TraceFile* traceFile();
// The path of the open file; empty while none is open.
std::string const& path();

// Writes a line of text; see TraceFile::text.
void text(unsigned level, std::string_view facility, std::string_view file, uint32_t line,
          std::string_view function, std::string_view text);

// Writes a row of a registered format; each field is convertible to std::string_view,
// their number is that of the format.
template <class... Field>
void write(TraceFile& file, unsigned level, FormatId format, Field const&... field) {
   static_assert(sizeof...(Field) <= FileLayout::maxFields);
   std::array<std::string_view, sizeof...(Field)> const fields{std::string_view(field)...};
   file.row(level, format, fields);
}
template <class... Field>
void write(unsigned level, FormatId format, Field const&... field) {
   if (TraceFile* const file = traceFile())
      write(*file, level, format, field...);
}

} // namespace Zivlog
