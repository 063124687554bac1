// Which of up to eight consecutive rows share a list of columns within a band: the choice that takes the least time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// Rows of a tile that share a list.
struct RowGrouping {
    std::size_t firstRow = 0;
    std::size_t rowCount = 0;
    std::uint8_t rowMask = 0;  // bit g: row g
};

constexpr std::size_t groupingCount = 15;

// The ways to share as a tree: all eight rows, two halves, four pairs, eight single rows. Grouping n is split into
// 2 n + 1 and 2 n + 2.
constexpr std::array<RowGrouping, groupingCount> rowGroupings = [] {
    std::array<RowGrouping, groupingCount> all{};
    std::size_t n = 0;
    for (std::size_t rows = tileRows; rows > 0; rows /= 2) {
        for (std::size_t first = 0; first < tileRows; first += rows) {
            all[n++] = {first, rows, static_cast<std::uint8_t>(((1U << rows) - 1U) << first)};
        }
    }
    return all;
}();

// How many columns each grouping has: those that any of its rows uses. 16 counts fill vector registers.
using ColumnCounts = std::array<std::uint16_t, 16>;

// Counts the columns listed; bit g of rowMaskAt[column] is 1 if row g uses it.
ColumnCounts countColumns(std::span<const std::uint16_t> columns, const std::uint8_t* rowMaskAt);

// Whether each grouping is chosen, for a tile of `rowCount` rows. Every row that has columns is in exactly one chosen
// grouping.
std::array<bool, groupingCount> chooseGroupings(const ColumnCounts& counts, std::size_t rowCount);

}  // namespace voxlith
