#include "inversion/column_kernels.h"

#include <algorithm>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

using Piece = std::array<double, columnBlock>;
using Values = std::array<double, columnBlock + 2>;  // of a block, of the cell above it and of the one below

// A block of a column: its cells, those with lateral pairs and a reference term, and those with a pair along z.
struct ColumnPart {
    std::size_t first = 0, length = 0, used = 0, pairsDown = 0;
};

ColumnPart blockFrom(const ModelColumn& column, std::size_t first) {
    const std::size_t behind = std::min(first + columnBlock, column.height);
    const std::size_t endOfUsed = std::min(behind, column.used);
    const std::size_t behindPairs = std::min(behind, column.height - 1);
    return {first, behind - first, endOfUsed > first ? endOfUsed - first : 0,
            column.zWidth == nullptr || behindPairs < first ? 0 : behindPairs - first};
}

// Calls for the same cells of the column behind this one: a pass reads so many arrays side by side that the processor
// does not follow them all by itself.
template <class Value>
[[gnu::always_inline]] inline void prefetchNextColumn(const Value* column, std::size_t height,
                                                      const ColumnPart& block) {
    constexpr std::size_t lineLength = 64 / sizeof(Value);
    for (std::size_t k = 0; k < block.length; k += lineLength)
        __builtin_prefetch(column + height + block.first + k);
}

[[gnu::always_inline]] inline void prefetchNextColumns(const ModelColumn& c, const ColumnPart& block) {
    for (const float* const weight : {c.wtS, c.wtE, c.wtN, c.wtZ})
        prefetchNextColumn(weight, c.height, block);
    if (c.reference != nullptr)
        prefetchNextColumn(c.reference, c.height, block);
    if (c.nextY != nullptr)
        prefetchNextColumn(c.nextY, c.height, block);
    if (c.depthWeightNextY != nullptr)
        prefetchNextColumn(c.depthWeightNextY, c.height, block);
}

// The values of `count` cells of a column from `first` on: the model itself, or its quotients with the depth weights in
// `room`.
[[gnu::always_inline]] inline const double* valuesOf(const double* model, const float* depthWeight, std::size_t first,
                                                     std::size_t count, Values& room) {
    if (count == 0)
        return model;
    if (depthWeight == nullptr)
        return model + first;
    for (std::size_t k = 0; k < count; ++k)
        room[k] = model[first + k] / static_cast<double>(depthWeight[first + k]);
    return room.data();
}

// Terms that a block does not have are zeros: adding them changes no bit of a sum that began with a 0.
[[gnu::always_inline]] inline void clearFrom(std::size_t count, std::size_t length, double* terms) {
    for (std::size_t k = count; k < length; ++k)
        terms[k] = 0.0;
}

[[gnu::always_inline]] inline void squaredDifferences(const double* values, const double* next, const float* weight,
                                                      double apart, std::size_t count, Piece& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - next[k]) / apart;
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

[[gnu::always_inline]] inline double distanceZ(const double* zWidth, std::size_t first) {
    return (zWidth[first] + zWidth[first + 1]) * 0.5;
}

[[gnu::always_inline]] inline void squaredDifferencesDown(const double* values, const ModelColumn& c, std::size_t first,
                                                          std::size_t count, Piece& terms) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - values[k + 1]) / distanceZ(c.zWidth, first + k);
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

[[gnu::always_inline]] inline void divideBy(const float* depthWeight, std::size_t first, std::size_t count,
                                            Piece& terms) {
    for (std::size_t k = 0, end = depthWeight == nullptr ? 0 : count; k < end; ++k)
        terms[k] /= static_cast<double>(depthWeight[first + k]);
}

[[gnu::always_inline]] inline void squareDistances(const ModelColumn& c, std::size_t first, std::size_t count,
                                                   Piece& terms) {
    const double* const model = c.model + first;
    const double* const reference = c.reference + first;
    const float* const weight = c.wtS + first;
    for (std::size_t k = 0; k < count; ++k)
        terms[k] = model[k] - reference[k];
    divideBy(c.depthWeight, first, count, terms);
    for (std::size_t k = 0; k < count; ++k)
        terms[k] = static_cast<double>(weight[k]) * (terms[k] * terms[k]);
    for (std::size_t k = 0; k < count; ++k)
        terms[k] = reference[k] > dummyValue ? terms[k] : 0.0;
}

// Four chains of additions, each in its own order, go on side by side.
[[gnu::always_inline]] inline void addTerms(const Piece& reference, const Piece& alongY, const Piece& alongX,
                                            const Piece& alongZ, std::size_t length, ModelNorms& norms) {
    ModelNorms sums = norms;
    for (std::size_t k = 0; k < length; ++k) {
        sums.reference += reference[k];
        sums.y += alongY[k];
        sums.x += alongX[k];
        sums.z += alongZ[k];
    }
    norms = sums;
}

[[gnu::always_inline]] inline void addBlockNorms(const ModelColumn& c, const ColumnPart& block, ModelNorms& norms) {
    Piece reference, alongY, alongX, alongZ;
    Values own, beside;
    prefetchNextColumns(c, block);
    const std::size_t first = block.first;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : block.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : block.used;
    const double* const values =
        valuesOf(c.model, c.depthWeight, first, std::max(block.length, block.pairsDown + 1), own);
    squareDistances(c, first, block.used, reference);
    squaredDifferences(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, beside), c.wtN + first, c.distanceY,
                       pairsY, alongY);
    squaredDifferences(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, beside), c.wtE + first, c.distanceX,
                       pairsX, alongX);
    squaredDifferencesDown(values, c, first, block.pairsDown, alongZ);
    clearFrom(block.used, block.length, reference.data());
    clearFrom(pairsY, block.length, alongY.data());
    clearFrom(pairsX, block.length, alongX.data());
    clearFrom(block.pairsDown, block.length, alongZ.data());
    addTerms(reference, alongY, alongX, alongZ, block.length, norms);
}

[[gnu::always_inline]] inline void addNormsInline(const ModelColumn& column, ModelNorms& norms) {
    for (std::size_t first = 0; first < column.height; first += columnBlock)
        addBlockNorms(column, blockFrom(column, first), norms);
}

[[gnu::always_inline]] inline void differenceGradient(const double* values, const double* next, const float* weight,
                                                      double apart, std::size_t count, Piece& gradients) {
    for (std::size_t k = 0; k < count; ++k)
        gradients[k] = static_cast<double>(weight[k]) * (values[k] - next[k]) / apart;
}

[[gnu::always_inline]] inline void differenceGradientDown(const double* values, const ModelColumn& c, std::size_t first,
                                                          std::size_t count, double* gradients) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k)
        gradients[k] = static_cast<double>(weight[k]) * (values[k] - values[k + 1]) / distanceZ(c.zWidth, first + k);
}

// A cell without a reference is pulled towards 0, and so is every cell where the column has none.
[[gnu::always_inline]] inline void referenceGradient(const ModelColumn& c, const float* referenceWeight,
                                                     const ColumnPart& block, Piece& gradients) {
    const double* const model = c.model + block.first;
    const float* const weight = c.wtS + block.first;
    clearFrom(0, block.length, gradients.data());
    for (std::size_t k = 0, end = c.reference == nullptr ? 0 : block.used; k < end; ++k) {
        const double reference = c.reference[block.first + k];
        gradients[k] = reference > dummyValue ? reference : 0.0;
    }
    for (std::size_t k = 0; k < block.used; ++k)
        gradients[k] = static_cast<double>(weight[k]) * (model[k] - gradients[k]);
    divideBy(referenceWeight, block.first, block.used, gradients);
}

// The trade-off, and the mean of the data part; fixed cells do not move.
[[gnu::always_inline]] inline void combine(const ColumnGradient& gradient, const ColumnPart& block, Piece& sums) {
    const double multiplier = gradient.multiplier, nData = gradient.nData;
    const double* const adjoint = gradient.adjoint + block.first;
    const std::int32_t* const fixed = gradient.fixedCell + block.first;
    double* const out = gradient.out + block.first;
    for (std::size_t k = 0; k < block.length; ++k)
        sums[k] = multiplier * sums[k] + adjoint[k] / nData;
    for (std::size_t k = 0; k < block.length; ++k)
        out[k] = fixed[k] != 0 ? 0.0 : sums[k];
}

[[gnu::always_inline]] inline void addGradientInline(const ModelColumn& c, std::size_t first,
                                                     ColumnGradient& gradient) {
    const ColumnPart block = blockFrom(c, first);
    prefetchNextColumns(c, block);
    prefetchNextColumn(gradient.adjoint, c.height, block);
    prefetchNextColumn(gradient.fixedCell, c.height, block);
    Piece sums, alongY, alongX, reference;
    std::array<double, columnBlock + 1> alongZ;  // from the pair of the block's first cell and the one above
    Values own, beside;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : block.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : block.used;
    const std::size_t above = first > 0 ? 1 : 0;
    const std::size_t pairsZ = c.zWidth == nullptr ? 0 : block.pairsDown + above;
    const double* const top =
        valuesOf(c.model, c.depthWeight, first - above, std::max(block.length + above, pairsZ + 1), own);
    const double* const values = top + above;
    differenceGradient(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, beside), c.wtN + first, c.distanceY,
                       pairsY, alongY);
    differenceGradient(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, beside), c.wtE + first, c.distanceX,
                       pairsX, alongX);
    alongZ[0] = 0.0;
    differenceGradientDown(top, c, first - above, pairsZ, alongZ.data() + 1 - above);
    referenceGradient(c, gradient.referenceWeight, block, reference);
    clearFrom(pairsY, block.length, alongY.data());
    clearFrom(pairsX, block.length, alongX.data());
    clearFrom(block.pairsDown, block.length, alongZ.data() + 1);
    if (gradient.firstRow)
        clearFrom(0, block.length, sums.data());
    else
        std::copy_n(gradient.out + first, block.length, sums.data());
    for (std::size_t k = 0; k < block.length; ++k)
        sums[k] = sums[k] + alongY[k] - gradient.alongX[k] + alongX[k] - alongZ[k] + alongZ[k + 1] + reference[k];
    double* const outNextY = gradient.outNextY;
    for (std::size_t k = 0, end = outNextY == nullptr ? 0 : block.length; k < end; ++k)
        outNextY[first + k] = 0.0 - alongY[k];
    std::copy_n(alongX.data(), block.length, gradient.alongX.data());
    combine(gradient, block, sums);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void addNormsAvx2(const ModelColumn& column, ModelNorms& norms) {
    addNormsInline(column, norms);
}
[[gnu::target("avx512f")]] void addNormsAvx512(const ModelColumn& column, ModelNorms& norms) {
    addNormsInline(column, norms);
}

[[gnu::target("avx2")]] void addGradientAvx2(const ModelColumn& column, std::size_t first, ColumnGradient& gradient) {
    addGradientInline(column, first, gradient);
}
[[gnu::target("avx512f")]] void addGradientAvx512(const ModelColumn& column, std::size_t first,
                                                  ColumnGradient& gradient) {
    addGradientInline(column, first, gradient);
}
#endif

}  // namespace

void addColumnNorms(const ModelColumn& column, InstructionSet instructions, ModelNorms& norms) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return addNormsAvx512(column, norms);
    if (instructions == InstructionSet::avx2)
        return addNormsAvx2(column, norms);
#endif
    static_cast<void>(instructions);
    addNormsInline(column, norms);
}

void addColumnGradient(const ModelColumn& column, std::size_t first, InstructionSet instructions,
                       ColumnGradient& gradient) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return addGradientAvx512(column, first, gradient);
    if (instructions == InstructionSet::avx2)
        return addGradientAvx2(column, first, gradient);
#endif
    static_cast<void>(instructions);
    addGradientInline(column, first, gradient);
}

}  // namespace voxlith
