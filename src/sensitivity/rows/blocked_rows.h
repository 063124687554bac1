// The form in which compressed rows lie in memory while the run iterates.
//
// Positions are renumbered to the places of a compact array, which holds those in use by any row of the file. Rows are
// taken in slabs, places in bands: the part of the compact array that belongs to a band stays in the first-level cache
// while all rows of a slab pass over it (cache blocking, as for dense matrices).
//
// The rows of neighbouring stations keep nearly the same positions. So within a band eight, four, two consecutive rows
// or one share one ascending list of places, whatever takes the least time, and each row has a value for every place of
// the list, 0 where it has none: fewer bytes a coefficient, and several products for one load of the model.
//
// Such a run is laid out in blocks of eight places: eight uint16 places counted from the start of the band, then for
// each row eight real32 values. What is left of the last block repeats its last place, with values of 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace voxlith {

constexpr std::size_t blockWidth = 8;    // places of a block
constexpr std::size_t bandWidth = 4096;  // places of a band: 32 KB of real64
constexpr std::size_t slabRows = 256;    // rows of a slab, at most

enum class RunForm : std::int16_t {
    blocks,   // as told above
    unsorted  // one row as it came: count places of the compact array (int32), then count values
};

struct RowGroup {
    std::int64_t firstWord = 0;    // in 4-byte words from the start of the store
    std::int32_t count = 0;        // blocks, or coefficients of a row in any order
    std::int32_t firstRow = 0;     // in the file
    std::int32_t firstColumn = 0;  // of the band
    std::int16_t rowCount = 1;     // 1, 2, 4 or 8
    RunForm form = RunForm::blocks;
};

struct RowSlab {
    std::size_t firstRow = 0;
    std::size_t rowCount = 0;
    std::size_t firstRun = 0;
    std::size_t runCount = 0;
};

struct BlockedRows {
    std::vector<RowSlab> slabs;
    std::vector<RowGroup> runs;
    std::vector<std::int32_t> usedColumns;  // ascending positions in the padded array, from 0
};

constexpr std::int64_t wordsOfColumns = static_cast<std::int64_t>(blockWidth * sizeof(std::uint16_t)) / 4;

constexpr std::int64_t wordsOfBlock(std::int64_t rows) {
    return wordsOfColumns + static_cast<std::int64_t>(blockWidth) * rows;
}

constexpr std::int64_t blocksFor(std::int64_t places) {
    constexpr auto width = static_cast<std::int64_t>(blockWidth);
    return (places + width - 1) / width;
}

constexpr std::int64_t wordsOfRun(const RowGroup& run) {
    return run.form == RunForm::blocks ? run.count * wordsOfBlock(run.rowCount) : 2 * std::int64_t{run.count};
}

// The raw rows of one file in the store: row after row, length[r] int32 indices (from 1) and then as many real32 values
// each.
struct RawRows {
    std::int64_t firstWord = 0;
    std::span<const std::int64_t> length;
    std::span<const float> divisor;  // of the values of each row, in real32; none where it is not above 0. May be empty
};

// Words that must be free before the first raw rows of a store, so that their working form can be written in front of
// what is still to be read: a 32nd of the rows, or eight rows in sequence where these are more. rowOffset: that of the
// store, all files.
std::int64_t headroomWordsFor(std::span<const std::int64_t> rowOffset);

// Turns the rows of one file into working form, in place: written from word `targetWord` of the store `words` on, which
// lies at least `headroomWords` before the raw rows, and never longer than these. Indices are at most paddedCount.
// Returns the word behind the working form. Throws std::bad_alloc.
std::int64_t arrangeRows(std::span<std::int32_t> words, const RawRows& raw, std::int64_t targetWord,
                         std::int64_t headroomWords, std::size_t paddedCount, BlockedRows& working);

}  // namespace voxlith
