// What the tests of this room share: a directory that goes with the test, a shape,
// and values that check themselves.
#pragma once

#include "Plaze/Layout.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace Plaze {

class TestDirectory {
  public:
   TestDirectory() {
      // Where tables live in earnest, if there is such a place.
      std::string pattern =
          std::filesystem::is_directory("/dev/shm") ? "/dev/shm/plaze-XXXXXX" : "/tmp/plaze-XXXXXX";
      root_ = mkdtemp(pattern.data());
   }
   ~TestDirectory() { std::filesystem::remove_all(root_); }
   TestDirectory(TestDirectory const&) = delete;
   TestDirectory& operator=(TestDirectory const&) = delete;

   std::string const& root() const { return root_; }
   std::string path(std::string const& name) const { return root_ + "/" + name; }

  private:
   std::string root_;
};

inline Shape const testShape{"Test::Row", 0x1234, 16, 200};

// A value of 8 to 200 bytes, other for each key and number, which can be told from any mixture of two values.
inline std::string selfCheckingValue(std::string const& key, uint64_t number) {
   size_t const words = 1 + (number * 7 + key.size()) % 25;
   std::string value(words * 8, 0);
   uint64_t sum = number;
   std::memcpy(value.data(), &number, 8);
   for (char const c : key)
      sum = Layout::mix(sum, static_cast<unsigned char>(c));
   for (size_t i = 1; i < words; ++i) {
      sum = Layout::mix(sum, i);
      std::memcpy(value.data() + i * 8, &sum, 8);
   }
   return value;
}
inline uint64_t numberOf(std::string const& value) {
   uint64_t number = 0;
   std::memcpy(&number, value.data(), std::min<size_t>(8, value.size()));
   return number;
}
inline bool checksItself(std::string const& key, std::string const& value) {
   return value == selfCheckingValue(key, numberOf(value));
}

inline std::string fileBytes(std::string const& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), {}};
}
inline void fileBytesIs(std::string const& path, std::string const& bytes) {
   std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace Plaze
