#include "sensitivity/rows/block_kernels.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace voxlith {

namespace {

// Eight lanes, whatever registers they take.
using Lanes = double __attribute__((vector_size(64)));

// Sums of the rows of a slab, eight lanes each.
struct alignas(64) SlabSums {
    std::array<double, slabRows * blockWidth> lane{};
};

// Lane by lane: of this, compilers make one conversion where the machine has it, of a conversion of the whole they do
// not.
[[gnu::always_inline]] inline void loadValues(const std::int32_t* words, Lanes& values) {
    std::array<float, blockWidth> narrow;
    std::memcpy(narrow.data(), words, sizeof narrow);
    for (std::size_t l = 0; l < blockWidth; ++l) {
        values[l] = static_cast<double>(narrow[l]);
    }
}

[[gnu::always_inline]] inline std::size_t placeAt(const std::int32_t* block, std::size_t l) {
    std::uint16_t place = 0;
    std::memcpy(&place, reinterpret_cast<const unsigned char*>(block) + l * sizeof place, sizeof place);
    return place;
}

[[gnu::always_inline]] inline double sumOfLanes(const double* lanes) {
    return ((lanes[0] + lanes[4]) + (lanes[2] + lanes[6])) + ((lanes[1] + lanes[5]) + (lanes[3] + lanes[7]));
}

template <std::size_t rows>
[[gnu::always_inline]] inline void multiplyBlocks(const std::int32_t* block, std::int64_t blocks, const double* band,
                                                  double* rowLanes) {
    std::array<Lanes, rows> sum;
    std::memcpy(sum.data(), rowLanes, sizeof sum);
    for (; blocks > 0; --blocks, block += wordsOfBlock(rows)) {
        const Lanes model{band[placeAt(block, 0)], band[placeAt(block, 1)], band[placeAt(block, 2)],
                          band[placeAt(block, 3)], band[placeAt(block, 4)], band[placeAt(block, 5)],
                          band[placeAt(block, 6)], band[placeAt(block, 7)]};
        for (std::size_t g = 0; g < rows; ++g) {
            Lanes values;
            loadValues(block + wordsOfColumns + blockWidth * g, values);
            sum[g] += values * model;
        }
    }
    std::memcpy(rowLanes, sum.data(), sizeof sum);
}

// The places that fill up a block are added to as well, one after the other, with sums of 0.
template <std::size_t rows>
[[gnu::always_inline]] inline void addBlocks(const std::int32_t* block, std::int64_t blocks, const double* factor,
                                             double* band) {
    for (; blocks > 0; --blocks, block += wordsOfBlock(rows)) {
        Lanes values;
        loadValues(block + wordsOfColumns, values);
        Lanes sum = values * factor[0];
        for (std::size_t g = 1; g < rows; ++g) {
            loadValues(block + wordsOfColumns + blockWidth * g, values);
            sum += values * factor[g];
        }
        std::array<double, blockWidth> lane;
        std::memcpy(lane.data(), &sum, sizeof lane);
        for (std::size_t l = 0; l < blockWidth; ++l) {
            band[placeAt(block, l)] += lane[l];
        }
    }
}

float valueAt(const std::int32_t* word) {
    float value = 0.0F;
    std::memcpy(&value, word, sizeof value);
    return value;
}

void multiplyAnyOrder(const std::int32_t* words, std::int64_t count, const double* compact, double* rowLanes) {
    for (std::int64_t p = 0; p < count; ++p) {
        rowLanes[static_cast<std::size_t>(p) % blockWidth] +=
            static_cast<double>(valueAt(words + count + p)) * compact[words[p]];
    }
}

void addUnsorted(const std::int32_t* words, std::int64_t count, double factor, double* compact) {
    for (std::int64_t p = 0; p < count; ++p) {
        compact[words[p]] += static_cast<double>(valueAt(words + count + p)) * factor;
    }
}

// Infinities and NaN meet only the coefficients that a row really has: places filled up with 0 are passed over.
template <typename Visit>
void visitCoefficients(const RowGroup& run, const std::int32_t* block, Visit visit) {
    for (std::int32_t b = 0; b < run.count; ++b, block += wordsOfBlock(run.rowCount)) {
        for (std::size_t g = 0; g < static_cast<std::size_t>(run.rowCount); ++g) {
            for (std::size_t l = 0; l < blockWidth; ++l) {
                const float value = valueAt(block + wordsOfColumns + blockWidth * g + l);
                if (value != 0.0F) {
                    visit(g, l, placeAt(block, l), static_cast<double>(value));
                }
            }
        }
    }
}

void multiplyNonFinite(const RowGroup& run, const std::int32_t* words, const double* compact, double* rowLanes) {
    if (run.form == RunForm::unsorted) {
        multiplyAnyOrder(words, run.count, compact, rowLanes);
        return;
    }
    visitCoefficients(run, words, [&](std::size_t g, std::size_t l, std::size_t place, double value) {
        rowLanes[blockWidth * g + l] += value * compact[static_cast<std::size_t>(run.firstColumn) + place];
    });
}

void addNonFinite(const RowGroup& run, const std::int32_t* words, const double* factor, double* compact) {
    if (run.form == RunForm::unsorted) {
        addUnsorted(words, run.count, *factor, compact);
        return;
    }
    visitCoefficients(run, words, [&](std::size_t g, std::size_t, std::size_t place, double value) {
        compact[static_cast<std::size_t>(run.firstColumn) + place] += value * factor[g];
    });
}

bool allFinite(std::span<const double> values) {
    // Sums of zeros unless one value is infinite or no number.
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

[[gnu::always_inline]] inline void multiplyOne(const RowGroup& run, const std::int32_t* words, const double* compact,
                                               double* rowLanes) {
    const double* const band = compact + run.firstColumn;
    if (run.form == RunForm::unsorted) {
        multiplyAnyOrder(words, run.count, compact, rowLanes);
    } else if (run.rowCount == 8) {
        multiplyBlocks<8>(words, run.count, band, rowLanes);
    } else if (run.rowCount == 4) {
        multiplyBlocks<4>(words, run.count, band, rowLanes);
    } else if (run.rowCount == 2) {
        multiplyBlocks<2>(words, run.count, band, rowLanes);
    } else {
        multiplyBlocks<1>(words, run.count, band, rowLanes);
    }
}

[[gnu::always_inline]] inline void addOne(const RowGroup& run, const std::int32_t* words, const double* factor,
                                          double* compact) {
    double* const band = compact + run.firstColumn;
    if (run.form == RunForm::unsorted) {
        addUnsorted(words, run.count, *factor, compact);
    } else if (run.rowCount == 8) {
        addBlocks<8>(words, run.count, factor, band);
    } else if (run.rowCount == 4) {
        addBlocks<4>(words, run.count, factor, band);
    } else if (run.rowCount == 2) {
        addBlocks<2>(words, run.count, factor, band);
    } else {
        addBlocks<1>(words, run.count, factor, band);
    }
}

// Both passes take the runs of one slab; `sums` begins with the slab's first row, `factor` with the file's.
using MultiplyPass = void (*)(std::span<const RowGroup>, const std::int32_t*, const double*, std::size_t, double*);
using AddPass = void (*)(std::span<const RowGroup>, const std::int32_t*, const double*, double*);

double* lanesOf(double* sums, const RowGroup& run, std::size_t slabRow) {
    return sums + blockWidth * (static_cast<std::size_t>(run.firstRow) - slabRow);
}

void multiplyPlain(std::span<const RowGroup> runs, const std::int32_t* store, const double* compact,
                   std::size_t slabRow, double* sums) {
    for (const RowGroup& run : runs) {
        multiplyOne(run, store + run.firstWord, compact, lanesOf(sums, run, slabRow));
    }
}

void addPlain(std::span<const RowGroup> runs, const std::int32_t* store, const double* factor, double* compact) {
    for (const RowGroup& run : runs) {
        addOne(run, store + run.firstWord, factor + run.firstRow, compact);
    }
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void multiplyAvx2(std::span<const RowGroup> runs, const std::int32_t* store,
                                          const double* compact, std::size_t slabRow, double* sums) {
    for (const RowGroup& run : runs) {
        multiplyOne(run, store + run.firstWord, compact, lanesOf(sums, run, slabRow));
    }
}

[[gnu::target("avx2")]] void addAvx2(std::span<const RowGroup> runs, const std::int32_t* store, const double* factor,
                                     double* compact) {
    for (const RowGroup& run : runs) {
        addOne(run, store + run.firstWord, factor + run.firstRow, compact);
    }
}

[[gnu::target("avx512f")]] void multiplyAvx512(std::span<const RowGroup> runs, const std::int32_t* store,
                                               const double* compact, std::size_t slabRow, double* sums) {
    for (const RowGroup& run : runs) {
        multiplyOne(run, store + run.firstWord, compact, lanesOf(sums, run, slabRow));
    }
}

[[gnu::target("avx512f")]] void addAvx512(std::span<const RowGroup> runs, const std::int32_t* store,
                                          const double* factor, double* compact) {
    for (const RowGroup& run : runs) {
        addOne(run, store + run.firstWord, factor + run.firstRow, compact);
    }
}
#endif

void multiplyRunsCarefully(std::span<const RowGroup> runs, const std::int32_t* store, const double* compact,
                           std::size_t slabRow, double* sums) {
    for (const RowGroup& run : runs) {
        multiplyNonFinite(run, store + run.firstWord, compact, lanesOf(sums, run, slabRow));
    }
}

MultiplyPass multiplyPassFor(InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        return multiplyAvx512;
    }
    if (instructions == InstructionSet::avx2) {
        return multiplyAvx2;
    }
#endif
    static_cast<void>(instructions);
    return multiplyPlain;
}

AddPass addPassFor(InstructionSet instructions) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512) {
        return addAvx512;
    }
    if (instructions == InstructionSet::avx2) {
        return addAvx2;
    }
#endif
    static_cast<void>(instructions);
    return addPlain;
}

}  // namespace

void gatherUsed(const BlockedRows& rows, std::span<const double> padded, std::span<double> compact) {
    for (std::size_t i = 0; i < rows.usedColumns.size(); ++i) {
        compact[i] = padded[static_cast<std::size_t>(rows.usedColumns[i])];
    }
}

void scatterUsed(const BlockedRows& rows, std::span<const double> compact, std::span<double> padded) {
    for (std::size_t i = 0; i < rows.usedColumns.size(); ++i) {
        padded[static_cast<std::size_t>(rows.usedColumns[i])] = compact[i];
    }
}

void multiply(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
              std::span<double> out, InstructionSet instructions) {
    const bool finite = allFinite(compact.first(rows.usedColumns.size()));
    const MultiplyPass multiplyPass = finite ? multiplyPassFor(instructions) : multiplyRunsCarefully;
    SlabSums sums;
    for (const RowSlab& slab : rows.slabs) {
        std::fill_n(sums.lane.begin(), slab.rowCount * blockWidth, 0.0);
        multiplyPass(std::span(rows.runs).subspan(slab.firstRun, slab.runCount), words.data(), compact.data(),
                     slab.firstRow, sums.lane.data());
        for (std::size_t r = 0; r < slab.rowCount; ++r) {
            out[slab.firstRow + r] = sumOfLanes(sums.lane.data() + blockWidth * r);
        }
    }
}

void multiplyTransposed(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                        std::span<double> compact, InstructionSet instructions) {
    if (allFinite(factor)) {
        addPassFor(instructions)(rows.runs, words.data(), factor.data(), compact.data());
        return;
    }
    for (const RowGroup& run : rows.runs) {
        addNonFinite(run, words.data() + run.firstWord, factor.data() + run.firstRow, compact.data());
    }
}

}  // namespace voxlith
