// The compressed rows of a file one after the other from disk, for runs whose rows do not fit into memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sensitivity/sensitivity.h"

namespace voxlith {

// A row in the read-ahead of its file or in the buffers of the store; it stands until the next read from the file.
struct DiskRow {
    const std::int32_t* coefIndex = nullptr;
    const std::int32_t* coefValue = nullptr;  // bits of real32
    std::size_t count = 0;
};

// Back to the first row of file `mtx` (from 0).
void rewindRows(Sensitivity& sensitivity, std::size_t mtx);

// The next row of the file. A count of 0 or less gives an empty row and nothing further is read for it: dense rows need
// memory mode. Allocates only when a row is longer than every row before and than the last file's longest. Throws
// RunError when the file ends early or an index lies outside the padded array.
DiskRow readNextRow(Sensitivity& sensitivity, std::size_t mtx);

}  // namespace voxlith
