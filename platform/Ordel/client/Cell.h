// The directory of a supervisor in the state tree: what is below it exists once for each supervisor.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Cell {

// The same relative path below the directory of the cell; 0 is the cell of this process.
// "cell/1/stage/boot/status".
std::string path(std::string_view relative, uint32_t cellId);

// The cell of this process, 1 unless set; set once by whoever starts the agent. At least 1.
uint32_t local();
void localIs(uint32_t cellId);

} // namespace Cell
