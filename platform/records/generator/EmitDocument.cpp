#include "Emit.h"
namespace RecordGen {
std::string document(Model const&) {
   return "";
}
} // namespace RecordGen
