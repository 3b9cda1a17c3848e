#include "Kem/PacedLog.h"

#include <utility>
#include <vector>

namespace Kem {

void PacedLog::operator()(std::initializer_list<std::string> texts) {
   if (!handle_.okToLog(leftOut_)) {
      ++leftOut_;
      return;
   }
   std::vector<char const*> args;
   for (auto const& text : texts)
      args.push_back(text.c_str());
   handle_.log(std::exchange(leftOut_, 0), args.data(), static_cast<unsigned>(args.size()));
}

} // namespace Kem
