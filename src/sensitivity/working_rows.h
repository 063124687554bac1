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
    anyOrder  // one row as it came: count places of the compact array (int32), then count values
};

struct RowRun {
    std::int64_t firstWord = 0;   // in 4-byte words from the start of the store
    std::int32_t count = 0;       // blocks, or coefficients of a row in any order
    std::int32_t firstRow = 0;    // in the file
    std::int32_t firstPlace = 0;  // of the band
    std::int16_t rowCount = 1;    // 1, 2, 4 or 8
    RunForm form = RunForm::blocks;
};

struct RowSlab {
    std::size_t firstRow = 0;
    std::size_t rowCount = 0;
    std::size_t firstRun = 0;
    std::size_t runCount = 0;
};

struct WorkingRows {
    std::vector<RowSlab> slabs;
    std::vector<RowRun> runs;
    std::vector<std::int32_t> positionsInUse;  // ascending positions in the padded array, from 0
};

constexpr std::int64_t wordsOfPlaces = static_cast<std::int64_t>(blockWidth * sizeof(std::uint16_t)) / 4;

constexpr std::int64_t wordsOfBlock(std::int64_t rows) {
    return wordsOfPlaces + static_cast<std::int64_t>(blockWidth) * rows;
}

constexpr std::int64_t wordsOfRun(const RowRun& run) {
    return run.form == RunForm::blocks ? run.count * wordsOfBlock(run.rowCount) : 2 * std::int64_t{run.count};
}

// Turns the rows of one file into working form, in place. `words` is the whole store. The raw rows stand from word
// `rawWord` on, row after row, rowLength[r] int32 indices (from 1, at most paddedCount) and then as many real32 values
// each; the working form is written from word `targetWord` on, not behind `rawWord`, and never takes more words than
// the raw rows. A slab that is small beside the file is copied aside while it is rewritten. Returns the word behind the
// working form. Throws std::bad_alloc.
std::int64_t arrangeRows(std::span<std::int32_t> words, std::int64_t rawWord, std::int64_t targetWord,
                         std::span<const std::int64_t> rowLength, std::size_t paddedCount, WorkingRows& working);

}  // namespace voxlith
