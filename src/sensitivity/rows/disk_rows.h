// The compressed rows of a file one after the other from disk, for runs whose rows do not fit into memory.
#pragma once

#include <cstddef>

#include "formats/mtx/mtx_reader.h"
#include "sensitivity/sensitivity.h"

namespace voxlith {

// The next row of file `mtx` (from 0). Allocates only when a row is longer than every row before and than the last
// file's longest. Throws RunError when the file ends early or an index is outside the padded array.
MtxRowView readNextRow(Sensitivity& sensitivity, std::size_t mtx);

}  // namespace voxlith
