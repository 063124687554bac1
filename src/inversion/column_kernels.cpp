#include "inversion/column_kernels.h"

#include <algorithm>

#include "files/dummy_value.h"

namespace voxlith {

namespace {

using Piece = std::array<double, columnPiece>;

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

template <bool weighted>
[[gnu::always_inline]] inline double valueAt(const double* model, const float* depthWeight, std::size_t k) {
    if constexpr (weighted)
        return model[k] / static_cast<double>(depthWeight[k]);
    else
        return model[k];
}

// Terms that a piece does not have are zeros: adding them changes no bit of a sum that began with a 0.
[[gnu::always_inline]] inline void clearFrom(std::size_t count, std::size_t length, Piece& terms) {
    for (std::size_t k = count; k < length; ++k)
        terms[k] = 0.0;
}

template <bool weighted>
[[gnu::always_inline]] inline void squareSlopes(const double* model, const float* depthWeight, const double* next,
                                                const float* nextDepthWeight, const float* weight, double apart,
                                                std::size_t count, Piece& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        const double slope =
            (valueAt<weighted>(model, depthWeight, k) - valueAt<weighted>(next, nextDepthWeight, k)) / apart;
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

template <bool weighted>
[[gnu::always_inline]] inline void squareSlopesDown(const double* model, const float* depthWeight, const float* weight,
                                                    const double* width, std::size_t count, Piece& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        const double apart = (width[k] + width[k + 1]) * 0.5;
        const double slope =
            (valueAt<weighted>(model, depthWeight, k) - valueAt<weighted>(model, depthWeight, k + 1)) / apart;
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

template <bool weighted>
[[gnu::always_inline]] inline void squareDistances(const double* model, const float* depthWeight,
                                                   const double* reference, const float* weight, std::size_t count,
                                                   Piece& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        double difference = model[k] - reference[k];
        if constexpr (weighted)
            difference /= static_cast<double>(depthWeight[k]);
        terms[k] = static_cast<double>(weight[k]) * (difference * difference);
    }
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

template <bool weighted>
[[gnu::always_inline]] inline void addPieceNorms(const ModelColumn& c, const PieceOfColumn& piece, ModelNorms& norms) {
    Piece reference, alongY, alongX, alongZ;
    const std::size_t k = piece.first;
    const double* const model = c.model + k;
    const float* const depthWeight = weighted ? c.depthWeight + k : nullptr;
    squareDistances<weighted>(model, depthWeight, c.reference + k, c.wtS + k, piece.used, reference);
    const std::size_t pairsY = c.nextY == nullptr ? 0 : piece.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : piece.used;
    if (pairsY > 0)
        squareSlopes<weighted>(model, depthWeight, c.nextY + k, weighted ? c.depthWeightNextY + k : nullptr, c.wtN + k,
                               c.apartY, pairsY, alongY);
    if (pairsX > 0)
        squareSlopes<weighted>(model, depthWeight, c.nextX + k, weighted ? c.depthWeightNextX + k : nullptr, c.wtE + k,
                               c.apartX, pairsX, alongX);
    if (piece.pairsDown > 0)
        squareSlopesDown<weighted>(model, depthWeight, c.wtZ + k, c.zWidth + k, piece.pairsDown, alongZ);
    clearFrom(piece.used, piece.length, reference);
    clearFrom(pairsY, piece.length, alongY);
    clearFrom(pairsX, piece.length, alongX);
    clearFrom(piece.pairsDown, piece.length, alongZ);
    addTerms(reference, alongY, alongX, alongZ, piece.length, norms);
}

[[gnu::always_inline]] inline void addNormsInline(const ModelColumn& column, ModelNorms& norms) {
    for (std::size_t first = 0; first < column.height; first += columnPiece) {
        const PieceOfColumn piece = pieceFrom(column, first);
        if (column.depthWeight == nullptr)
            addPieceNorms<false>(column, piece, norms);
        else
            addPieceNorms<true>(column, piece, norms);
    }
}

template <bool weighted>
[[gnu::always_inline]] inline void pullPairs(const double* model, const float* depthWeight, const double* next,
                                             const float* nextDepthWeight, const float* weight, double apart,
                                             std::size_t count, Piece& pulls) {
    for (std::size_t k = 0; k < count; ++k) {
        const double difference =
            valueAt<weighted>(model, depthWeight, k) - valueAt<weighted>(next, nextDepthWeight, k);
        pulls[k] = static_cast<double>(weight[k]) * difference / apart;
    }
}

// pulls[k + 1] belongs to the pair of cells k and k + 1; pulls[0] to the one above the piece, 0 if there is none.
template <bool weighted>
[[gnu::always_inline]] inline void pullPairsDown(const ModelColumn& c, const PieceOfColumn& piece,
                                                 std::array<double, columnPiece + 1>& pulls) {
    const double* const model = c.model;
    const float* const depthWeight = c.depthWeight;
    const std::size_t from = piece.first > 0 && c.zWidth != nullptr ? piece.first - 1 : piece.first;
    const std::size_t behind = piece.first + piece.pairsDown;
    double* const out = pulls.data() + 1 + from - piece.first;
    pulls[0] = 0.0;
    for (std::size_t k = from; k < behind; ++k) {
        const double apart = (c.zWidth[k] + c.zWidth[k + 1]) * 0.5;
        const double difference =
            valueAt<weighted>(model, depthWeight, k) - valueAt<weighted>(model, depthWeight, k + 1);
        out[k - from] = static_cast<double>(c.wtZ[k]) * difference / apart;
    }
    for (std::size_t k = piece.pairsDown; k < piece.length; ++k)
        pulls[k + 1] = 0.0;
}

// A cell without a reference is pulled towards 0, and so is every cell where the column has none.
template <bool weighted>
[[gnu::always_inline]] inline void pullToReference(const ModelColumn& c, const PieceOfColumn& piece, Piece& pulls) {
    const double* const model = c.model + piece.first;
    const float* const weight = c.wtS + piece.first;
    if (c.reference == nullptr)
        std::copy_n(model, piece.used, pulls.data());
    const std::size_t referenced = c.reference == nullptr ? 0 : piece.used;
    for (std::size_t k = 0; k < referenced; ++k) {
        const double reference = c.reference[piece.first + k];
        pulls[k] = reference > dummyValue ? reference : 0.0;
    }
    for (std::size_t k = 0; k < referenced; ++k)
        pulls[k] = model[k] - pulls[k];
    for (std::size_t k = 0; k < piece.used; ++k) {
        const double pull = static_cast<double>(weight[k]) * pulls[k];
        if constexpr (weighted)
            pulls[k] = pull / static_cast<double>(c.depthWeight[piece.first + k]);
        else
            pulls[k] = pull;
    }
    clearFrom(piece.used, piece.length, pulls);
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

template <bool weighted>
[[gnu::always_inline]] inline void putPull(const ModelColumn& c, const PieceOfColumn& piece, ColumnPull& pull) {
    Piece sums, alongY, alongX, reference;
    std::array<double, columnPiece + 1> alongZ;
    const std::size_t at = piece.first;
    const float* const depthWeight = weighted ? c.depthWeight + at : nullptr;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : piece.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : piece.used;
    if (pairsY > 0)
        pullPairs<weighted>(c.model + at, depthWeight, c.nextY + at, weighted ? c.depthWeightNextY + at : nullptr,
                            c.wtN + at, c.apartY, pairsY, alongY);
    if (pairsX > 0)
        pullPairs<weighted>(c.model + at, depthWeight, c.nextX + at, weighted ? c.depthWeightNextX + at : nullptr,
                            c.wtE + at, c.apartX, pairsX, alongX);
    clearFrom(pairsY, piece.length, alongY);
    clearFrom(pairsX, piece.length, alongX);
    pullPairsDown<weighted>(c, piece, alongZ);
    pullToReference<weighted>(c, piece, reference);
    if (pull.firstRow)
        clearFrom(0, piece.length, sums);
    else
        std::copy_n(pull.out + at, piece.length, sums.data());
    for (std::size_t k = 0; k < piece.length; ++k)
        sums[k] = sums[k] + alongY[k] - pull.alongX[k] + alongX[k] - alongZ[k] + alongZ[k + 1] + reference[k];
    double* const outNextY = pull.outNextY;
    for (std::size_t k = 0, end = outNextY == nullptr ? 0 : piece.length; k < end; ++k)
        outNextY[at + k] = 0.0 - alongY[k];
    std::copy_n(alongX.data(), piece.length, pull.alongX.data());
    combine(pull, piece, sums);
}

[[gnu::always_inline]] inline void putPullInline(const ModelColumn& column, std::size_t first, ColumnPull& pull) {
    const PieceOfColumn piece = pieceFrom(column, first);
    if (column.depthWeight == nullptr)
        putPull<false>(column, piece, pull);
    else
        putPull<true>(column, piece, pull);
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
