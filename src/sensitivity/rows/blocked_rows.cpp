#include "sensitivity/rows/blocked_rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

#include "sensitivity/rows/band_tiles.h"
#include "sensitivity/rows/column_ranks.h"

namespace voxlith {

namespace {

constexpr std::int64_t slabShare = 32;  // of the coefficients of the file are in a slab at most

// A slab of raw rows.
struct RawSlab {
    const std::int32_t* words = nullptr;
    std::size_t firstRow = 0;
    std::span<const std::int64_t> length;
};

// Kept from slab to slab.
struct SlabWork {
    std::vector<RemainingRow> rest;  // empty for rows that do not rise
    TileWork tile;
};

// Rows of the next slab: whole tiles, few enough that they can be copied aside cheaply or that their working form ends
// before they begin. One tile at least.
std::size_t rowsOfNextSlab(std::span<const std::int64_t> rowLength, std::int64_t coefficientLimit) {
    std::size_t count = 0;
    std::int64_t coefficients = 0;
    while (count < rowLength.size() && count < slabRows) {
        const std::size_t behind = std::min(count + tileRows, rowLength.size());
        for (std::size_t r = count; r < behind; ++r) {
            coefficients += rowLength[r];
        }
        if (count > 0 && coefficients > coefficientLimit) {
            break;
        }
        count = behind;
    }
    return count;
}

void takeRows(const RawSlab& slab, const RawRows& raw, const ColumnRanks& ranks, std::vector<RemainingRow>& rest) {
    rest.assign(slab.length.size(), {});
    const std::int32_t* word = slab.words;
    for (std::size_t r = 0; r < slab.length.size(); ++r) {
        const auto length = static_cast<std::size_t>(slab.length[r]);
        const std::size_t row = slab.firstRow + r;
        if (ranks.rises[row] != 0) {
            rest[r] = {word, word + length, length, raw.divisor.empty() ? 0.0F : raw.divisor[row]};
        }
        word += 2 * length;
    }
}

ColumnBand bandAt(std::size_t firstColumn, const ColumnRanks& ranks, std::span<const std::int32_t> usedColumns) {
    ColumnBand band;
    band.firstColumn = static_cast<std::int32_t>(firstColumn);
    const std::size_t last = std::min(firstColumn + bandWidth, usedColumns.size()) - 1;
    band.endIndex = usedColumns[last] + 2;
    band.ranks = &ranks;
    return band;
}

// Writes the rising rows, band by band. Returns false when they take more room than there is.
bool writeBands(SlabWork& work, const ColumnRanks& ranks, std::span<const std::int32_t> usedColumns,
                std::size_t firstRow, RunTarget& target) {
    const std::span<RemainingRow> rows(work.rest);
    for (std::size_t firstColumn = 0; firstColumn < usedColumns.size(); firstColumn += bandWidth) {
        const ColumnBand band = bandAt(firstColumn, ranks, usedColumns);
        for (std::size_t first = 0; first < rows.size(); first += tileRows) {
            const std::size_t behind = std::min(first + tileRows, rows.size());
            const std::size_t nextBehind = std::min(behind + tileRows, rows.size());
            prefetchTile(rows.subspan(behind, nextBehind - behind), work.tile);
            if (!writeTile(rows.subspan(first, behind - first), band, static_cast<std::int32_t>(firstRow + first),
                           work.tile, target)) {
                return false;
            }
        }
    }
    return true;
}

void writeUnsorted(const std::int32_t* row, std::size_t length, float divisor, std::size_t rowNumber,
                   const ColumnRanks& ranks, RunTarget& target) {
    RowGroup run;
    run.firstWord = target.word;
    run.firstRow = static_cast<std::int32_t>(rowNumber);
    run.count = static_cast<std::int32_t>(length);
    run.form = RunForm::unsorted;
    std::int32_t* const out = target.words.data() + target.word;
    for (std::size_t p = 0; p < length; ++p) {
        out[p] = compactIndexOf(row[p], ranks.columnOfGroup.data(), ranks.rankInGroup.data());
    }
    for (std::size_t p = length; p < 2 * length; ++p) {
        out[p] = divisor > 0.0F ? std::bit_cast<std::int32_t>(std::bit_cast<float>(row[p]) / divisor) : row[p];
    }
    target.runs->push_back(run);
    target.word += wordsOfRun(run);
}

// Words of the rows that stay as they came because their positions do not rise.
std::int64_t plainWordsOf(const RawSlab& slab, const ColumnRanks& ranks) {
    std::int64_t words = 0;
    for (std::size_t r = 0; r < slab.length.size(); ++r) {
        words += ranks.rises[slab.firstRow + r] != 0 ? 0 : 2 * slab.length[r];
    }
    return words;
}

// Rows whose positions do not rise stay as they came, and all of a slab that would take more room in blocks.
void writeSlab(const RawSlab& slab, const RawRows& raw, const ColumnRanks& ranks,
               std::span<const std::int32_t> usedColumns, SlabWork& work, RunTarget& target) {
    const std::int64_t firstWord = target.word;
    const std::size_t firstRun = target.runs->size();
    const std::int64_t plainWords = plainWordsOf(slab, ranks);
    takeRows(slab, raw, ranks, work.rest);
    target.limit -= plainWords;
    const bool inBlocks = writeBands(work, ranks, usedColumns, slab.firstRow, target);
    target.limit += plainWords;
    if (!inBlocks) {
        target.word = firstWord;
        target.runs->resize(firstRun);
    }
    const std::int32_t* word = slab.words;
    for (std::size_t r = 0; r < slab.length.size(); ++r) {
        const std::size_t row = slab.firstRow + r;
        const auto length = static_cast<std::size_t>(slab.length[r]);
        if (!(inBlocks && ranks.rises[row] != 0) && length > 0) {
            writeUnsorted(word, length, raw.divisor.empty() ? 0.0F : raw.divisor[row], row, ranks, target);
        }
        word += 2 * length;
    }
}

}  // namespace

std::int64_t headroomWordsFor(std::span<const std::int64_t> rowOffset) {
    if (rowOffset.empty()) {
        return 0;
    }
    std::int64_t most = (rowOffset.back() - rowOffset.front()) / slabShare;
    for (std::size_t entry = 0; entry < rowOffset.size(); ++entry) {
        const std::size_t behind = std::min(entry + tileRows, rowOffset.size() - 1);
        most = std::max(most, rowOffset[behind] - rowOffset[entry]);
    }
    return 2 * most;
}

std::int64_t arrangeRows(std::span<std::int32_t> words, const RawRows& raw, std::int64_t targetWord,
                         std::int64_t headroomWords, std::size_t paddedCount, BlockedRows& working) {
    working = {};
    const ColumnRanks ranks = rankColumns(words, raw, paddedCount, working.usedColumns);
    const std::int64_t slabLimit = std::accumulate(raw.length.begin(), raw.length.end(), std::int64_t{0}) / slabShare;
    RunTarget target{words, targetWord, 0, &working.runs};
    SlabWork work;
    std::int64_t rawWord = raw.firstWord;
    for (std::size_t row = 0; row < raw.length.size();) {
        // What a slab may take lies free in front of it: the spare words, or what the slabs before have left.
        const std::int64_t gap = rawWord - headroomWords - target.word;
        const std::size_t count = rowsOfNextSlab(raw.length.subspan(row), std::max(slabLimit, gap / 2));
        const RawSlab slab{words.data() + rawWord, row, raw.length.subspan(row, count)};
        const std::int64_t slabWords = 2 * std::accumulate(slab.length.begin(), slab.length.end(), std::int64_t{0});
        const std::size_t firstRun = working.runs.size();
        target.limit = target.word + slabWords;
        writeSlab(slab, raw, ranks, working.usedColumns, work, target);
        working.slabs.push_back({row, count, firstRun, working.runs.size() - firstRun});
        rawWord += slabWords;
        row += count;
    }
    return target.word;
}

}  // namespace voxlith
