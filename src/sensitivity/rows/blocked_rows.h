// The form of the compressed rows in memory while the run iterates.
//
// The columns that any row of a file uses are renumbered: `usedColumns` lists their positions in the padded array, and
// the index of a column in that list is its compact index. Rows are grouped in slabs, compact indices in bands: the
// part of the compact array that belongs to a band stays in the first-level cache while all rows of a slab pass over it
// (cache blocking, as for dense matrices). Without bands nearly every coefficient would load its model value from
// further away.
//
// Rows of neighbouring stations use nearly the same columns. So within a band eight, four or two consecutive rows, or
// one, share an ascending list of compact indices, whichever takes the least time, and each row of such a group has a
// value for every entry of the list, 0 where it has none: fewer bytes per coefficient, and several products for one
// load of the model.
//
// A group is stored in blocks of eight entries: eight uint16 indices, counted from the start of the band, then for each
// row eight real32 values. The last block is filled up by repeating its last index, with values of 0.
//
// The groups, and the order in which they are listed, are a function of the rows of the file alone. They do not depend
// on the other files of a run, on free memory or on the number of threads, so products give the same bytes however they
// are split. Several ranks have whole slabs each, with the groups that one process has; rows of others are empty, and
// used columns are those of all ranks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace voxlith {

constexpr std::size_t blockWidth = 8;    // entries of a block
constexpr std::size_t bandWidth = 4096;  // compact indices of a band: 32 KB of real64
constexpr std::size_t slabRows = 256;    // rows of a slab; the last one may have fewer
constexpr std::size_t tileRows = 8;      // consecutive rows that may share a list, from multiples of it

enum class GroupForm : std::int16_t {
    blocks,   // as described above
    unsorted  // one row in the order of the file: `count` compact indices (int32), then `count` values
};

struct RowGroup {
    std::int64_t firstWord = 0;    // in 4-byte words from the start of the store
    std::int32_t count = 0;        // blocks, or coefficients of an unsorted row
    std::int32_t firstRow = 0;     // in the file
    std::int32_t firstColumn = 0;  // compact index at which the band begins; 0 for an unsorted row
    std::int16_t rowCount = 1;     // 1, 2, 4 or 8
    GroupForm form = GroupForm::blocks;
};

// Up to slabRows consecutive rows. Their groups follow each other in the list: first those in blocks, band by band and
// in a band by ascending rows; then the unsorted rows.
struct RowSlab {
    std::size_t firstRow = 0;
    std::size_t rowCount = 0;
    std::size_t firstGroup = 0;
    std::size_t firstUnsorted = 0;
    std::size_t endGroup = 0;
};

struct BlockedRows {
    std::vector<RowSlab> slabs;
    std::vector<RowGroup> groups;
    std::vector<std::int32_t> usedColumns;  // ascending positions in the padded array, from 0
    // Words of all tiles and bands before each one, and the total at the end: equal shares of the products.
    std::vector<std::int64_t> wordsBeforeTile;
    std::vector<std::int64_t> wordsBeforeBand;  // of the groups in blocks
    // With several ranks: the bands with which chunks of equal work begin, and the number of bands at the end.
    std::vector<std::size_t> firstBandOfChunk;
};

inline std::size_t bandCount(const BlockedRows& rows) {
    return (rows.usedColumns.size() + bandWidth - 1) / bandWidth;
}

constexpr std::int64_t indexWords = static_cast<std::int64_t>(blockWidth * sizeof(std::uint16_t)) / 4;

constexpr std::int64_t wordsOfBlock(std::int64_t rows) {
    return indexWords + static_cast<std::int64_t>(blockWidth) * rows;
}

constexpr std::int64_t blocksFor(std::int64_t entries) {
    constexpr auto width = static_cast<std::int64_t>(blockWidth);
    return (entries + width - 1) / width;
}

constexpr std::int64_t wordsOfGroup(const RowGroup& group) {
    return group.form == GroupForm::blocks ? group.count * wordsOfBlock(group.rowCount) : 2 * std::int64_t{group.count};
}

// Entry l of the indices with which a block begins.
inline std::size_t columnAt(const std::int32_t* block, std::size_t l) {
    std::uint16_t column = 0;
    std::memcpy(&column, reinterpret_cast<const unsigned char*>(block) + l * sizeof column, sizeof column);
    return column;
}

// The raw rows of one file in the store: row after row, length[r] int32 indices (from 1) and then as many real32 values
// each.
struct RawRows {
    std::int64_t firstWord = 0;
    std::span<const std::int64_t> length;
    std::span<const float> divisor;  // of the values of each row, in real32; none where it is not above 0. May be empty
};

// Words that must be free before the first raw row of a store, so that blocked rows are never written over raw rows
// that are still to be read: a 32nd of the rows, or eight consecutive rows where these are more. rowOffset: that of the
// store, all files.
std::int64_t headroomWordsFor(std::span<const std::int64_t> rowOffset);

// How several ranks lay out their rows. Rows are written in batches, and a batch that would take more words in blocks
// than raw stays unsorted: which rows share a batch depends on all rows before. As a rule every tile fits by itself, so
// that batches do not matter, and all ranks work at once. Otherwise they must work in turn.
enum class RankOrder { atOnce, inTurn };

// headroomWordsFor ranks in turn, whose batches have the size of those of one process: a slab.
std::int64_t headroomWordsInTurn(std::span<const std::int64_t> rowOffset);

struct BlockedEnd {
    std::int64_t word = 0;      // end of the blocked rows
    bool everyTileFits = true;  // false: with several ranks at once the layout may be another one than in turn
};

// Turns the raw rows of one file into blocked rows, in place: written from word `targetWord` of the store `words` on,
// which is at least headroomWordsFor (or headroomWordsInTurn) the store before the raw rows, and never longer than
// these. Indices are from 1 to paddedCount. Throws std::bad_alloc.
BlockedEnd blockRows(std::span<std::int32_t> words, const RawRows& raw, std::int64_t targetWord,
                     std::size_t paddedCount, RankOrder order, BlockedRows& blocked);

}  // namespace voxlith
