#include "sensitivity/rows/row_grouping.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

namespace {

// What a place adds to the counts when the rows of a mask use it.
alignas(32) constexpr std::array<ColumnCounts, 256> countsOfMask = [] {
    std::array<ColumnCounts, 256> all{};
    for (std::size_t mask = 0; mask < all.size(); ++mask) {
        for (std::size_t n = 0; n < groupingCount; ++n) {
            all[mask][n] = (mask & rowGroupings[n].rowMask) != 0 ? 1 : 0;
        }
    }
    return all;
}();

// Time of a run in units of a byte read. Loading the model values of a block takes about as long as 16 bytes more, and
// going over to another run as 24: with these measured figures the sum of both products took the least time.
std::int64_t timeOf(const RowGrouping& choice, std::int64_t places) {
    const std::int64_t blockTime = 4 * wordsOfBlock(static_cast<std::int64_t>(choice.rowCount)) + 16;
    return places == 0 ? 0 : blocksFor(places) * blockTime + 24;
}

}  // namespace

ColumnCounts countColumns(std::span<const std::uint16_t> places, const std::uint8_t* rowsAt) {
    using Half = std::uint16_t __attribute__((vector_size(sizeof(ColumnCounts) / 2)));  // a register of any machine
    Half sum[2] = {};
    for (const std::uint16_t place : places) {
        Half one[2];
        std::memcpy(one, countsOfMask[rowsAt[place]].data(), sizeof one);
        sum[0] += one[0];
        sum[1] += one[1];
    }
    ColumnCounts counts{};
    std::memcpy(counts.data(), sum, sizeof counts);
    return counts;
}

std::array<bool, groupingCount> chooseGroupings(const ColumnCounts& counts, std::size_t rowCount) {
    std::array<bool, groupingCount> whole{};
    std::array<std::int64_t, groupingCount> least{};
    for (std::size_t n = groupingCount; n-- > 0;) {
        const RowGrouping& choice = rowGroupings[n];
        const bool exists = choice.firstRow + choice.rowCount <= rowCount || counts[n] == 0;
        const std::int64_t together = exists ? timeOf(choice, counts[n]) : std::numeric_limits<std::int64_t>::max();
        const bool single = choice.rowCount == 1;
        const std::int64_t apart = single ? together : least[2 * n + 1] + least[2 * n + 2];
        whole[n] = together <= apart;
        least[n] = std::min(together, apart);
    }
    std::array<bool, groupingCount> taken{};
    std::array<bool, 2 * groupingCount + 1> reached{true};
    for (std::size_t n = 0; n < groupingCount; ++n) {
        taken[n] = reached[n] && whole[n] && counts[n] != 0;
        reached[2 * n + 1] = reached[2 * n + 2] = reached[n] && !whole[n];
    }
    return taken;
}

}  // namespace voxlith
