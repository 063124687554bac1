// Which of up to eight consecutive rows share a list of places within a band: the choice that takes the least time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace voxlith {

constexpr std::size_t tileRows = 8;

struct RowGrouping {
    std::size_t firstRow = 0;
    std::size_t rowCount = 0;
    std::uint8_t rowMask = 0;  // bit g: row g
};

constexpr std::size_t groupingCount = 15;

// The ways to share as a tree: all eight rows, two halves, four pairs, eight single rows. Choice n is split into
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

// How many places each choice has: those that any of its rows uses. 16 counts fill vector registers.
using ColumnCounts = std::array<std::uint16_t, 16>;

// Counts the places listed; bit g of rowsAt[place] tells that row g uses it.
ColumnCounts countColumns(std::span<const std::uint16_t> places, const std::uint8_t* rowsAt);

// Whether each choice is taken, for a tile of `rowCount` rows. Of choices within each other one at most is taken, and
// all rows that have places are in one.
std::array<bool, groupingCount> chooseGroupings(const ColumnCounts& counts, std::size_t rowCount);

}  // namespace voxlith
