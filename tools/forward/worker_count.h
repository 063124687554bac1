// How many threads compute when nothing is asked for.
#pragma once

#include <cstddef>

namespace voxlith {

// The cores that the process may use, as its affinity has them (taskset, Slurm), but no more than have their work
// memory in half of the machine's memory, or of the limit of the control group of the process if that is less; one at
// least.
std::size_t defaultThreads(std::size_t bytesPerThread);

// Work memory of one row of the sensitivity file over these cells, and of one datum without a file, about.
std::size_t rowWorkBytes(std::size_t cells, std::size_t paddedCells);
std::size_t datumWorkBytes(std::size_t cells);

}  // namespace voxlith
