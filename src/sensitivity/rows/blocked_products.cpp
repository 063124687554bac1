#include "sensitivity/rows/blocked_products.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cstring>

#include "base/ranks.h"
#include "base/workers.h"
#include "sensitivity/rows/row_kernels.h"

#define VOXLITH_KERNELS "sensitivity/rows/blocked_products.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

namespace {

// Sums of the rows of a slab, eight lanes each.
struct alignas(64) SlabSums {
    std::array<double, slabRows * blockWidth> lane{};
};

std::span<const RowGroup> groupsOf(const BlockedRows& rows, std::size_t first, std::size_t end) {
    return std::span(rows.groups).subspan(first, end - first);
}

float valueAt(const std::int32_t* word) {
    float value = 0.0F;
    std::memcpy(&value, word, sizeof value);
    return value;
}

void multiplyUnsorted(const std::int32_t* words, std::int64_t count, const double* compact, double* rowLanes) {
    for (std::int64_t p = 0; p < count; ++p) {
        rowLanes[static_cast<std::size_t>(p) % blockWidth] +=
            static_cast<double>(valueAt(words + count + p)) * compact[words[p]];
    }
}

void addUnsorted(const std::int32_t* words, std::int64_t count, double factor, std::int32_t firstColumn,
                 std::int32_t endColumn, double* compact) {
    for (std::int64_t p = 0; p < count; ++p) {
        if (words[p] >= firstColumn && words[p] < endColumn) {
            compact[words[p]] += static_cast<double>(valueAt(words + count + p)) * factor;
        }
    }
}

// Calls visit(row in the group, lane, column in the band, value) for the coefficients that the rows really have,
// without the zeros that fill up blocks: infinity and NaN must reach no others.
template <typename Visit>
void visitCoefficients(const RowGroup& group, const std::int32_t* block, Visit visit) {
    for (std::int32_t b = 0; b < group.count; ++b, block += wordsOfBlock(group.rowCount)) {
        for (std::size_t g = 0; g < static_cast<std::size_t>(group.rowCount); ++g) {
            for (std::size_t l = 0; l < blockWidth; ++l) {
                const float value = valueAt(block + indexWords + blockWidth * g + l);
                if (value != 0.0F) {
                    visit(g, l, columnAt(block, l), static_cast<double>(value));
                }
            }
        }
    }
}

void multiplyNonFinite(std::span<const RowGroup> groups, const std::int32_t* words, const double* compact,
                       std::size_t firstRow, double* rowLanes) {
    for (const RowGroup& group : groups) {
        const double* const band = compact + group.firstColumn;
        double* const lanes = rowLanes + blockWidth * (static_cast<std::size_t>(group.firstRow) - firstRow);
        visitCoefficients(group, words + group.firstWord,
                          [&](std::size_t g, std::size_t l, std::size_t column, double value) {
                              lanes[blockWidth * g + l] += value * band[column];
                          });
    }
}

void addNonFinite(std::span<const RowGroup> groups, const std::int32_t* words, const double* factor, double* compact) {
    for (const RowGroup& group : groups) {
        double* const band = compact + group.firstColumn;
        const double* const rowFactor = factor + group.firstRow;
        visitCoefficients(group, words + group.firstWord,
                          [&](std::size_t g, std::size_t, std::size_t column, double value) {
                              band[column] += value * rowFactor[g];
                          });
    }
}

struct RowRange {
    std::size_t first = 0, end = 0;
    bool has(const RowGroup& group) const {
        const auto row = static_cast<std::size_t>(group.firstRow);
        return row >= first && row < end;
    }
};

// Calls visit(groups) for those of a slab's groups that are in the range, in their order: all at once, or run by run.
template <typename Visit>
void forGroupsOfRows(std::span<const RowGroup> groups, const RowRange& range, const RowSlab& slab, const Visit& visit) {
    if (range.end - range.first == slab.rowCount) {
        visit(groups);
        return;
    }
    for (std::size_t g = 0; g < groups.size();) {
        if (!range.has(groups[g])) {
            ++g;
            continue;
        }
        const std::size_t first = g;
        while (g < groups.size() && range.has(groups[g])) {
            ++g;
        }
        visit(groups.subspan(first, g - first));
    }
}

// The groups in blocks of a slab whose bands begin in the columns firstColumn up to endColumn.
std::span<const RowGroup> groupsOfBands(const BlockedRows& rows, const RowSlab& slab, std::int32_t firstColumn,
                                        std::int32_t endColumn) {
    const std::span<const RowGroup> groups = groupsOf(rows, slab.firstGroup, slab.firstUnsorted);
    const auto startsBelow = [](std::int32_t column) {
        return [column](const RowGroup& group) { return group.firstColumn < column; };
    };
    const auto first = std::partition_point(groups.begin(), groups.end(), startsBelow(firstColumn));
    return {first, std::partition_point(first, groups.end(), startsBelow(endColumn))};
}

}  // namespace

void gatherUsed(const BlockedRows& rows, std::span<const double> padded, std::span<double> compact) {
    assert(compact.size() >= rows.usedColumns.size());
    forEachRange(rows.usedColumns.size(), [&](std::size_t first, std::size_t end) {
        for (std::size_t i = first; i < end; ++i) {
            compact[i] = padded[static_cast<std::size_t>(rows.usedColumns[i])];
        }
    });
}

void scatterUsed(const BlockedRows& rows, std::span<const double> compact, std::size_t cleared,
                 std::span<double> padded) {
    assert(compact.size() >= rows.usedColumns.size() && cleared <= padded.size());
    constexpr std::size_t step = 512;  // positions are cleared shortly before they are filled, in the cache
    const std::span<const std::int32_t> used = rows.usedColumns;
    const auto afterColumns = [&](std::size_t count) {
        return count == 0 ? 0 : static_cast<std::size_t>(used[count - 1]) + 1;
    };
    forEachRange(used.size(), [&](std::size_t first, std::size_t end) {
        for (std::size_t start = first; start < end; start += step) {
            const std::size_t stop = std::min(start + step, end);
            const std::size_t position = afterColumns(start);
            std::fill_n(padded.begin() + static_cast<std::ptrdiff_t>(position),
                        std::min(afterColumns(stop), std::max(cleared, position)) - position, 0.0);
            for (std::size_t i = start; i < stop; ++i) {
                padded[static_cast<std::size_t>(used[i])] = compact[i];
            }
        }
    });
    const std::size_t rest = std::min(afterColumns(used.size()), cleared);
    std::ranges::fill(padded.subspan(rest, cleared - rest), 0.0);
}

namespace {

bool rangeIsFinite(std::span<const double> values) {
    // Sums of zeros unless one value is infinite or NaN.
    std::array<double, 8> sum{};
    std::size_t i = 0;
    for (; i + sum.size() <= values.size(); i += sum.size()) {
        for (std::size_t l = 0; l < sum.size(); ++l) {
            sum[l] += values[i + l] * 0.0;
        }
    }
    for (; i < values.size(); ++i) {
        sum[0] += values[i] * 0.0;
    }
    return std::all_of(sum.begin(), sum.end(), [](double lane) { return lane == 0.0; });
}

}  // namespace

bool allFinite(std::span<const double> values) {
    std::atomic<bool> finite{true};
    forEachRange(values.size(), [&](std::size_t first, std::size_t end) {
        if (!rangeIsFinite(values.subspan(first, end - first))) {
            finite = false;
        }
    });
    return finite;
}

void multiply(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
              bool finite, std::size_t firstRow, std::size_t endRow, std::span<double> out) {
    assert(compact.size() >= rows.usedColumns.size() && endRow <= out.size() && firstRow % tileRows == 0);
    const auto multiplyGroups = finite ? widestKernels().multiplyGroups : multiplyNonFinite;
    SlabSums sums;
    double* const lanes = sums.lane.data();
    for (std::size_t s = firstRow / slabRows; s < rows.slabs.size() && rows.slabs[s].firstRow < endRow; ++s) {
        const RowSlab& slab = rows.slabs[s];
        const RowRange range{std::max(firstRow, slab.firstRow), std::min(endRow, slab.firstRow + slab.rowCount)};
        std::fill_n(lanes, slab.rowCount * blockWidth, 0.0);
        forGroupsOfRows(groupsOf(rows, slab.firstGroup, slab.firstUnsorted), range, slab,
                        [&](std::span<const RowGroup> groups) {
                            multiplyGroups(groups, words.data(), compact.data(), slab.firstRow, lanes);
                        });
        for (const RowGroup& row : groupsOf(rows, slab.firstUnsorted, slab.endGroup)) {
            if (range.has(row)) {
                multiplyUnsorted(words.data() + row.firstWord, row.count, compact.data(),
                                 lanes + blockWidth * (static_cast<std::size_t>(row.firstRow) - slab.firstRow));
            }
        }
        for (std::size_t row = range.first; row < range.end; ++row) {
            out[row] = sumOfRowLanes(lanes + blockWidth * (row - slab.firstRow));
        }
    }
}

void multiplyTransposed(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                        bool finite, std::size_t firstBand, std::size_t endBand, std::span<double> compact) {
    assert(compact.size() >= rows.usedColumns.size() && endBand <= bandCount(rows));
    const auto addGroups = finite ? widestKernels().addGroups : addNonFinite;
    const auto firstColumn = static_cast<std::int32_t>(firstBand * bandWidth);
    const auto endColumn = static_cast<std::int32_t>(std::min(endBand * bandWidth, rows.usedColumns.size()));
    for (const RowSlab& slab : rows.slabs) {
        addGroups(groupsOfBands(rows, slab, firstColumn, endColumn), words.data(), factor.data(), compact.data());
        for (const RowGroup& row : groupsOf(rows, slab.firstUnsorted, slab.endGroup)) {
            addUnsorted(words.data() + row.firstWord, row.count, factor[static_cast<std::size_t>(row.firstRow)],
                        firstColumn, endColumn, compact.data());
        }
    }
}

void multiplyShared(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
                    bool finite, std::span<double> out) {
    const std::span<const std::int64_t> work(rows.wordsBeforeTile);
    const std::size_t pieces = piecesFor(static_cast<std::size_t>(work.back()));
    forEachPiece(pieces, [&](std::size_t piece) {
        const std::size_t first = tileRows * startOfPiece(work, piece, pieces);
        const std::size_t end = tileRows * startOfPiece(work, piece + 1, pieces);
        multiply(rows, words, compact, finite, first, std::min(end, out.size()), out);
    });
}

namespace {

// Bands firstBand up to endBand by all workers.
void multiplyBandsShared(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                         bool finite, std::size_t firstBand, std::size_t endBand, std::span<double> compact) {
    const auto work = std::span(rows.wordsBeforeBand).subspan(firstBand, endBand - firstBand + 1);
    const std::int64_t unsortedWords = rows.wordsBeforeTile.back() - rows.wordsBeforeBand.back();
    const std::size_t pieces = piecesFor(static_cast<std::size_t>(work.back() - work.front() + unsortedWords));
    forEachPiece(pieces, [&](std::size_t piece) {
        multiplyTransposed(rows, words, factor, finite, firstBand + startOfPiece(work, piece, pieces),
                           firstBand + startOfPiece(work, piece + 1, pieces), compact);
    });
}

}  // namespace

void multiplyTransposedShared(const BlockedRows& rows, std::span<const std::int32_t> words,
                              std::span<const double> factor, bool finite, std::span<double> compact) {
    multiplyBandsShared(rows, words, factor, finite, 0, bandCount(rows), compact);
}

void multiplyTransposedAlongRanks(const BlockedRows& rows, std::span<const std::int32_t> words,
                                  std::span<const double> factor, bool finite, std::span<double> compact) {
    const std::span<const std::size_t> firstBand(rows.firstBandOfChunk);
    std::array<std::size_t, mostChunks + 1> start{};
    for (std::size_t chunk = 0; chunk < firstBand.size(); ++chunk) {
        start[chunk] = std::min(firstBand[chunk] * bandWidth, rows.usedColumns.size());
    }
    passAlongRanks(
        compact.first(rows.usedColumns.size()), std::span(start).first(firstBand.size()), [&](std::size_t chunk) {
            multiplyBandsShared(rows, words, factor, finite, firstBand[chunk], firstBand[chunk + 1], compact);
        });
}

}  // namespace voxlith
