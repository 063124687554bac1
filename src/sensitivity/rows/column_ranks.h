// Places of the compact array: the positions of the padded array that any row of a file uses, in ascending order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// The place of a position is looked up for every coefficient, so it takes little more than a byte a position: what most
// look-ups need stays in the cache.
constexpr std::size_t rankGroup = 256;  // positions

struct ColumnRanks {
    std::vector<std::int32_t> columnOfGroup;  // of the first position in use in each group or behind it
    std::vector<std::uint8_t> rankInGroup;    // of a position in use: how many positions of its group are below it
    std::vector<std::uint8_t> rises;          // by row: whether its indices rise, so that each occurs once
};

// The place of an index (from 1) that some row has.
inline std::int32_t compactIndexOf(std::int32_t index, const std::int32_t* columnOfGroup,
                                   const std::uint8_t* rankInGroup) {
    const std::size_t position = static_cast<std::size_t>(index) - 1;
    return columnOfGroup[position / rankGroup] + rankInGroup[position];
}

// Goes over the indices of all rows once; usedColumns gets the position of each place. Throws std::bad_alloc.
ColumnRanks rankColumns(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                        std::vector<std::int32_t>& usedColumns);

}  // namespace voxlith
