#include "Plaze/TablePath.h"

#include <climits>
#include <cstdlib>
#include <unistd.h>

namespace Plaze {

namespace {

bool isPart(std::string_view part) {
   return !part.empty() && part.size() <= NAME_MAX - 1 && part.front() != '.' && part.back() != '~' &&
          part.find('\0') == part.npos && part.find('/') == part.npos;
}

} // namespace

std::string defaultRoot() {
   char const* const root = std::getenv("PLAZE_ROOT");
   return root && *root ? root : "/dev/shm";
}

std::string defaultSystemName() {
   char name[256] = "";
   gethostname(name, sizeof(name) - 1);
   return name;
}

std::string publishedPath(std::string_view systemName, std::string_view path) {
   return "/" + std::string(systemName) + "/Plaze/" + std::string(path);
}

std::string whyNotSystemName(std::string_view systemName) {
   return isPart(systemName) ? "" : "\"" + std::string(systemName) + "\" is no system name";
}

std::string whyNotPath(std::string_view path) {
   for (std::string_view rest = path;;) {
      size_t const slash = rest.find('/');
      if (!isPart(rest.substr(0, slash)))
         return "\"" + std::string(path) + "\" is no path of a table";
      if (slash == rest.npos)
         return "";
      rest.remove_prefix(slash + 1);
   }
}

} // namespace Plaze
