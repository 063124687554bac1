#include "inversion/column_kernels.h"

#include <algorithm>

#include "files/dummy_value.h"

namespace voxlith {

namespace {

using Piece = std::array<double, columnPiece>;
using Values = std::array<double, columnPiece + 2>;  // of a piece, of the cell above it and of the one below

// A piece of a column: its cells, those with lateral pairs and a reference term, and those with a pair along z.
struct PieceOfColumn {
    std::size_t first = 0, length = 0, used = 0, pairsDown = 0;
};

PieceOfColumn pieceFrom(const ModelColumn& column, std::size_t first) {
    const std::size_t behind = std::min(first + columnPiece, column.height);
    const std::size_t behindUsed = std::min(behind, column.used);
    const std::size_t behindPairs = std::min(behind, column.height - 1);
    return {first, behind - first, behindUsed > first ? behindUsed - first : 0,
            column.zWidth == nullptr || behindPairs < first ? 0 : behindPairs - first};
}

// Calls for the same cells of the column behind this one: a pass reads so many arrays side by side that the processor
// does not follow them all by itself.
template <class Value>
[[gnu::always_inline]] inline void callForNextColumn(const Value* column, std::size_t height,
                                                     const PieceOfColumn& piece) {
    constexpr std::size_t lineLength = 64 / sizeof(Value);
    for (std::size_t k = 0; k < piece.length; k += lineLength)
        __builtin_prefetch(column + height + piece.first + k);
}

[[gnu::always_inline]] inline void callForNextColumns(const ModelColumn& c, const PieceOfColumn& piece) {
    for (const float* const weight : {c.wtS, c.wtE, c.wtN, c.wtZ})
        callForNextColumn(weight, c.height, piece);
    if (c.reference != nullptr)
        callForNextColumn(c.reference, c.height, piece);
    if (c.nextY != nullptr)
        callForNextColumn(c.nextY, c.height, piece);
    if (c.depthWeightNextY != nullptr)
        callForNextColumn(c.depthWeightNextY, c.height, piece);
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

// Terms that a piece does not have are zeros: adding them changes no bit of a sum that began with a 0.
[[gnu::always_inline]] inline void clearFrom(std::size_t count, std::size_t length, double* terms) {
    for (std::size_t k = count; k < length; ++k)
        terms[k] = 0.0;
}

[[gnu::always_inline]] inline void squareSlopes(const double* values, const double* next, const float* weight,
                                                double apart, std::size_t count, Piece& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - next[k]) / apart;
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

[[gnu::always_inline]] inline double apartDown(const double* zWidth, std::size_t first) {
    return (zWidth[first] + zWidth[first + 1]) * 0.5;
}

[[gnu::always_inline]] inline void squareSlopesDown(const double* values, const ModelColumn& c, std::size_t first,
                                                    std::size_t count, Piece& terms) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - values[k + 1]) / apartDown(c.zWidth, first + k);
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

[[gnu::always_inline]] inline void addPieceNorms(const ModelColumn& c, const PieceOfColumn& piece, ModelNorms& norms) {
    Piece reference, alongY, alongX, alongZ;
    Values own, beside;
    callForNextColumns(c, piece);
    const std::size_t first = piece.first;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : piece.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : piece.used;
    const double* const values =
        valuesOf(c.model, c.depthWeight, first, std::max(piece.length, piece.pairsDown + 1), own);
    squareDistances(c, first, piece.used, reference);
    squareSlopes(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, beside), c.wtN + first, c.apartY, pairsY,
                 alongY);
    squareSlopes(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, beside), c.wtE + first, c.apartX, pairsX,
                 alongX);
    squareSlopesDown(values, c, first, piece.pairsDown, alongZ);
    clearFrom(piece.used, piece.length, reference.data());
    clearFrom(pairsY, piece.length, alongY.data());
    clearFrom(pairsX, piece.length, alongX.data());
    clearFrom(piece.pairsDown, piece.length, alongZ.data());
    addTerms(reference, alongY, alongX, alongZ, piece.length, norms);
}

[[gnu::always_inline]] inline void addNormsInline(const ModelColumn& column, ModelNorms& norms) {
    for (std::size_t first = 0; first < column.height; first += columnPiece)
        addPieceNorms(column, pieceFrom(column, first), norms);
}

[[gnu::always_inline]] inline void pullPairs(const double* values, const double* next, const float* weight,
                                             double apart, std::size_t count, Piece& pulls) {
    for (std::size_t k = 0; k < count; ++k)
        pulls[k] = static_cast<double>(weight[k]) * (values[k] - next[k]) / apart;
}

[[gnu::always_inline]] inline void pullPairsDown(const double* values, const ModelColumn& c, std::size_t first,
                                                 std::size_t count, double* pulls) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k)
        pulls[k] = static_cast<double>(weight[k]) * (values[k] - values[k + 1]) / apartDown(c.zWidth, first + k);
}

// A cell without a reference is pulled towards 0, and so is every cell where the column has none.
[[gnu::always_inline]] inline void pullToReference(const ModelColumn& c, const float* referenceWeight,
                                                   const PieceOfColumn& piece, Piece& pulls) {
    const double* const model = c.model + piece.first;
    const float* const weight = c.wtS + piece.first;
    clearFrom(0, piece.length, pulls.data());
    for (std::size_t k = 0, end = c.reference == nullptr ? 0 : piece.used; k < end; ++k) {
        const double reference = c.reference[piece.first + k];
        pulls[k] = reference > dummyValue ? reference : 0.0;
    }
    for (std::size_t k = 0; k < piece.used; ++k)
        pulls[k] = static_cast<double>(weight[k]) * (model[k] - pulls[k]);
    divideBy(referenceWeight, piece.first, piece.used, pulls);
}

// The trade-off, and the mean of the data part; held cells do not move.
[[gnu::always_inline]] inline void combine(const ColumnPull& pull, const PieceOfColumn& piece, Piece& sums) {
    const double multiplier = pull.multiplier, nData = pull.nData;
    const double* const adjoint = pull.adjoint + piece.first;
    const std::int32_t* const fixed = pull.fixedCell + piece.first;
    double* const out = pull.out + piece.first;
    for (std::size_t k = 0; k < piece.length; ++k)
        sums[k] = multiplier * sums[k] + adjoint[k] / nData;
    for (std::size_t k = 0; k < piece.length; ++k)
        out[k] = fixed[k] != 0 ? 0.0 : sums[k];
}

[[gnu::always_inline]] inline void putPullInline(const ModelColumn& c, std::size_t first, ColumnPull& pull) {
    const PieceOfColumn piece = pieceFrom(c, first);
    callForNextColumns(c, piece);
    callForNextColumn(pull.adjoint, c.height, piece);
    callForNextColumn(pull.fixedCell, c.height, piece);
    Piece sums, alongY, alongX, reference;
    std::array<double, columnPiece + 1> alongZ;  // from the pair of the piece's first cell and the one above
    Values own, beside;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : piece.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : piece.used;
    const std::size_t above = first > 0 ? 1 : 0;
    const std::size_t pairsZ = c.zWidth == nullptr ? 0 : piece.pairsDown + above;
    const double* const top =
        valuesOf(c.model, c.depthWeight, first - above, std::max(piece.length + above, pairsZ + 1), own);
    const double* const values = top + above;
    pullPairs(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, beside), c.wtN + first, c.apartY, pairsY,
              alongY);
    pullPairs(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, beside), c.wtE + first, c.apartX, pairsX,
              alongX);
    alongZ[0] = 0.0;
    pullPairsDown(top, c, first - above, pairsZ, alongZ.data() + 1 - above);
    pullToReference(c, pull.referenceWeight, piece, reference);
    clearFrom(pairsY, piece.length, alongY.data());
    clearFrom(pairsX, piece.length, alongX.data());
    clearFrom(piece.pairsDown, piece.length, alongZ.data() + 1);
    if (pull.firstRow)
        clearFrom(0, piece.length, sums.data());
    else
        std::copy_n(pull.out + first, piece.length, sums.data());
    for (std::size_t k = 0; k < piece.length; ++k)
        sums[k] = sums[k] + alongY[k] - pull.alongX[k] + alongX[k] - alongZ[k] + alongZ[k + 1] + reference[k];
    double* const outNextY = pull.outNextY;
    for (std::size_t k = 0, end = outNextY == nullptr ? 0 : piece.length; k < end; ++k)
        outNextY[first + k] = 0.0 - alongY[k];
    std::copy_n(alongX.data(), piece.length, pull.alongX.data());
    combine(pull, piece, sums);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void addNormsAvx2(const ModelColumn& column, ModelNorms& norms) {
    addNormsInline(column, norms);
}
[[gnu::target("avx512f")]] void addNormsAvx512(const ModelColumn& column, ModelNorms& norms) {
    addNormsInline(column, norms);
}

[[gnu::target("avx2")]] void putPullAvx2(const ModelColumn& column, std::size_t first, ColumnPull& pull) {
    putPullInline(column, first, pull);
}
[[gnu::target("avx512f")]] void putPullAvx512(const ModelColumn& column, std::size_t first, ColumnPull& pull) {
    putPullInline(column, first, pull);
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

void putColumnPull(const ModelColumn& column, std::size_t first, InstructionSet instructions, ColumnPull& pull) {
#if defined(__x86_64__)
    if (instructions == InstructionSet::avx512)
        return putPullAvx512(column, first, pull);
    if (instructions == InstructionSet::avx2)
        return putPullAvx2(column, first, pull);
#endif
    static_cast<void>(instructions);
    putPullInline(column, first, pull);
}

}  // namespace voxlith
