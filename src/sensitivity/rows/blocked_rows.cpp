#include "sensitivity/rows/blocked_rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <numeric>

#include "base/ranks.h"
#include "base/workers.h"
#include "sensitivity/rows/band_tiles.h"
#include "sensitivity/rows/column_ranks.h"

namespace voxlith {

namespace {

// Rows are turned into blocked rows batch by batch: whole tiles of a slab, with at most this share of the coefficients
// of the file, or as many as fit into the words that earlier batches of the file have saved, or one tile. So the
// blocked rows of a batch fit in front of the raw rows, and which rows share a batch depends on the rows of the file
// alone.
constexpr std::int64_t batchShare = 32;

// A batch of raw rows.
struct RawBatch {
    const std::int32_t* words = nullptr;
    std::size_t firstRow = 0;
    std::span<const std::int64_t> length;
};

// Kept from batch to batch.
struct BatchWork {
    std::vector<RemainingRow> rows;  // empty ones for rows whose indices do not ascend
    std::vector<std::int64_t> tileWords;
    TileWork tile;
    bool everyTileFits = true;
};

std::int64_t sumOf(std::span<const std::int64_t> lengths) {
    return std::accumulate(lengths.begin(), lengths.end(), std::int64_t{0});
}

// Rows of the batch that begins with the first of the rows left of a slab.
std::size_t rowsOfBatch(std::span<const std::int64_t> rowLength, std::int64_t coefficientLimit) {
    std::size_t count = 0;
    std::int64_t coefficients = 0;
    while (count < rowLength.size()) {
        const std::size_t tile = std::min(tileRows, rowLength.size() - count);
        coefficients += sumOf(rowLength.subspan(count, tile));
        if (count > 0 && coefficients > coefficientLimit) {
            break;
        }
        count += tile;
    }
    return count;
}

float divisorOf(const RawRows& raw, std::size_t row) {
    return raw.divisor.empty() ? 0.0F : raw.divisor[row];
}

void collectRows(const RawBatch& batch, const RawRows& raw, const ColumnRanks& ranks, std::vector<RemainingRow>& rows) {
    rows.assign(batch.length.size(), {});
    const std::int32_t* word = batch.words;
    for (std::size_t r = 0; r < batch.length.size(); ++r) {
        const auto length = static_cast<std::size_t>(batch.length[r]);
        const std::size_t row = batch.firstRow + r;
        if (ranks.ascends[row] != 0) {
            rows[r] = {word, word + length, length, divisorOf(raw, row)};
        }
        word += 2 * length;
    }
}

ColumnBand bandAt(std::size_t firstColumn, const ColumnRanks& ranks, std::span<const std::int32_t> usedColumns) {
    const std::size_t last = std::min(firstColumn + bandWidth, usedColumns.size()) - 1;
    ColumnBand band;
    band.firstColumn = static_cast<std::int32_t>(firstColumn);
    band.endIndex = usedColumns[last] + 2;  // a position from 0, an index from 1
    band.ranks = &ranks;
    return band;
}

// Writes the ascending rows, band by band. Returns false when they take more words than there are.
bool writeBands(BatchWork& work, const ColumnRanks& ranks, std::span<const std::int32_t> usedColumns,
                std::size_t firstRow, GroupTarget& target) {
    const std::span<RemainingRow> rows(work.rows);
    for (std::size_t firstColumn = 0; firstColumn < usedColumns.size(); firstColumn += bandWidth) {
        const ColumnBand band = bandAt(firstColumn, ranks, usedColumns);
        for (std::size_t first = 0; first < rows.size(); first += tileRows) {
            const std::int64_t firstWord = target.word;
            const std::size_t end = std::min(first + tileRows, rows.size());
            const std::size_t nextEnd = std::min(end + tileRows, rows.size());
            prefetchTile(rows.subspan(end, nextEnd - end), work.tile);
            if (!writeTile(rows.subspan(first, end - first), band, static_cast<std::int32_t>(firstRow + first),
                           work.tile, target)) {
                return false;
            }
            work.tileWords[first / tileRows] += target.word - firstWord;
        }
    }
    return true;
}

void writeUnsorted(const std::int32_t* row, std::size_t length, float divisor, std::size_t rowNumber,
                   const ColumnRanks& ranks, GroupTarget& target) {
    RowGroup group;
    group.firstWord = target.word;
    group.firstRow = static_cast<std::int32_t>(rowNumber);
    group.count = static_cast<std::int32_t>(length);
    group.form = GroupForm::unsorted;
    std::int32_t* const out = target.words.data() + target.word;
    for (std::size_t p = 0; p < length; ++p) {
        out[p] = compactIndexOf(row[p], ranks.columnOfGroup.data(), ranks.rankInGroup.data());
    }
    for (std::size_t p = length; p < 2 * length; ++p) {
        out[p] = divisor > 0.0F ? std::bit_cast<std::int32_t>(std::bit_cast<float>(row[p]) / divisor) : row[p];
    }
    target.groups->push_back(group);
    target.word += wordsOfGroup(group);
}

// Words of the raw rows that ascend.
std::int64_t wordsOfAscending(const RawBatch& batch, const ColumnRanks& ranks, std::size_t first, std::size_t end) {
    std::int64_t words = 0;
    for (std::size_t r = first; r < end; ++r) {
        words += ranks.ascends[batch.firstRow + r] != 0 ? 2 * batch.length[r] : 0;
    }
    return words;
}

// Whether each tile of the batch, which has been written in blocks, takes no more words than its raw rows.
bool tilesFit(const RawBatch& batch, const ColumnRanks& ranks, std::span<const std::int64_t> tileWords) {
    for (std::size_t t = 0; t < tileWords.size(); ++t) {
        const std::size_t end = std::min((t + 1) * tileRows, batch.length.size());
        if (tileWords[t] > wordsOfAscending(batch, ranks, t * tileRows, end)) {
            return false;
        }
    }
    return true;
}

// Rows whose indices do not ascend stay unsorted, and so do all rows of a batch that would take more words in blocks
// than raw: in place, there is no space for them.
void writeBatch(const RawBatch& batch, const RawRows& raw, const ColumnRanks& ranks,
                std::span<const std::int32_t> usedColumns, BatchWork& work, GroupTarget& target) {
    const std::int64_t firstWord = target.word;
    const std::size_t firstGroup = target.groups->size();
    target.limit = firstWord + wordsOfAscending(batch, ranks, 0, batch.length.size());
    collectRows(batch, raw, ranks, work.rows);
    work.tileWords.assign((batch.length.size() + tileRows - 1) / tileRows, 0);
    const bool inBlocks = writeBands(work, ranks, usedColumns, batch.firstRow, target);
    work.everyTileFits = work.everyTileFits && inBlocks && tilesFit(batch, ranks, work.tileWords);
    if (!inBlocks) {
        target.word = firstWord;
        target.groups->resize(firstGroup);
    }
    const std::int32_t* word = batch.words;
    for (std::size_t r = 0; r < batch.length.size(); ++r) {
        const std::size_t row = batch.firstRow + r;
        const auto length = static_cast<std::size_t>(batch.length[r]);
        if (!(inBlocks && ranks.ascends[row] != 0) && length > 0) {
            writeUnsorted(word, length, divisorOf(raw, row), row, ranks, target);
        }
        word += 2 * length;
    }
}

// Puts the groups of a slab, from firstGroup on and batch by batch as they were written, into the order of RowSlab.
RowSlab orderSlab(std::size_t firstRow, std::size_t rowCount, std::size_t firstGroup, std::vector<RowGroup>& groups) {
    const auto first = groups.begin() + static_cast<std::ptrdiff_t>(firstGroup);
    const auto unsorted = std::stable_partition(first, groups.end(),
                                                [](const RowGroup& group) { return group.form == GroupForm::blocks; });
    std::stable_sort(first, unsorted,
                     [](const RowGroup& a, const RowGroup& b) { return a.firstColumn < b.firstColumn; });
    return {firstRow, rowCount, firstGroup, static_cast<std::size_t>(unsorted - groups.begin()), groups.size()};
}

void countWords(BlockedRows& blocked, std::size_t rowCount) {
    blocked.wordsBeforeTile.assign((rowCount + tileRows - 1) / tileRows + 1, 0);
    blocked.wordsBeforeBand.assign(bandCount(blocked) + 1, 0);
    for (const RowGroup& group : blocked.groups) {
        blocked.wordsBeforeTile[static_cast<std::size_t>(group.firstRow) / tileRows + 1] += wordsOfGroup(group);
        if (group.form == GroupForm::blocks) {
            blocked.wordsBeforeBand[static_cast<std::size_t>(group.firstColumn) / bandWidth + 1] += wordsOfGroup(group);
        }
    }
    for (std::vector<std::int64_t>* words : {&blocked.wordsBeforeTile, &blocked.wordsBeforeBand}) {
        std::partial_sum(words->begin(), words->end(), words->begin());
    }
}

// Where the words of the raw and the blocked rows of a file end so far.
struct FileProgress {
    std::int64_t rawWord = 0;
    GroupTarget target;
    std::int64_t savedWords = 0;  // by the blocked rows, those of the ranks before included
};

void writeSlabs(const RawRows& raw, const ColumnRanks& ranks, std::int64_t fileCoefficients, FileProgress& progress,
                BatchWork& work, BlockedRows& blocked) {
    const std::int64_t fileShare = fileCoefficients / batchShare;
    GroupTarget& target = progress.target;
    for (std::size_t slabRow = 0; slabRow < raw.length.size(); slabRow += slabRows) {
        const std::size_t endRow = std::min(slabRow + slabRows, raw.length.size());
        const std::size_t firstGroup = blocked.groups.size();
        if (sumOf(raw.length.subspan(slabRow, endRow - slabRow)) == 0) {  // of another rank
            blocked.slabs.push_back({slabRow, endRow - slabRow, firstGroup, firstGroup, firstGroup});
            continue;
        }
        for (std::size_t row = slabRow; row < endRow;) {
            const std::int64_t firstWord = target.word;
            const std::int64_t coefficientLimit = std::max(fileShare, progress.savedWords / 2);
            const std::size_t count = rowsOfBatch(raw.length.subspan(row, endRow - row), coefficientLimit);
            const RawBatch batch{target.words.data() + progress.rawWord, row, raw.length.subspan(row, count)};
            const std::int64_t batchWords = 2 * sumOf(batch.length);
            // Nothing is written over rows that are still to be read.
            assert(firstWord + batchWords <= progress.rawWord);
            writeBatch(batch, raw, ranks, blocked.usedColumns, work, target);
            progress.rawWord += batchWords;
            progress.savedWords += batchWords - (target.word - firstWord);
            row += count;
        }
        blocked.slabs.push_back(orderSlab(slabRow, endRow - slabRow, firstGroup, blocked.groups));
    }
}

// For passAlongRanks: one chunk of one value. Whole numbers far below 2^53 are exact in it.
constexpr std::array<std::size_t, 2> oneValue{0, 1};

std::int64_t sumOfRanks(std::int64_t own) {
    double sum = 0;
    passAlongRanks(std::span(&sum, 1), oneValue, [&](std::size_t) { sum += static_cast<double>(own); });
    return static_cast<std::int64_t>(sum);
}

// All ranks take the chunks of the first one, whose rows use the bands much as those of the others do. There are enough
// chunks that ranks wait little for each other at the beginning and the end of a product.
void splitIntoChunks(BlockedRows& blocked) {
    constexpr std::size_t chunksOfRank = 8;
    const std::size_t bands = bandCount(blocked);
    const std::size_t chunks = std::clamp<std::size_t>(
        std::min(chunksOfRank * ranksOfRun().count, bands / workersOfProcess().count), 1, mostChunks);
    std::array<std::size_t, mostChunks + 2> start{chunks};
    for (std::size_t chunk = 0; chunk <= chunks; ++chunk) {
        start[chunk + 1] = startOfPiece(blocked.wordsBeforeBand, chunk, chunks);
    }
    copyFirstRank(start);
    blocked.firstBandOfChunk.assign(start.begin() + 1, start.begin() + static_cast<std::ptrdiff_t>(start[0] + 2));
}

}  // namespace

std::int64_t headroomWordsFor(std::span<const std::int64_t> rowOffset) {
    if (rowOffset.empty()) {
        return 0;
    }
    std::int64_t most = (rowOffset.back() - rowOffset.front()) / batchShare;
    for (std::size_t entry = 0; entry < rowOffset.size(); ++entry) {
        const std::size_t end = std::min(entry + tileRows, rowOffset.size() - 1);
        most = std::max(most, rowOffset[end] - rowOffset[entry]);
    }
    return 2 * most;
}

std::int64_t headroomWordsInTurn(std::span<const std::int64_t> rowOffset) {
    std::int64_t most = headroomWordsFor(rowOffset);
    for (std::size_t entry = 0; entry < rowOffset.size(); ++entry) {
        const std::size_t end = std::min(entry + slabRows, rowOffset.size() - 1);
        most = std::max(most, 2 * (rowOffset[end] - rowOffset[entry]));
    }
    return most;
}

BlockedEnd blockRows(std::span<std::int32_t> words, const RawRows& raw, std::int64_t targetWord,
                     std::size_t paddedCount, RankOrder order, BlockedRows& blocked) {
    blocked = {};
    const ColumnRanks ranks = rankColumns(words, raw, paddedCount, blocked.usedColumns);
    BatchWork work;
    FileProgress progress{raw.firstWord, {words, targetWord, 0, &blocked.groups}, 0};
    const std::int64_t coefficients = sumOf(raw.length);
    if (ranksOfRun().count == 1 || order == RankOrder::atOnce) {
        writeSlabs(raw, ranks, coefficients, progress, work, blocked);
    } else {
        double savedWords = 0;
        const std::int64_t ofAllRanks = sumOfRanks(coefficients);
        passAlongRanks(std::span(&savedWords, 1), oneValue, [&](std::size_t) {
            progress.savedWords = static_cast<std::int64_t>(savedWords);
            writeSlabs(raw, ranks, ofAllRanks, progress, work, blocked);
            savedWords = static_cast<double>(progress.savedWords);
        });
    }
    countWords(blocked, raw.length.size());
    if (ranksOfRun().count > 1) {
        splitIntoChunks(blocked);
    }
    return {progress.target.word, work.everyTileFits};
}

}  // namespace voxlith
