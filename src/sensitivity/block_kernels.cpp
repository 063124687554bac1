#include "sensitivity/block_kernels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace voxlith {

namespace {

// Eight lanes, whatever registers they take.
using Lanes = double __attribute__((vector_size(64)));
using FloatLanes = float __attribute__((vector_size(32)));

[[gnu::always_inline]] inline void loadValues(const std::int32_t* words, Lanes& values) {
    FloatLanes narrow;
    std::memcpy(&narrow, words, sizeof narrow);
    values = __builtin_convertvector(narrow, Lanes);
}

// The places of a block often follow one another: then they are one load and one store. Places rise but for the spare
// place, which may stand several times at the end: the last but one tells.
[[gnu::always_inline]] inline bool areAdjacent(const std::int32_t* place) {
    return place[7] - place[0] == 7 && place[6] - place[0] == 6;
}

[[gnu::always_inline]] inline void loadPlaces(const double* compact, const std::int32_t* place, Lanes& lanes) {
    if (areAdjacent(place)) {
        std::memcpy(&lanes, compact + place[0], sizeof lanes);
    } else {
        lanes = Lanes{compact[place[0]], compact[place[1]], compact[place[2]], compact[place[3]],
                      compact[place[4]], compact[place[5]], compact[place[6]], compact[place[7]]};
    }
}

[[gnu::always_inline]] inline void storePlaces(const Lanes& lanes, const std::int32_t* place, double* compact) {
    if (areAdjacent(place)) {
        std::memcpy(compact + place[0], &lanes, sizeof lanes);
    } else {
        for (std::size_t l = 0; l < blockWidth; ++l) {
            compact[place[l]] = lanes[l];
        }
    }
}

[[gnu::always_inline]] inline double sumOfLanes(const Lanes& lanes) {
    return ((lanes[0] + lanes[4]) + (lanes[2] + lanes[6])) + ((lanes[1] + lanes[5]) + (lanes[3] + lanes[7]));
}

template <std::size_t rows>
[[gnu::always_inline]] inline void multiplyGroup(const std::int32_t* words, std::int64_t blocks, const double* compact,
                                                 double* out) {
    std::array<Lanes, rows> sum{};
    for (std::int64_t block = 0; block < blocks; ++block, words += blockWidth * (rows + 1)) {
        Lanes lanes;
        loadPlaces(compact, words, lanes);
        for (std::size_t g = 0; g < rows; ++g) {
            Lanes values;
            loadValues(words + blockWidth * (g + 1), values);
            sum[g] += values * lanes;
        }
    }
    for (std::size_t g = 0; g < rows; ++g) {
        out[g] = sumOfLanes(sum[g]);
    }
}

template <std::size_t rows>
[[gnu::always_inline]] inline void addGroup(const std::int32_t* words, std::int64_t blocks, const double* factor,
                                            double* compact) {
    for (std::int64_t block = 0; block < blocks; ++block, words += blockWidth * (rows + 1)) {
        Lanes lanes;
        loadPlaces(compact, words, lanes);
        for (std::size_t g = 0; g < rows; ++g) {
            Lanes values;
            loadValues(words + blockWidth * (g + 1), values);
            lanes += values * factor[g];
        }
        storePlaces(lanes, words, compact);
    }
}

float valueAt(const std::int32_t* word) {
    float value = 0.0F;
    std::memcpy(&value, word, sizeof value);
    return value;
}

void multiplyAnyOrder(const std::int32_t* words, std::int64_t count, const double* compact, double* out) {
    Lanes sum{};
    for (std::int64_t p = 0; p < count; ++p) {
        sum[static_cast<std::size_t>(p) % blockWidth] +=
            static_cast<double>(valueAt(words + count + p)) * compact[words[p]];
    }
    *out = sumOfLanes(sum);
}

void addAnyOrder(const std::int32_t* words, std::int64_t count, double factor, double* compact) {
    for (std::int64_t p = 0; p < count; ++p) {
        compact[words[p]] += static_cast<double>(valueAt(words + count + p)) * factor;
    }
}

// Infinities and NaN meet only the coefficients that a row really has: places filled up with 0 are passed over.
void multiplyCarefully(const RowGroup& group, const std::int32_t* words, const double* compact, double* out) {
    const auto rows = static_cast<std::size_t>(group.rowCount);
    for (std::size_t g = 0; g < rows; ++g) {
        Lanes sum{};
        for (std::int64_t block = 0; block < group.count; ++block) {
            const std::int32_t* at = words + block * static_cast<std::int64_t>(blockWidth * (rows + 1));
            for (std::size_t l = 0; l < blockWidth; ++l) {
                const float value = valueAt(at + blockWidth * (g + 1) + l);
                if (value != 0.0F) {
                    sum[l] += static_cast<double>(value) * compact[at[l]];
                }
            }
        }
        out[g] = sumOfLanes(sum);
    }
}

void addCarefully(const RowGroup& group, const std::int32_t* words, const double* factor, double* compact) {
    const auto rows = static_cast<std::size_t>(group.rowCount);
    for (std::int64_t block = 0; block < group.count; ++block) {
        const std::int32_t* at = words + block * static_cast<std::int64_t>(blockWidth * (rows + 1));
        for (std::size_t g = 0; g < rows; ++g) {
            for (std::size_t l = 0; l < blockWidth; ++l) {
                const float value = valueAt(at + blockWidth * (g + 1) + l);
                if (value != 0.0F) {
                    compact[at[l]] += static_cast<double>(value) * factor[g];
                }
            }
        }
    }
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

[[gnu::always_inline]] inline void multiplyOne(const RowGroup& group, const std::int32_t* store, const double* compact,
                                               double* out) {
    const std::int32_t* words = store + group.firstWord;
    out += group.firstRow;
    if (group.form == RowForm::anyOrder) {
        multiplyAnyOrder(words, group.count, compact, out);
    } else if (group.rowCount == 8) {
        multiplyGroup<8>(words, group.count, compact, out);
    } else if (group.rowCount == 4) {
        multiplyGroup<4>(words, group.count, compact, out);
    } else {
        multiplyGroup<1>(words, group.count, compact, out);
    }
}

[[gnu::always_inline]] inline void addOne(const RowGroup& group, const std::int32_t* store, const double* factor,
                                          double* compact) {
    const std::int32_t* words = store + group.firstWord;
    factor += group.firstRow;
    if (group.form == RowForm::anyOrder) {
        addAnyOrder(words, group.count, *factor, compact);
    } else if (group.rowCount == 8) {
        addGroup<8>(words, group.count, factor, compact);
    } else if (group.rowCount == 4) {
        addGroup<4>(words, group.count, factor, compact);
    } else {
        addGroup<1>(words, group.count, factor, compact);
    }
}

using MultiplyPass = void (*)(std::span<const RowGroup>, const std::int32_t*, const double*, double*);
using AddPass = void (*)(std::span<const RowGroup>, const std::int32_t*, const double*, double*);

void multiplyPlain(std::span<const RowGroup> groups, const std::int32_t* store, const double* compact, double* out) {
    for (const RowGroup& group : groups) {
        multiplyOne(group, store, compact, out);
    }
}

void addPlain(std::span<const RowGroup> groups, const std::int32_t* store, const double* factor, double* compact) {
    for (const RowGroup& group : groups) {
        addOne(group, store, factor, compact);
    }
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void multiplyAvx2(std::span<const RowGroup> groups, const std::int32_t* store,
                                          const double* compact, double* out) {
    for (const RowGroup& group : groups) {
        multiplyOne(group, store, compact, out);
    }
}

[[gnu::target("avx2")]] void addAvx2(std::span<const RowGroup> groups, const std::int32_t* store, const double* factor,
                                     double* compact) {
    for (const RowGroup& group : groups) {
        addOne(group, store, factor, compact);
    }
}

[[gnu::target("avx512f")]] void multiplyAvx512(std::span<const RowGroup> groups, const std::int32_t* store,
                                               const double* compact, double* out) {
    for (const RowGroup& group : groups) {
        multiplyOne(group, store, compact, out);
    }
}

[[gnu::target("avx512f")]] void addAvx512(std::span<const RowGroup> groups, const std::int32_t* store,
                                          const double* factor, double* compact) {
    for (const RowGroup& group : groups) {
        addOne(group, store, factor, compact);
    }
}
#endif

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

void gatherInUse(const WorkingRows& rows, std::span<const double> padded, std::span<double> compact) {
    for (std::size_t i = 0; i < rows.positionsInUse.size(); ++i) {
        compact[i] = padded[static_cast<std::size_t>(rows.positionsInUse[i])];
    }
    compact[rows.sparePlace()] = 0.0;
}

void scatterInUse(const WorkingRows& rows, std::span<const double> compact, std::span<double> padded) {
    for (std::size_t i = 0; i < rows.positionsInUse.size(); ++i) {
        padded[static_cast<std::size_t>(rows.positionsInUse[i])] = compact[i];
    }
}

void rowsTimesCompact(const WorkingRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
                      std::span<double> out, InstructionSet instructions) {
    if (allFinite(compact.first(rows.sparePlace()))) {
        multiplyPassFor(instructions)(rows.groups, words.data(), compact.data(), out.data());
        return;
    }
    for (const RowGroup& group : rows.groups) {
        const std::int32_t* at = words.data() + group.firstWord;
        if (group.form == RowForm::anyOrder) {
            multiplyAnyOrder(at, group.count, compact.data(), out.data() + group.firstRow);
        } else {
            multiplyCarefully(group, at, compact.data(), out.data() + group.firstRow);
        }
    }
}

void addRowsToCompact(const WorkingRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                      std::span<double> compact, InstructionSet instructions) {
    if (allFinite(factor)) {
        addPassFor(instructions)(rows.groups, words.data(), factor.data(), compact.data());
        return;
    }
    for (const RowGroup& group : rows.groups) {
        const std::int32_t* at = words.data() + group.firstWord;
        if (group.form == RowForm::anyOrder) {
            addAnyOrder(at, group.count, factor[static_cast<std::size_t>(group.firstRow)], compact.data());
        } else {
            addCarefully(group, at, factor.data() + group.firstRow, compact.data());
        }
    }
}

}  // namespace voxlith
