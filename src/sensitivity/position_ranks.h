// Places of the compact array: the positions of the padded array that any row of a file uses, in ascending order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sensitivity/working_rows.h"

namespace voxlith {

struct PositionRanks {
    std::vector<std::int32_t> placeAt;  // of a position in use
    std::vector<std::uint8_t> rises;    // by row: whether its indices rise, so that each occurs once
};

// Goes over the indices of all rows once; positionsInUse gets the position of each place. Throws std::bad_alloc.
PositionRanks rankPositions(std::span<const std::int32_t> words, const RawRows& raw, std::size_t paddedCount,
                            std::vector<std::int32_t>& positionsInUse);

}  // namespace voxlith
