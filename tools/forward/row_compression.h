// Which wavelet coefficients of a row are kept.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "forward/block_energy.h"

namespace voxlith {

struct RankedCoefficient {
    double magnitude = 0;
    std::int32_t index = 0;  // in the padded array, from 0
};

struct CompressedRow {
    std::vector<std::int32_t> coefIndex;  // indices in the padded array from 1, rising
    std::vector<float> coefValue;
    double loss = 0;  // norm of the dropped coefficients over the norm of the row; 0 for a row of zeros
};

// Work memory of compressRow, reused from row to row.
struct CompressionWork {
    std::vector<BlockEnergy> energies;
    std::vector<RankedCoefficient> candidates, ranked;
    std::vector<double> scaled;  // a row of very small values
};

// The smallest set of coefficients of `padded` whose loss is at most `tolerance`. Of equal magnitudes the first ones
// are kept. The set is never empty: a row of zeros keeps its first coefficient, because a row without any cannot be
// read back. The memory of `work` and `row` is reused from row to row. Throws RunError when a coefficient is too large
// for single precision.
void compressRow(std::span<const double> padded, double tolerance, CompressionWork& work, CompressedRow& row);

}  // namespace voxlith
