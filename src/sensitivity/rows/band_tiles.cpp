#include "sensitivity/rows/band_tiles.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>

namespace voxlith {

namespace {

constexpr auto indexWordCount = static_cast<std::size_t>(indexWords);

// The numbers of the bits that are set in a byte, ascending.
constexpr std::array<std::array<std::uint16_t, 8>, 256> bitsOfByte = [] {
    std::array<std::array<std::uint16_t, 8>, 256> all{};
    for (std::size_t byte = 0; byte < all.size(); ++byte) {
        std::size_t n = 0;
        for (std::uint16_t bit = 0; bit < 8; ++bit) {
            if ((byte >> bit & 1U) != 0) {
                all[byte][n++] = bit;
            }
        }
    }
    return all;
}();

constexpr std::array<std::uint8_t, 256> bitCountOfByte = [] {
    std::array<std::uint8_t, 256> all{};
    for (std::size_t byte = 1; byte < all.size(); ++byte) {
        all[byte] = static_cast<std::uint8_t>(all[byte / 2] + byte % 2);
    }
    return all;
}();

// Bit i is set if byte i is not 0.
std::size_t nonzeroBytes(std::uint64_t bytes) {
    constexpr std::uint64_t low = 0x7f7f7f7f7f7f7f7fU;
    const std::uint64_t highBits = (((bytes & low) + low) | bytes) & ~low;
    return static_cast<std::size_t>((highBits >> 7U) * 0x0102040810204080U >> 56U);
}

// The columns that any row uses, ascending. Eight at a time and without a branch: which columns are used is
// unpredictable.
std::size_t listColumns(const std::array<std::uint8_t, bandWidth>& rowMaskAt, ColumnList& list) {
    using Eight = std::uint16_t __attribute__((vector_size(16)));
    Eight first{};
    std::size_t count = 0;
    for (std::size_t column = 0; column < bandWidth; column += 8) {
        std::uint64_t masks = 0;
        std::memcpy(&masks, rowMaskAt.data() + column, sizeof masks);
        const std::size_t used = nonzeroBytes(masks);
        Eight columns;
        std::memcpy(&columns, bitsOfByte[used].data(), sizeof columns);
        columns += first;
        std::memcpy(list.data() + count, &columns, sizeof columns);
        count += bitCountOfByte[used];
        first += static_cast<std::uint16_t>(8);
    }
    return count;
}

// Those of the columns listed that any row of the mask uses.
std::size_t selectColumns(std::span<const std::uint16_t> columns, const std::uint8_t* rowMaskAt, std::uint8_t rowMask,
                          ColumnList& list) {
    std::size_t count = 0;
    for (const std::uint16_t column : columns) {
        list[count] = column;
        count += (rowMaskAt[column] & rowMask) != 0 ? 1 : 0;
    }
    return count;
}

// Finds the columns of one row's coefficients in the band and removes these from the row.
void takeRow(RemainingRow& row, const ColumnBand& band, std::size_t g, TileWork& work) {
    const auto bit = static_cast<std::uint8_t>(1U << g);
    std::uint16_t* const columns = work.column[g].data();
    // Pointers and bounds are local: the compiler must assume that a byte stored below changes any member.
    std::uint8_t* const rowMaskAt = work.rowMaskAt.data();
    const std::int32_t* const index = row.index;
    const std::int32_t* const columnOfGroup = band.ranks->columnOfGroup.data();
    const std::uint8_t* const rankInGroup = band.ranks->rankInGroup.data();
    const std::int32_t firstColumn = band.firstColumn;
    const std::int32_t endIndex = band.endIndex;
    const std::size_t length = row.length;
    std::size_t n = 0;
    for (; n < length && index[n] < endIndex; ++n) {
        const auto column =
            static_cast<std::size_t>(compactIndexOf(index[n], columnOfGroup, rankInGroup) - firstColumn);
        rowMaskAt[column] = static_cast<std::uint8_t>(rowMaskAt[column] | bit);
        columns[n] = static_cast<std::uint16_t>(column);
    }
    work.value[g] = row.value;
    work.length[g] = n;
    work.divisor[g] = row.divisor;
    row = {index + n, row.value + n, length - n, row.divisor};
}

// The values of a row's coefficients in the band as they are to be written.
const std::int32_t* valuesOf(std::size_t g, TileWork& work) {
    const std::int32_t* const values = work.value[g];
    const float divisor = work.divisor[g];
    if (!(divisor > 0.0F)) {
        return values;
    }
    for (std::size_t p = 0; p < work.length[g]; ++p) {
        work.scaled[p] = std::bit_cast<std::int32_t>(std::bit_cast<float>(values[p]) / divisor);
    }
    return work.scaled.data();
}

// Fills the list up to whole blocks with its last column.
void fillBlock(ColumnList& list, std::size_t count) {
    for (std::size_t p = count; p % blockWidth != 0; ++p) {
        list[p] = list[count - 1];
    }
}

void writeSingle(std::size_t g, TileWork& work, std::int32_t* out) {
    constexpr auto blockWords = static_cast<std::size_t>(wordsOfBlock(1));
    const std::size_t count = work.length[g];
    fillBlock(work.column[g], count);
    const std::uint16_t* const columns = work.column[g].data();
    const std::int32_t* const values = valuesOf(g, work);
    const std::size_t whole = count / blockWidth;
    for (std::size_t b = 0; b < whole; ++b) {
        std::memcpy(out + b * blockWords, columns + b * blockWidth, blockWidth * sizeof(std::uint16_t));
        std::memcpy(out + b * blockWords + indexWordCount, values + b * blockWidth, blockWidth * sizeof(std::int32_t));
    }
    if (const std::size_t rest = count % blockWidth; rest != 0) {
        std::int32_t* const block = out + whole * blockWords;
        std::memcpy(block, columns + whole * blockWidth, blockWidth * sizeof(std::uint16_t));
        std::fill_n(block + indexWordCount, blockWidth, 0);
        std::copy_n(values + whole * blockWidth, rest, block + indexWordCount);
    }
}

// Writes the list of a group of several rows, with values of 0, and records where the value of each column goes.
void writeColumnList(ColumnList& list, std::size_t count, std::size_t rowCount, TileWork& work, std::int32_t* out) {
    const auto blockWords = static_cast<std::size_t>(wordsOfBlock(static_cast<std::int64_t>(rowCount)));
    fillBlock(list, count);
    for (std::size_t first = 0, word = 0; first < count; first += blockWidth, word += blockWords) {
        std::memcpy(out + word, list.data() + first, blockWidth * sizeof(std::uint16_t));
        std::fill_n(out + word + indexWordCount, rowCount * blockWidth, 0);
        for (std::size_t l = blockWidth; l-- > 0;) {  // backwards: of a repeated column the first entry counts
            work.wordOf[list[first + l]] = static_cast<std::uint16_t>(word + indexWordCount + l);
        }
    }
}

void writeShared(const RowGrouping& grouping, TileWork& work, std::int32_t* out) {
    const std::size_t count =
        selectColumns(std::span(work.used).first(work.usedCount), work.rowMaskAt.data(), grouping.rowMask, work.shared);
    writeColumnList(work.shared, count, grouping.rowCount, work, out);
    for (std::size_t n = 0; n < grouping.rowCount; ++n) {
        const std::size_t g = grouping.firstRow + n;
        const std::int32_t* const values = valuesOf(g, work);
        const std::uint16_t* const columns = work.column[g].data();
        std::int32_t* const first = out + blockWidth * n;
        for (std::size_t p = 0; p < work.length[g]; ++p) {
            first[work.wordOf[columns[p]]] = values[p];
        }
    }
}

// Returns false if the group does not fit below the limit.
bool writeGroup(const RowGrouping& grouping, std::int64_t columns, const ColumnBand& band, std::int32_t firstRow,
                TileWork& work, GroupTarget& target) {
    const RowGroup group{target.word,
                         static_cast<std::int32_t>(blocksFor(columns)),
                         firstRow + static_cast<std::int32_t>(grouping.firstRow),
                         band.firstColumn,
                         static_cast<std::int16_t>(grouping.rowCount),
                         GroupForm::blocks};
    if (target.word + wordsOfGroup(group) > target.limit) {
        return false;
    }
    std::int32_t* const out = target.words.data() + target.word;
    if (grouping.rowCount == 1) {
        writeSingle(grouping.firstRow, work, out);
    } else {
        writeShared(grouping, work, out);
    }
    target.groups->push_back(group);
    target.word += wordsOfGroup(group);
    return true;
}

}  // namespace

void prefetchTile(std::span<const RemainingRow> rows, const TileWork& work) {
    constexpr std::size_t valuesOfLine = 16;
    for (std::size_t g = 0; g < rows.size(); ++g) {
        const std::size_t ahead = std::min(rows[g].length, work.length[g] + valuesOfLine);
        for (std::size_t p = 0; p < ahead; p += valuesOfLine) {
            __builtin_prefetch(rows[g].index + p);
            __builtin_prefetch(rows[g].value + p);
        }
    }
}

bool writeTile(std::span<RemainingRow> rows, const ColumnBand& band, std::int32_t firstRow, TileWork& work,
               GroupTarget& target) {
    assert(!rows.empty() && rows.size() <= tileRows);
    for (std::size_t g = 0; g < rows.size(); ++g) {
        takeRow(rows[g], band, g, work);
    }
    work.usedCount = listColumns(work.rowMaskAt, work.used);
    const ColumnCounts counts = countColumns(std::span(work.used).first(work.usedCount), work.rowMaskAt.data());
    const std::array<bool, groupingCount> chosen = chooseGroupings(counts, rows.size());
    bool written = true;
    for (std::size_t n = 0; n < groupingCount && written; ++n) {
        written = !chosen[n] || writeGroup(rowGroupings[n], counts[n], band, firstRow, work, target);
    }
    work.rowMaskAt.fill(0);
    return written;
}

}  // namespace voxlith
