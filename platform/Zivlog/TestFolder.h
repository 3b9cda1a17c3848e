// For the tests of trace files: a folder that goes away with the test, and ways to read what was traced.
#pragma once

#include "Zivlog/Reader.h"
#include "Zivlog/TraceFile.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

namespace Zivlog::Testing {

class Folder {
  public:
   Folder() {
      std::string name = (std::filesystem::temp_directory_path() / "zivlog-XXXXXX").string();
      if (!::mkdtemp(name.data()))
         throw std::runtime_error("cannot create " + name);
      path_ = name;
   }
   Folder(Folder const&) = delete;
   Folder& operator=(Folder const&) = delete;
   ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path_, ignored);
   }
   std::string path() const { return path_; }
   std::string file(std::string const& name) const { return path_ + "/" + name; }

  private:
   std::string path_;
};

inline std::string bytesOf(std::string const& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), {}};
}

// All texts in the order in which they were written.
inline std::vector<std::string> textsOf(Reader const& reader) {
   std::vector<std::string> texts;
   for (size_t i = 0; i < reader.size(); ++i)
      texts.push_back(reader.textOf(reader.at(i)));
   return texts;
}

inline std::vector<std::string> textsOf(std::string const& path) {
   return textsOf(Reader::ofFile(path));
}

// A ring of one KiB for each level: small enough to see every byte of it.
inline Sizes const smallSizes = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

} // namespace Zivlog::Testing
