#include "sensitivity/rows/band_tiles.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace voxlith {

namespace {

// The set bits of a byte: how many, and which, ascending.
struct BitList {
    std::array<std::uint16_t, 8> bit{};
};

constexpr std::array<BitList, 256> bitsOfByte = [] {
    std::array<BitList, 256> all{};
    for (std::size_t byte = 0; byte < all.size(); ++byte) {
        std::size_t n = 0;
        for (std::uint16_t b = 0; b < 8; ++b) {
            if ((byte >> b & 1U) != 0) {
                all[byte].bit[n++] = b;
            }
        }
    }
    return all;
}();

constexpr std::array<std::uint8_t, 256> countOfByte = [] {
    std::array<std::uint8_t, 256> all{};
    for (std::size_t byte = 1; byte < all.size(); ++byte) {
        all[byte] = static_cast<std::uint8_t>(all[byte / 2] + byte % 2);
    }
    return all;
}();

// Bit i: byte i is not 0.
std::size_t bytesNotZero(std::uint64_t bytes) {
    constexpr std::uint64_t low = 0x7f7f7f7f7f7f7f7fU;
    const std::uint64_t notZero = (((bytes & low) + low) | bytes) & ~low;
    return static_cast<std::size_t>((notZero >> 7U) * 0x0102040810204080U >> 56U);
}

// The places that any row uses, ascending; eight at a time and without a branch on what they hold.
std::size_t listColumns(const std::array<std::uint8_t, bandWidth>& rowsAt, ColumnList& list) {
    using Eight = std::uint16_t __attribute__((vector_size(16)));
    Eight first{};
    std::size_t count = 0;
    for (std::size_t at = 0; at < bandWidth; at += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, rowsAt.data() + at, sizeof eight);
        const std::size_t used = bytesNotZero(eight);
        Eight places;
        std::memcpy(&places, bitsOfByte[used].bit.data(), sizeof places);
        places += first;
        std::memcpy(list.data() + count, &places, sizeof places);
        count += countOfByte[used];
        first += static_cast<std::uint16_t>(8);
    }
    return count;
}

// Those of the places listed that any row of the mask uses.
std::size_t choosePlaces(std::span<const std::uint16_t> places, const std::uint8_t* rowsAt, std::uint8_t rowMask,
                         ColumnList& list) {
    std::size_t count = 0;
    for (const std::uint16_t place : places) {
        list[count] = place;
        count += (rowsAt[place] & rowMask) != 0 ? 1 : 0;
    }
    return count;
}

// Finds the places of one row's coefficients in the band and takes these from the row.
void takeRow(RemainingRow& row, const ColumnBand& band, std::size_t g, TileWork& work) {
    const auto bit = static_cast<std::uint8_t>(1U << g);
    std::uint16_t* const places = work.place[g].data();
    // Held here: bytes that are stored below could change anything else, as far as the compiler knows.
    std::uint8_t* const rowsAt = work.rowsAt.data();
    const std::int32_t* const index = row.index;
    const std::int32_t* const columnOfGroup = band.ranks->columnOfGroup.data();
    const std::uint8_t* const rankInGroup = band.ranks->rankInGroup.data();
    const std::int32_t firstColumn = band.firstColumn;
    const std::int32_t endIndex = band.endIndex;
    const std::size_t length = row.length;
    std::size_t n = 0;
    for (; n < length && index[n] < endIndex; ++n) {
        const auto place = static_cast<std::size_t>(compactIndexOf(index[n], columnOfGroup, rankInGroup) - firstColumn);
        rowsAt[place] = static_cast<std::uint8_t>(rowsAt[place] | bit);
        places[n] = static_cast<std::uint16_t>(place);
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

// The list filled up to whole blocks with its last place.
void fillBlock(ColumnList& list, std::size_t count) {
    for (std::size_t p = count; p % blockWidth != 0; ++p) {
        list[p] = list[count - 1];
    }
}

void writeSingle(std::size_t g, TileWork& work, std::int32_t* out) {
    constexpr auto blockWords = static_cast<std::size_t>(wordsOfBlock(1));
    constexpr auto columnWords = static_cast<std::size_t>(wordsOfColumns);
    const std::size_t count = work.length[g];
    fillBlock(work.place[g], count);
    const std::int32_t* const values = valuesOf(g, work);
    const std::size_t whole = count / blockWidth;
    for (std::size_t b = 0; b < whole; ++b) {
        std::memcpy(out + b * blockWords, work.place[g].data() + b * blockWidth, blockWidth * sizeof(std::uint16_t));
        std::memcpy(out + b * blockWords + columnWords, values + b * blockWidth, blockWidth * sizeof(std::int32_t));
    }
    if (const std::size_t rest = count % blockWidth; rest != 0) {
        std::int32_t* const block = out + whole * blockWords;
        std::memcpy(block, work.place[g].data() + whole * blockWidth, blockWidth * sizeof(std::uint16_t));
        std::fill_n(block + columnWords, blockWidth, 0);
        std::copy_n(values + whole * blockWidth, rest, block + columnWords);
    }
}

// Writes the places of a run of several rows, with values of 0, and notes where the value of each goes.
void writeColumnList(ColumnList& list, std::size_t count, std::size_t rowCount, TileWork& work, std::int32_t* out) {
    const auto blockWords = static_cast<std::size_t>(wordsOfBlock(static_cast<std::int64_t>(rowCount)));
    constexpr auto columnWords = static_cast<std::size_t>(wordsOfColumns);
    fillBlock(list, count);
    for (std::size_t first = 0, word = 0; first < count; first += blockWidth, word += blockWords) {
        std::memcpy(out + word, list.data() + first, blockWidth * sizeof(std::uint16_t));
        std::fill_n(out + word + columnWords, rowCount * blockWidth, 0);
        for (std::size_t l = blockWidth; l-- > 0;) {  // the first of a repeated place comes last and holds
            work.wordOf[list[first + l]] = static_cast<std::uint16_t>(word + columnWords + l);
        }
    }
}

void writeShared(const RowGrouping& choice, TileWork& work, std::int32_t* out) {
    const std::size_t count =
        choosePlaces(std::span(work.inUse).first(work.inUseCount), work.rowsAt.data(), choice.rowMask, work.shared);
    writeColumnList(work.shared, count, choice.rowCount, work, out);
    for (std::size_t n = 0; n < choice.rowCount; ++n) {
        const std::size_t g = choice.firstRow + n;
        const std::int32_t* const values = valuesOf(g, work);
        const std::uint16_t* const places = work.place[g].data();
        std::int32_t* const first = out + blockWidth * n;
        for (std::size_t p = 0; p < work.length[g]; ++p) {
            first[work.wordOf[places[p]]] = values[p];
        }
    }
}

// Returns whether there is room for the run.
bool writeRun(const RowGrouping& choice, std::int64_t places, const ColumnBand& band, std::int32_t firstRow,
              TileWork& work, RunTarget& target) {
    const RowGroup run{target.word,
                       static_cast<std::int32_t>(blocksFor(places)),
                       firstRow + static_cast<std::int32_t>(choice.firstRow),
                       band.firstColumn,
                       static_cast<std::int16_t>(choice.rowCount),
                       RunForm::blocks};
    if (target.word + wordsOfRun(run) > target.limit) {
        return false;
    }
    std::int32_t* const out = target.words.data() + target.word;
    if (choice.rowCount == 1) {
        writeSingle(choice.firstRow, work, out);
    } else {
        writeShared(choice, work, out);
    }
    target.runs->push_back(run);
    target.word += wordsOfRun(run);
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
               RunTarget& target) {
    for (std::size_t g = 0; g < rows.size(); ++g) {
        takeRow(rows[g], band, g, work);
    }
    work.inUseCount = listColumns(work.rowsAt, work.inUse);
    const ColumnCounts counts = countColumns(std::span(work.inUse).first(work.inUseCount), work.rowsAt.data());
    const std::array<bool, groupingCount> taken = chooseGroupings(counts, rows.size());
    bool written = true;
    for (std::size_t n = 0; n < groupingCount && written; ++n) {
        written = !taken[n] || writeRun(rowGroupings[n], counts[n], band, firstRow, work, target);
    }
    work.rowsAt.fill(0);
    return written;
}

}  // namespace voxlith
