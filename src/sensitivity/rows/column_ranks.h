// Compact indices: the ranks of the positions of the padded array that any row of a file uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// The compact index of a position is looked up for every coefficient, so the table takes little more than a byte per
// position: what most look-ups need stays in the cache.
constexpr std::size_t rankGroup = 256;  // positions

struct ColumnRanks {
    std::vector<std::int32_t>
        columnOfGroup;                      // compact index of the first used position from the start of each group on
    std::vector<std::uint8_t> rankInGroup;  // of a used position: how many used positions of its group are below it
    std::vector<std::uint8_t> ascends;      // by row: whether its indices ascend, so that each occurs once
};

// The compact index of an index (from 1) that some row has.
inline std::int32_t compactIndexOf(std::int32_t index, const std::int32_t* columnOfGroup,
                                   const std::uint8_t* rankInGroup) {
    const std::size_t position = static_cast<std::size_t>(index) - 1;
    return columnOfGroup[position / rankGroup] + rankInGroup[position];
}

// Goes over the indices of all rows of this rank once, each from 1 to paddedCount; usedColumns gets the
// position of each compact index, of the rows of all ranks. Throws std::bad_alloc.
ColumnRanks rankColumns(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                        std::vector<std::int32_t>& usedColumns);

}  // namespace voxlith
