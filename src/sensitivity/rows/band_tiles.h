// Writes the coefficients that up to eight consecutive rows have in one band of places as runs of blocks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sensitivity/rows/blocked_rows.h"
#include "sensitivity/rows/column_ranks.h"
#include "sensitivity/rows/row_grouping.h"

namespace voxlith {

// What a raw row still has to be written, its indices rising.
struct RemainingRow {
    const std::int32_t* index = nullptr;
    const std::int32_t* value = nullptr;  // by their bits
    std::size_t length = 0;
    float divisor = 0.0F;  // of the values; none when it is not above 0
};

struct ColumnBand {
    std::int32_t firstColumn = 0;
    std::int32_t endIndex = 0;  // indices (from 1) of the band are below
    const ColumnRanks* ranks = nullptr;
};

struct RunTarget {
    std::span<std::int32_t> words;  // the whole store
    std::int64_t word = 0;          // next to be written
    std::int64_t limit = 0;         // word that must not be written any more
    std::vector<RowGroup>* runs = nullptr;
};

// Room for the places of a band, and for the last group of eight that is written at once.
using ColumnList = std::array<std::uint16_t, bandWidth + blockWidth>;

// Kept from tile to tile, so that nothing is allocated or cleared for each.
struct TileWork {
    std::array<std::uint8_t, bandWidth> rowsAt{};       // bit g: row g of the tile has the place; 0 between tiles
    std::array<ColumnList, tileRows> place{};           // of each row's coefficients in the band
    std::array<const std::int32_t*, tileRows> value{};  // of the first of them
    std::array<std::size_t, tileRows> length{};         // how many there are
    std::array<float, tileRows> divisor{};              // of the row
    ColumnList inUse{};                                 // all places of the tile
    std::size_t inUseCount = 0;
    ColumnList shared{};                            // the places of a run
    std::array<std::uint16_t, bandWidth> wordOf{};  // of a place's value in the first row of a run
    std::array<std::int32_t, bandWidth> scaled{};   // values of a row, divided
};

// Asks for the memory where the next tile of the band begins; it is likely to have about as many coefficients as the
// tile written last.
void prefetchTile(std::span<const RemainingRow> rows, const TileWork& work);

// Writes what the rows have in the band, takes it from `rows`, and adds the runs; `firstRow` is the row of rows[0].
// Returns whether it was written: not when there is no room, and then what was written is worth nothing.
bool writeTile(std::span<RemainingRow> rows, const ColumnBand& band, std::int32_t firstRow, TileWork& work,
               RunTarget& target);

}  // namespace voxlith
