#include "Zivlog/Zivlog.h"

#include "Kem/Assert.h"
#include "Zivlog/TracePath.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace Zivlog {

namespace {

constexpr char const* logDir = "/var/log/vorn";
constexpr size_t keptTraces = 8;

struct Process {
   TraceFile file;
   std::string path;
};

// Never destroyed, so that destructors at the end of the process can still trace.
Process& process() {
   static Process* const instance = new Process;
   return *instance;
}

} // namespace

bool initialize(std::string_view fileName, Sizes const& sizes) {
   close();
   char const* const zivlogDir = std::getenv("ZIVLOGDIR");
   std::string const path = tracePath(fileName, ::getpid(), zivlogDir, logDir);
   std::string const error = process().file.open(path, sizes);
   if (!error.empty()) {
      std::fprintf(stderr, "%s: cannot create the trace file: %s; going on without it\n", path.c_str(),
                   error.c_str());
      return false;
   }
   process().path = path;
   Kem::assertionHookIs(&flush);
   // The directory of the file with the mark still in the name.
   size_t const slash = path.rfind('/');
   std::string const folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
   size_t const nameStart = fileName.rfind('/');
   removeOldTraces(
       folder + std::string(nameStart == std::string_view::npos ? fileName : fileName.substr(nameStart + 1)),
       keptTraces);
   return true;
}

bool isOpen() {
   return process().file.isOpen();
}

void close() {
   process().file.close();
   process().path.clear();
}

void flush() {
   process().file.flush();
}

TraceFile* traceFile() {
   return isOpen() ? &process().file : nullptr;
}

std::string const& path() {
   return process().path;
}

void text(unsigned level, std::string_view facility, std::string_view file, uint32_t line,
          std::string_view function, std::string_view text) {
   process().file.text(level, facility, file, line, function, text);
}

} // namespace Zivlog
