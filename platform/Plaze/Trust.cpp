#include "Plaze/Trust.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace Plaze {

namespace {

std::string whyNotTrustedParts(std::filesystem::path const& way) {
   std::filesystem::path at;
   for (auto const& part : way) {
      at /= part;
      struct stat status;
      if (lstat(at.c_str(), &status) != 0)
         return ""; // not there, so nor is what is below; other reasons are met by whoever opens it
      // Its rights say nothing: a link can be changed by its owner only.
      if (S_ISLNK(status.st_mode))
         status.st_mode = S_IFLNK;
      if (std::string const why = whyNotTrusted(status); !why.empty())
         return at.string() + " " + why;
   }
   return "";
}

} // namespace

std::string whyNotTrusted(struct stat const& status) {
   if (status.st_uid != 0 && status.st_uid != geteuid())
      return "belongs to user " + std::to_string(status.st_uid) + ", who is neither root nor this process's";
   bool const isCommon = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) && status.st_uid == 0;
   if (isCommon)
      return "";
   if (status.st_mode & S_IWOTH)
      return "can be written by all users";
   if ((status.st_mode & S_IWGRP) && status.st_gid != 0 && status.st_gid != getegid())
      return "can be written by group " + std::to_string(status.st_gid);
   return "";
}

std::string whyNotTrustedWay(std::string const& directory) {
   std::error_code error;
   auto const way = std::filesystem::absolute(directory, error);
   if (std::string const why = whyNotTrustedParts(way); !why.empty())
      return why;
   // Where links lead to.
   char resolved[PATH_MAX];
   return realpath(directory.c_str(), resolved) ? whyNotTrustedParts(resolved) : "";
}

} // namespace Plaze
