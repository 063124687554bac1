// Column indices of the stored coefficients: those of a real sensitivity file, or drawn at random.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "benchmark_case.h"

namespace voxlith {

// Row r has index[offset[r]] up to index[offset[r + 1] - 1]: columns from 0, rising within a row.
struct RowPattern {
    std::size_t paddedCount = 0;
    std::vector<std::int64_t> offset{0};
    std::vector<std::int32_t> index;
    std::size_t rowCount() const { return offset.size() - 1; }
};

// The rows of the file that the options name. Without one: of a survey of vertical gravity with 46 x 46 stations over
// a mesh of 128 x 128 x 32 cells. Its sensitivity file is computed in the folder when it is not there yet, which takes
// some minutes. Throws RunError.
RowPattern readRealPattern(const BenchmarkOptions& options);

// All rows again and again until there are `coefficients` at least.
RowPattern repeatRows(const RowPattern& pattern, std::int64_t coefficients);

// Rows as long as those of `pattern`, with column indices drawn from the whole padded array.
RowPattern drawRandomRows(const RowPattern& pattern, std::uint64_t seed);

}  // namespace voxlith
