#include "Ordel/client/Cell.h"

#include "Kem/Assert.h"

namespace Cell {

namespace {
uint32_t theLocal = 1;
}

std::string path(std::string_view relative, uint32_t cellId) {
   return "cell/" + std::to_string(cellId == 0 ? theLocal : cellId) + '/' + std::string(relative);
}

uint32_t local() {
   return theLocal;
}

void localIs(uint32_t cellId) {
   KEM_ASSERT(cellId >= 1);
   theLocal = cellId;
}

} // namespace Cell
