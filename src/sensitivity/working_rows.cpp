#include "sensitivity/working_rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

namespace voxlith {

namespace {

constexpr std::size_t mostRows = 8;
constexpr std::int32_t behindLast = std::numeric_limits<std::int32_t>::max();

// Raw rows of a group, copied aside because the working form is written over them. Each row's places end with
// behindLast.
struct RawGroup {
    std::array<std::vector<std::int32_t>, mostRows> place;
    std::array<std::vector<std::int32_t>, mostRows> value;  // bits of real32
    std::size_t rowCount = 0;
    bool ascending = true;
};

// Number of positions that the first four, the last four, and all of the rows use.
struct UnionCounts {
    std::int64_t low = 0, high = 0, all = 0;
};

std::int64_t blocksFor(std::int64_t positions) {
    constexpr auto width = static_cast<std::int64_t>(blockWidth);
    return (positions + width - 1) / width;
}

std::int64_t wordsOfBlock(std::size_t rows) {
    return static_cast<std::int64_t>(blockWidth * (rows + 1));
}

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

// Copies rows aside, from `word` on, with places of the compact array in place of indices. Returns the word behind
// them.
std::size_t takeRows(std::span<const std::int32_t> words, std::size_t word, std::span<const std::int64_t> rowLength,
                     std::span<const std::int32_t> rank, RawGroup& raw) {
    raw.rowCount = rowLength.size();
    raw.ascending = true;
    for (std::size_t g = 0; g < rowLength.size(); ++g) {
        const auto length = static_cast<std::size_t>(rowLength[g]);
        raw.place[g].resize(length + 1);
        raw.value[g].resize(length + 1);
        std::int32_t last = -1;
        for (std::size_t p = 0; p < length; ++p) {
            const std::int32_t place = rank[static_cast<std::size_t>(words[word + p]) - 1];
            raw.ascending = raw.ascending && place > last;
            raw.place[g][p] = last = place;
        }
        raw.place[g][length] = behindLast;
        std::copy_n(words.begin() + static_cast<std::ptrdiff_t>(word + length), length, raw.value[g].begin());
        raw.value[g][length] = 0;
        word += 2 * length;
    }
    return word;
}

// Walks through the union of the rows `first` to `first + rows - 1` in ascending order; `visit(place, mask, next)` sees
// each position with the rows that have it and where in each row the walk stands.
template <std::size_t rows, typename Visit>
void walkUnion(const RawGroup& raw, std::size_t first, Visit visit) {
    std::array<const std::int32_t*, rows> place{};
    std::array<std::size_t, rows> next{};
    std::array<std::int32_t, rows> head{};
    for (std::size_t g = 0; g < rows; ++g) {
        place[g] = raw.place[first + g].data();
        head[g] = place[g][0];
    }
    for (;;) {
        std::int32_t smallest = head[0];
        for (std::size_t g = 1; g < rows; ++g) {
            smallest = std::min(smallest, head[g]);
        }
        if (smallest == behindLast) {
            return;
        }
        unsigned mask = 0;
        for (std::size_t g = 0; g < rows; ++g) {
            mask |= static_cast<unsigned>(head[g] == smallest) << g;
        }
        visit(smallest, mask, next);
        for (std::size_t g = 0; g < rows; ++g) {
            next[g] += (mask >> g) & 1U;
            head[g] = place[g][next[g]];
        }
    }
}

UnionCounts countUnions(const RawGroup& raw) {
    UnionCounts counts;
    walkUnion<mostRows>(raw, 0, [&](std::int32_t, unsigned mask, const auto&) {
        counts.low += (mask & 0x0FU) != 0 ? 1 : 0;
        counts.high += (mask & 0xF0U) != 0 ? 1 : 0;
        ++counts.all;
    });
    return counts;
}

struct Target {
    std::span<std::int32_t> words;
    std::int64_t word;  // next to be written
    std::int32_t sparePlace;
};

// Writes rows `first` ... of the raw group as blocks and returns how many there are.
template <std::size_t rows>
std::int64_t writeBlocks(const RawGroup& raw, std::size_t first, Target& target) {
    std::int32_t* out = target.words.data() + target.word;
    std::size_t lane = blockWidth;  // the block is full, or there is none yet
    std::int64_t blocks = 0;
    std::int32_t* block = out;
    walkUnion<rows>(raw, first, [&](std::int32_t place, unsigned mask, const auto& next) {
        if (lane == blockWidth) {
            block = out + blocks * wordsOfBlock(rows);
            std::fill_n(block, blockWidth, target.sparePlace);
            std::fill_n(block + blockWidth, rows * blockWidth, 0);
            ++blocks;
            lane = 0;
        }
        block[lane] = place;
        for (std::size_t g = 0; g < rows; ++g) {
            const std::int32_t bits = raw.value[first + g][next[g]];
            block[blockWidth * (g + 1) + lane] = ((mask >> g) & 1U) != 0 ? bits : 0;
        }
        ++lane;
    });
    target.word += blocks * wordsOfBlock(rows);
    return blocks;
}

template <std::size_t rows>
void writeGroup(const RawGroup& raw, std::size_t first, std::int32_t firstRow, Target& target, WorkingRows& working) {
    RowGroup group;
    group.firstWord = target.word;
    group.firstRow = firstRow + static_cast<std::int32_t>(first);
    group.rowCount = static_cast<std::int32_t>(rows);
    group.count = writeBlocks<rows>(raw, first, target);
    working.groups.push_back(group);
}

void writeAnyOrder(const RawGroup& raw, std::size_t row, std::int32_t firstRow, Target& target, WorkingRows& working) {
    const std::size_t length = raw.place[row].size() - 1;
    RowGroup group;
    group.firstWord = target.word;
    group.firstRow = firstRow + static_cast<std::int32_t>(row);
    group.count = static_cast<std::int64_t>(length);
    group.form = RowForm::anyOrder;
    std::int32_t* out = target.words.data() + target.word;
    std::copy_n(raw.place[row].begin(), length, out);
    std::copy_n(raw.value[row].begin(), length, out + length);
    target.word += 2 * group.count;
    working.groups.push_back(group);
}

bool rises(const std::vector<std::int32_t>& place) {
    return std::adjacent_find(place.begin(), place.end(), std::greater_equal<>()) == place.end();
}

void writeSingleRows(const RawGroup& raw, std::size_t first, std::size_t count, std::int32_t firstRow, Target& target,
                     WorkingRows& working) {
    for (std::size_t row = first; row < first + count; ++row) {
        if (rises(raw.place[row])) {
            writeGroup<1>(raw, row, firstRow, target, working);
        } else {
            writeAnyOrder(raw, row, firstRow, target, working);
        }
    }
}

std::int64_t singleRowWords(const RawGroup& raw, std::size_t first, std::size_t count) {
    std::int64_t words = 0;
    for (std::size_t row = first; row < first + count; ++row) {
        words += blocksFor(static_cast<std::int64_t>(raw.place[row].size()) - 1) * wordsOfBlock(1);
    }
    return words;
}

// The smallest of the three forms; eight rows at once are preferred to twice four where they take about as much.
void writeSmallestForm(const RawGroup& raw, std::int32_t firstRow, Target& target, WorkingRows& working) {
    if (raw.rowCount < mostRows || !raw.ascending) {
        writeSingleRows(raw, 0, raw.rowCount, firstRow, target, working);
        return;
    }
    const UnionCounts counts = countUnions(raw);
    const std::int64_t eight = blocksFor(counts.all) * wordsOfBlock(8);
    std::array<std::int64_t, 2> four{blocksFor(counts.low) * wordsOfBlock(4), blocksFor(counts.high) * wordsOfBlock(4)};
    const std::array<std::int64_t, 2> single{singleRowWords(raw, 0, 4), singleRowWords(raw, 4, 4)};
    const std::int64_t others = std::min(four[0], single[0]) + std::min(four[1], single[1]);
    if (eight <= single[0] + single[1] && eight <= others + others / 16) {
        writeGroup<8>(raw, 0, firstRow, target, working);
        return;
    }
    for (std::size_t half = 0; half < 2; ++half) {
        if (four[half] <= single[half]) {
            writeGroup<4>(raw, 4 * half, firstRow, target, working);
        } else {
            writeSingleRows(raw, 4 * half, 4, firstRow, target, working);
        }
    }
}

}  // namespace

std::int64_t arrangeRows(std::span<std::int32_t> words, std::int64_t rawWord, std::int64_t targetWord,
                         std::span<const std::int64_t> rowLength, std::size_t paddedCount, WorkingRows& working) {
    working.groups.clear();
    working.positionsInUse.clear();
    const std::vector<std::int32_t> rank =
        rankPositions(words, rawWord, rowLength, paddedCount, working.positionsInUse);
    Target target{words, targetWord, static_cast<std::int32_t>(working.sparePlace())};
    RawGroup raw;
    auto word = static_cast<std::size_t>(rawWord);
    for (std::size_t row = 0; row < rowLength.size(); row += mostRows) {
        const std::size_t count = std::min(mostRows, rowLength.size() - row);
        word = takeRows(words, word, rowLength.subspan(row, count), rank, raw);
        writeSmallestForm(raw, static_cast<std::int32_t>(row), target, working);
    }
    return target.word;
}

}  // namespace voxlith
