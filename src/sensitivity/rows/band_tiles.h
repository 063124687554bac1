// Writes the coefficients that a tile, up to eight consecutive rows, has in one band as groups of blocks.
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

// The part of a raw row that is not written yet; its indices ascend.
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

struct GroupTarget {
    std::span<std::int32_t> words;  // the whole store
    std::int64_t word = 0;          // next to be written
    std::int64_t limit = 0;         // end of the words that may be written
    std::vector<RowGroup>* groups = nullptr;
};

// The columns of a band, and the last eight entries that are written at once.
using ColumnList = std::array<std::uint16_t, bandWidth + blockWidth>;

// Kept from tile to tile, so that nothing is allocated or cleared for each. Columns are counted from the start of the
// band.
struct TileWork {
    std::array<std::uint8_t, bandWidth> rowMaskAt{};    // bit g: row g of the tile uses the column; 0 between tiles
    std::array<ColumnList, tileRows> column{};          // of each row's coefficients in the band
    std::array<const std::int32_t*, tileRows> value{};  // of the first of them
    std::array<std::size_t, tileRows> length{};         // how many there are
    std::array<float, tileRows> divisor{};              // of the row
    ColumnList used{};                                  // all columns of the tile
    std::size_t usedCount = 0;
    ColumnList shared{};                            // the columns of a group
    std::array<std::uint16_t, bandWidth> wordOf{};  // of a column's value in the first row of a group
    std::array<std::int32_t, bandWidth> scaled{};   // values of a row, divided
};

// Prefetches the start of the next tile of the band; it is likely to have about as many coefficients as the tile
// written last.
void prefetchTile(std::span<const RemainingRow> rows, const TileWork& work);

// Writes the coefficients of the rows in the band, removes them from `rows`, and adds the groups; `firstRow` is the row
// of rows[0]. Returns false if they do not fit below the limit; then what was written has no meaning.
bool writeTile(std::span<RemainingRow> rows, const ColumnBand& band, std::int32_t firstRow, TileWork& work,
               GroupTarget& target);

}  // namespace voxlith
