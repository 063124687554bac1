// What a computation will take, said before it starts.
#pragma once

#include <cstddef>
#include <string_view>

namespace voxlith {

struct WorkEstimate {
    std::string_view items;  // "rows"
    std::size_t count = 0;   // of them
    std::size_t cells = 0;
    double fileBytes = 0;
    std::string_view fileRemark;  // behind the size of the file; may be empty
    double seconds = 0;
};

// "voxlith-tools: 196 rows, 2048 cells, a file of 3.2 MB before compression, about 12 s" on standard error.
void announceWork(const WorkEstimate& estimate);

// Time of one row of a sensitivity file, and of one datum, on one core of a common machine.
double rowSeconds(std::size_t cells, std::size_t paddedCells);
double datumSeconds(std::size_t cells);

}  // namespace voxlith
