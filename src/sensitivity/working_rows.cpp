#include "sensitivity/working_rows.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "sensitivity/band_tiles.h"

namespace voxlith {

namespace {

// A row of the slab at hand: places of the compact array, and values by their bits.
struct SlabRow {
    const std::int32_t* place = nullptr;
    const std::int32_t* value = nullptr;
    std::size_t length = 0;
    std::size_t next = 0;  // first coefficient that is not written yet
    bool rises = false;
};

struct SlabWork {
    std::vector<std::int32_t> aside;  // raw words of the slab, when its working form is written over them
    std::vector<SlabRow> rows;
    TileWork tile;
};

// Places of all positions that any row uses: `rank` maps a padded position to its place in the compact array.
std::vector<std::int32_t> rankPositions(std::span<const std::int32_t> words, std::int64_t rawWord,
                                        std::span<const std::int64_t> rowLength, std::size_t paddedCount,
                                        std::vector<std::int32_t>& positionsInUse) {
    std::vector<std::int32_t> rank(paddedCount, 0);
    auto word = static_cast<std::size_t>(rawWord);
    for (const std::int64_t length : rowLength) {
        for (std::size_t p = 0; p < static_cast<std::size_t>(length); ++p) {
            rank[static_cast<std::size_t>(words[word + p]) - 1] = 1;
        }
        word += 2 * static_cast<std::size_t>(length);
    }
    const std::int64_t used = std::count(rank.begin(), rank.end(), 1);
    positionsInUse.reserve(static_cast<std::size_t>(used));
    for (std::size_t position = 0; position < paddedCount; ++position) {
        if (rank[position] != 0) {
            rank[position] = static_cast<std::int32_t>(positionsInUse.size());
            positionsInUse.push_back(static_cast<std::int32_t>(position));
        }
    }
    return rank;
}

// Replaces the indices of one row by places; returns whether they rise.
bool indicesToPlaces(std::span<std::int32_t> indices, std::span<const std::int32_t> rank) {
    bool rises = true;
    std::int32_t last = -1;
    for (std::int32_t& index : indices) {
        index = rank[static_cast<std::size_t>(index) - 1];
        rises = rises && index > last;
        last = index;
    }
    return rises;
}

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

// Finds the rows of a slab, their indices replaced by places, where they stand or aside when `inPlace` is false.
void takeSlab(std::span<std::int32_t> raw, std::span<const std::int64_t> rowLength, std::span<const std::int32_t> rank,
              bool inPlace, SlabWork& work) {
    work.rows.resize(rowLength.size());
    std::size_t word = 0;
    for (std::size_t r = 0; r < rowLength.size(); ++r) {
        const auto length = static_cast<std::size_t>(rowLength[r]);
        work.rows[r].rises = indicesToPlaces(raw.subspan(word, length), rank);
        word += 2 * length;
    }
    const std::int32_t* source = raw.data();
    if (!inPlace) {
        work.aside.assign(raw.begin(), raw.end());
        source = work.aside.data();
    }
    for (std::size_t r = 0; r < rowLength.size(); ++r) {
        SlabRow& row = work.rows[r];
        row.length = static_cast<std::size_t>(rowLength[r]);
        row.place = source;
        row.value = source + row.length;
        row.next = 0;
        source += 2 * row.length;
    }
}

// The coefficients of a row in the band before `placeBehind`, which it leaves behind.
TileRow nextInBand(SlabRow& row, std::int32_t placeBehind) {
    const std::int32_t* const first = row.place + row.next;
    const std::int32_t* const behind = std::lower_bound(first, row.place + row.length, placeBehind);
    const TileRow part{{first, behind}, row.value + row.next};
    row.next = static_cast<std::size_t>(behind - row.place);
    return part;
}

// Writes the rising rows, band by band. Returns false when they take more room than there is.
bool writeBands(SlabWork& work, std::size_t placesInUse, std::size_t firstRow, RunTarget& target) {
    std::array<TileRow, tileRows> tile;
    for (std::size_t band = 0; band < placesInUse; band += bandWidth) {
        const std::size_t behind = std::min(band + bandWidth, placesInUse);
        for (std::size_t first = 0; first < work.rows.size(); first += tileRows) {
            const std::size_t count = std::min(tileRows, work.rows.size() - first);
            for (std::size_t g = 0; g < count; ++g) {
                SlabRow& row = work.rows[first + g];
                tile[g] = row.rises ? nextInBand(row, static_cast<std::int32_t>(behind)) : TileRow{};
            }
            if (!writeTile(std::span(tile).first(count), static_cast<std::int32_t>(band),
                           static_cast<std::int32_t>(firstRow + first), work.tile, target)) {
                return false;
            }
        }
    }
    return true;
}

void writeAnyOrder(const SlabRow& row, std::size_t rowNumber, RunTarget& target) {
    RowRun run;
    run.firstWord = target.word;
    run.firstRow = static_cast<std::int32_t>(rowNumber);
    run.count = static_cast<std::int32_t>(row.length);
    run.form = RunForm::anyOrder;
    std::int32_t* const out = target.words.data() + target.word;
    std::copy_n(row.place, row.length, out);
    std::copy_n(row.value, row.length, out + row.length);
    target.runs->push_back(run);
    target.word += wordsOfRun(run);
}

// Rows whose positions do not rise stay as they came, and all of a slab that would take more room in blocks.
void writeSlab(SlabWork& work, std::size_t placesInUse, std::size_t firstRow, RunTarget& target) {
    const std::int64_t firstWord = target.word;
    const std::size_t firstRun = target.runs->size();
    std::int64_t plainWords = 0;
    for (const SlabRow& row : work.rows) {
        plainWords += row.rises ? 0 : 2 * static_cast<std::int64_t>(row.length);
    }
    target.limit -= plainWords;
    const bool inBlocks = writeBands(work, placesInUse, firstRow, target);
    target.limit += plainWords;
    if (!inBlocks) {
        target.word = firstWord;
        target.runs->resize(firstRun);
    }
    for (std::size_t r = 0; r < work.rows.size(); ++r) {
        if (!(inBlocks && work.rows[r].rises) && work.rows[r].length > 0) {
            writeAnyOrder(work.rows[r], firstRow + r, target);
        }
    }
}

}  // namespace

std::int64_t arrangeRows(std::span<std::int32_t> words, std::int64_t rawWord, std::int64_t targetWord,
                         std::span<const std::int64_t> rowLength, std::size_t paddedCount, WorkingRows& working) {
    constexpr std::int64_t asideShare = 32;  // of the coefficients of the file are copied aside at most
    working = {};
    const std::vector<std::int32_t> rank =
        rankPositions(words, rawWord, rowLength, paddedCount, working.positionsInUse);
    const std::int64_t asideLimit = std::accumulate(rowLength.begin(), rowLength.end(), std::int64_t{0}) / asideShare;
    RunTarget target{words, targetWord, 0, &working.runs};
    SlabWork work;
    for (std::size_t row = 0; row < rowLength.size();) {
        const std::int64_t gap = rawWord - target.word;
        const std::size_t count = rowsOfNextSlab(rowLength.subspan(row), std::max(asideLimit, gap / 2));
        const std::span<const std::int64_t> lengths = rowLength.subspan(row, count);
        const std::int64_t rawWords = 2 * std::accumulate(lengths.begin(), lengths.end(), std::int64_t{0});
        takeSlab(words.subspan(static_cast<std::size_t>(rawWord), static_cast<std::size_t>(rawWords)), lengths, rank,
                 rawWords <= gap, work);
        const std::size_t firstRun = working.runs.size();
        target.limit = target.word + rawWords;
        writeSlab(work, working.positionsInUse.size(), row, target);
        working.slabs.push_back({row, count, firstRun, working.runs.size() - firstRun});
        rawWord += rawWords;
        row += count;
    }
    return target.word;
}

}  // namespace voxlith
