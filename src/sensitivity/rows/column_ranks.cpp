#include "sensitivity/rows/column_ranks.h"

#include <bit>

namespace voxlith {

namespace {

constexpr std::size_t wordBits = 64;

// Nearly all positions are marked already, and a load that misses the cache does not hold up what is behind it as a
// store does.
void markPositions(std::span<const std::int32_t> indices, std::uint64_t* inUse) {
    for (const std::int32_t index : indices) {
        const std::size_t position = static_cast<std::size_t>(index) - 1;
        const std::uint64_t bit = std::uint64_t{1} << position % wordBits;
        std::uint64_t& word = inUse[position / wordBits];
        if ((word & bit) == 0) {
            word |= bit;
        }
    }
}

bool indicesRise(std::span<const std::int32_t> indices) {
    std::int32_t falls = 0;  // no branch inside, so that vectors can do it
    for (std::size_t p = 1; p < indices.size(); ++p) {
        falls |= indices[p] <= indices[p - 1] ? 1 : 0;
    }
    return falls == 0;
}

void listPositions(std::span<const std::uint64_t> inUse, ColumnRanks& ranks, std::vector<std::int32_t>& usedColumns) {
    std::size_t count = 0;
    for (const std::uint64_t word : inUse) {
        count += static_cast<std::size_t>(std::popcount(word));
    }
    usedColumns.reserve(count);
    for (std::size_t position = 0; position < ranks.rankInGroup.size(); ++position) {
        const auto place = static_cast<std::int32_t>(usedColumns.size());
        std::int32_t& columnOfGroup = ranks.columnOfGroup[position / rankGroup];
        if (position % rankGroup == 0) {
            columnOfGroup = place;
        }
        if ((inUse[position / wordBits] >> position % wordBits & 1U) != 0) {
            ranks.rankInGroup[position] = static_cast<std::uint8_t>(place - columnOfGroup);
            usedColumns.push_back(static_cast<std::int32_t>(position));
        }
    }
}

}  // namespace

ColumnRanks rankColumns(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                        std::vector<std::int32_t>& usedColumns) {
    ColumnRanks ranks;
    ranks.rises.resize(raw.length.size());
    std::vector<std::uint64_t> inUse((paddedCount + wordBits - 1) / wordBits);
    auto word = static_cast<std::size_t>(raw.firstWord);
    for (std::size_t r = 0; r < raw.length.size(); ++r) {
        const auto length = static_cast<std::size_t>(raw.length[r]);
        const std::span<const std::int32_t> indices = words.subspan(word, length);
        markPositions(indices, inUse.data());
        ranks.rises[r] = indicesRise(indices) ? 1 : 0;
        word += 2 * length;
    }
    ranks.columnOfGroup.resize((paddedCount + rankGroup - 1) / rankGroup);
    ranks.rankInGroup.resize(paddedCount);
    listPositions(inUse, ranks, usedColumns);
    return ranks;
}

}  // namespace voxlith
