// What the kernel says about a process under /proc.
#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>

namespace Scenario {

// A line of /proc/PID/status in KiB, such as "VmRSS" or its peak, "VmHWM".
inline size_t memoryOf(pid_t pid, std::string const& what) {
   std::ifstream status("/proc/" + std::to_string(pid) + "/status");
   for (std::string line; std::getline(status, line);)
      if (line.rfind(what + ":", 0) == 0)
         return std::stoul(line.substr(what.size() + 1));
   ADD_FAILURE() << what << " of process " << pid << " is missing";
   return 0;
}

// Whether figures of memory mean anything: the address sanitizer keeps freed memory for a while.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool isMemoryMeaningful = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool isMemoryMeaningful = false;
#else
inline constexpr bool isMemoryMeaningful = true;
#endif
#else
inline constexpr bool isMemoryMeaningful = true;
#endif

// Whether the process has the file, or the folder, open now.
inline bool hasOpen(pid_t pid, std::string const& path) {
   std::error_code error;
   for (auto const& entry :
        std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error))
      if (std::filesystem::read_symlink(entry.path(), error) == path)
         return true;
   return false;
}

inline size_t descriptorCount(pid_t pid) {
   std::filesystem::directory_iterator const folder("/proc/" + std::to_string(pid) + "/fd");
   return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

} // namespace Scenario
