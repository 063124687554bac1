// Writes the coefficients that up to eight consecutive rows have in one band of places as runs of blocks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sensitivity/working_rows.h"

namespace voxlith {

constexpr std::size_t tileRows = 8;

// What one row has in the band: rising places of the compact array, and values by their bits.
struct TileRow {
    std::span<const std::int32_t> place;
    const std::int32_t* value = nullptr;
};

struct RunTarget {
    std::span<std::int32_t> words;  // the whole store
    std::int64_t word = 0;          // next to be written
    std::int64_t limit = 0;         // word that must not be written any more
    std::vector<RowRun>* runs = nullptr;
};

// Kept from tile to tile, so that nothing is allocated for each.
struct TileWork {
    std::array<std::uint8_t, bandWidth> rowsAt{};  // bit g: row g of the tile has the place; all 0 between tiles
    std::array<std::uint16_t, bandWidth> slot{};   // of a place in the list of a run
    std::vector<std::uint16_t> inUse;              // rising places of the band
};

// Writes the tile and adds its runs; `firstPlace` begins the band, `firstRow` is the row of rows[0]. Returns whether it
// was written: not when there is no room, and then what was written of the tile is worth nothing.
bool writeTile(std::span<const TileRow> rows, std::int32_t firstPlace, std::int32_t firstRow, TileWork& work,
               RunTarget& target);

}  // namespace voxlith
