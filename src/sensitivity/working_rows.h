// The form in which compressed rows lie in memory while the run iterates.
//
// The rows of neighbouring stations keep nearly the same positions. So up to eight consecutive rows share one ascending
// list of positions, and each row has a value for every position of the list, 0 where it has none: fewer bytes a
// coefficient, and eight products for one load of the model. Positions are renumbered to those in use by any row of the
// file, so that the values that are gathered sit close together.
//
// A group is laid out in blocks of eight positions: eight int32 places in the compact array, then for each row of the
// group eight real32 values. What is left of the last block points to the compact array's spare place, with values of
// 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace voxlith {

constexpr std::size_t blockWidth = 8;  // positions of a block

enum class RowForm : std::int32_t {
    blocks,   // as told above
    anyOrder  // one row whose positions do not rise: count places, then count values
};

struct RowGroup {
    std::int64_t firstWord = 0;  // in 4-byte words from the start of the store
    std::int64_t count = 0;      // blocks, or coefficients of a row in any order
    std::int32_t firstRow = 0;
    std::int32_t rowCount = 1;  // 1, 4 or 8
    RowForm form = RowForm::blocks;
};

struct WorkingRows {
    std::vector<RowGroup> groups;
    std::vector<std::int32_t> positionsInUse;  // ascending positions in the padded array, from 0
    std::size_t sparePlace() const { return positionsInUse.size(); }
};

// Words by which the raw rows must lie behind the place where their working form begins, for rows of any content.
constexpr std::int64_t slackWordsFor(std::int64_t rowCount) {
    return 2 * static_cast<std::int64_t>(blockWidth) * rowCount;
}

// Turns the rows of one file into working form, in place. `words` is the whole store. The raw rows stand from word
// `rawWord` on, row after row, rowLength[r] int32 indices (from 1, at most paddedCount) and then as many real32 values
// each; the working form is written from word `targetWord` on, which is at least slackWordsFor(rows left) words before
// `rawWord`, and never takes more words than the raw rows and that slack. Returns the word behind the working form.
std::int64_t arrangeRows(std::span<std::int32_t> words, std::int64_t rawWord, std::int64_t targetWord,
                         std::span<const std::int64_t> rowLength, std::size_t paddedCount, WorkingRows& working);

}  // namespace voxlith
