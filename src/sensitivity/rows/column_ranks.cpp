#include "sensitivity/rows/column_ranks.h"

#include <bit>
#include <cassert>

#include "base/ranks.h"

namespace voxlith {

namespace {

constexpr std::size_t wordBits = 64;

// The test before the store is worth its while: nearly all positions are marked already, and a load that misses the
// cache does not delay the instructions after it as a store does.
void markPositions(std::span<const std::int32_t> indices, std::uint64_t* used) {
    for (const std::int32_t index : indices) {
        const std::size_t position = static_cast<std::size_t>(index) - 1;
        const std::uint64_t bit = std::uint64_t{1} << position % wordBits;
        std::uint64_t& word = used[position / wordBits];
        if ((word & bit) == 0) {
            word |= bit;
        }
    }
}

bool indicesAscend(std::span<const std::int32_t> indices) {
    std::int32_t falls = 0;  // no early exit, so that the loop is vectorised
    for (std::size_t p = 1; p < indices.size(); ++p) {
        falls |= indices[p] <= indices[p - 1] ? 1 : 0;
    }
    return falls == 0;
}

void listPositions(std::span<const std::uint64_t> used, ColumnRanks& ranks, std::vector<std::int32_t>& usedColumns) {
    std::size_t count = 0;
    for (const std::uint64_t word : used) {
        count += static_cast<std::size_t>(std::popcount(word));
    }
    usedColumns.reserve(count);
    for (std::size_t position = 0; position < ranks.rankInGroup.size(); ++position) {
        const auto column = static_cast<std::int32_t>(usedColumns.size());
        std::int32_t& columnOfGroup = ranks.columnOfGroup[position / rankGroup];
        if (position % rankGroup == 0) {
            columnOfGroup = column;
        }
        if ((used[position / wordBits] >> position % wordBits & 1U) != 0) {
            ranks.rankInGroup[position] = static_cast<std::uint8_t>(column - columnOfGroup);
            usedColumns.push_back(static_cast<std::int32_t>(position));
        }
    }
}

}  // namespace

ColumnRanks rankColumns(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                        std::vector<std::int32_t>& usedColumns) {
    assert(usedColumns.empty());
    ColumnRanks ranks;
    ranks.ascends.resize(raw.length.size());
    std::vector<std::uint64_t> used((paddedCount + wordBits - 1) / wordBits);
    auto word = static_cast<std::size_t>(raw.firstWord);
    for (std::size_t r = 0; r < raw.length.size(); ++r) {
        const auto length = static_cast<std::size_t>(raw.length[r]);
        const std::span<const std::int32_t> indices = words.subspan(word, length);
        markPositions(indices, used.data());
        ranks.ascends[r] = indicesAscend(indices) ? 1 : 0;
        word += 2 * length;
    }
    if (ranksOfRun().count > 1) {
        ranksOfRun().unite(used);
    }
    ranks.columnOfGroup.resize((paddedCount + rankGroup - 1) / rankGroup);
    ranks.rankInGroup.resize(paddedCount);
    listPositions(used, ranks, usedColumns);
    return ranks;
}

}  // namespace voxlith
