#include "sensitivity/rows/row_grouping.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <limits>

namespace voxlith {

namespace {

// What a column adds to the counts when the rows of a mask use it.
alignas(32) constexpr std::array<ColumnCounts, 256> countsOfMask = [] {
    std::array<ColumnCounts, 256> all{};
    for (std::size_t mask = 0; mask < all.size(); ++mask) {
        for (std::size_t n = 0; n < groupingCount; ++n) {
            all[mask][n] = (mask & rowGroupings[n].rowMask) != 0 ? 1 : 0;
        }
    }
    return all;
}();

// Time of a group, both products together, in units of a byte read. Loading the model values of a block takes as long
// as 16 bytes more, and changing to another group as 24. These figures were fitted to measured times.
std::int64_t timeOf(const RowGrouping& grouping, std::int64_t columns) {
    const std::int64_t blockTime = 4 * wordsOfBlock(static_cast<std::int64_t>(grouping.rowCount)) + 16;
    return columns == 0 ? 0 : blocksFor(columns) * blockTime + 24;
}

}  // namespace

ColumnCounts countColumns(std::span<const std::uint16_t> columns, const std::uint8_t* rowMaskAt) {
    using Half = std::uint16_t __attribute__((vector_size(sizeof(ColumnCounts) / 2)));  // a register of any machine
    Half sum[2] = {};
    for (const std::uint16_t column : columns) {
        Half one[2];
        std::memcpy(one, countsOfMask[rowMaskAt[column]].data(), sizeof one);
        sum[0] += one[0];
        sum[1] += one[1];
    }
    ColumnCounts counts{};
    std::memcpy(counts.data(), sum, sizeof counts);
    return counts;
}

std::array<bool, groupingCount> chooseGroupings(const ColumnCounts& counts, std::size_t rowCount) {
    assert(rowCount > 0 && rowCount <= tileRows);
    // From the leaves up: the least time of the rows of each grouping, shared or split further.
    std::array<bool, groupingCount> shares{};
    std::array<std::int64_t, groupingCount> least{};
    for (std::size_t n = groupingCount; n-- > 0;) {
        const RowGrouping& grouping = rowGroupings[n];
        const bool exists = grouping.firstRow + grouping.rowCount <= rowCount || counts[n] == 0;
        const std::int64_t shared = exists ? timeOf(grouping, counts[n]) : std::numeric_limits<std::int64_t>::max();
        const std::int64_t split = grouping.rowCount == 1 ? shared : least[2 * n + 1] + least[2 * n + 2];
        shares[n] = shared <= split;
        least[n] = std::min(shared, split);
    }
    std::array<bool, groupingCount> chosen{};
    std::array<bool, 2 * groupingCount + 1> reached{true};
    for (std::size_t n = 0; n < groupingCount; ++n) {
        chosen[n] = reached[n] && shares[n] && counts[n] != 0;
        reached[2 * n + 1] = reached[2 * n + 2] = reached[n] && !shares[n];
    }
    return chosen;
}

}  // namespace voxlith
