// The kernels of column_kernels.h, compiled for each instruction set by simd/compile_kernels.h. Compilers make vector
// code of these loops as long as nothing in them branches.
namespace voxlith::VOXLITH_SET {

namespace {

using Block = std::array<double, columnBlock>;
using Values = std::array<double, columnBlock + 2>;  // of a block, of the cell above it and of the one below

// A block of a column: its cells, those with lateral pairs and a reference term, and those with a pair along z.
struct ColumnPart {
    std::size_t first = 0, length = 0, used = 0, pairsDown = 0;
};

ColumnPart partFrom(const ModelColumn& column, std::size_t first) {
    const std::size_t end = std::min(first + columnBlock, column.height);
    const std::size_t endOfUsed = std::min(end, column.used);
    const std::size_t endOfPairs = std::min(end, column.height - 1);
    return {first, end - first, endOfUsed > first ? endOfUsed - first : 0,
            column.zWidth == nullptr || endOfPairs < first ? 0 : endOfPairs - first};
}

// Prefetches the same cells of the next column: a pass reads more arrays side by side than the hardware prefetcher
// follows.
template <class Value>
void prefetchNextColumn(const Value* column, std::size_t height, const ColumnPart& part) {
    constexpr std::size_t lineLength = 64 / sizeof(Value);
    for (std::size_t k = 0; k < part.length; k += lineLength) {
        __builtin_prefetch(column + height + part.first + k);
    }
}

void prefetchNextColumns(const ModelColumn& c, const ColumnPart& part) {
    for (const float* const weight : {c.wtS, c.wtE, c.wtN, c.wtZ}) {
        prefetchNextColumn(weight, c.height, part);
    }
    if (c.reference != nullptr) {
        prefetchNextColumn(c.reference, c.height, part);
    }
    if (c.nextY != nullptr) {
        prefetchNextColumn(c.nextY, c.height, part);
    }
    if (c.depthWeightNextY != nullptr) {
        prefetchNextColumn(c.depthWeightNextY, c.height, part);
    }
}

// The values of `count` cells of a column from `first` on: the model itself, or its quotients with the depth weights in
// `buffer`.
const double* valuesOf(const double* model, const float* depthWeight, std::size_t first, std::size_t count,
                       Values& buffer) {
    if (count == 0) {
        return model;
    }
    if (depthWeight == nullptr) {
        return model + first;
    }
    for (std::size_t k = 0; k < count; ++k) {
        buffer[k] = model[first + k] / static_cast<double>(depthWeight[first + k]);
    }
    return buffer.data();
}

// Terms that a block does not have are zeros: adding them changes no bit of a sum that began with a 0.
void clearFrom(std::size_t count, std::size_t length, double* terms) {
    for (std::size_t k = count; k < length; ++k) {
        terms[k] = 0.0;
    }
}

void squaredDifferences(const double* values, const double* next, const float* weight, double distance,
                        std::size_t count, Block& terms) {
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - next[k]) / distance;
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

double distanceZ(const double* zWidth, std::size_t first) {
    return (zWidth[first] + zWidth[first + 1]) * 0.5;
}

void squaredDifferencesDown(const double* values, const ModelColumn& c, std::size_t first, std::size_t count,
                            Block& terms) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k) {
        const double slope = (values[k] - values[k + 1]) / distanceZ(c.zWidth, first + k);
        terms[k] = static_cast<double>(weight[k]) * (slope * slope);
    }
}

void divideBy(const float* depthWeight, std::size_t first, std::size_t count, Block& terms) {
    for (std::size_t k = 0, end = depthWeight == nullptr ? 0 : count; k < end; ++k) {
        terms[k] /= static_cast<double>(depthWeight[first + k]);
    }
}

void referenceTerms(const ModelColumn& c, std::size_t first, std::size_t count, Block& terms) {
    const double* const model = c.model + first;
    const double* const reference = c.reference + first;
    const float* const weight = c.wtS + first;
    for (std::size_t k = 0; k < count; ++k) {
        terms[k] = model[k] - reference[k];
    }
    divideBy(c.depthWeight, first, count, terms);
    for (std::size_t k = 0; k < count; ++k) {
        terms[k] = static_cast<double>(weight[k]) * (terms[k] * terms[k]);
    }
    for (std::size_t k = 0; k < count; ++k) {
        terms[k] = reference[k] > dummyValue ? terms[k] : 0.0;
    }
}

// Four chains of additions run side by side, each in its own order.
void addTerms(const Block& reference, const Block& alongY, const Block& alongX, const Block& alongZ, std::size_t length,
              ModelNorms& norms) {
    ModelNorms sums = norms;
    for (std::size_t k = 0; k < length; ++k) {
        sums.reference += reference[k];
        sums.y += alongY[k];
        sums.x += alongX[k];
        sums.z += alongZ[k];
    }
    norms = sums;
}

void addPartNorms(const ModelColumn& c, const ColumnPart& part, ModelNorms& norms) {
    Block reference, alongY, alongX, alongZ;
    Values own, neighbour;
    prefetchNextColumns(c, part);
    const std::size_t first = part.first;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : part.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : part.used;
    const double* const values =
        valuesOf(c.model, c.depthWeight, first, std::max(part.length, part.pairsDown + 1), own);
    referenceTerms(c, first, part.used, reference);
    squaredDifferences(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, neighbour), c.wtN + first,
                       c.distanceY, pairsY, alongY);
    squaredDifferences(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, neighbour), c.wtE + first,
                       c.distanceX, pairsX, alongX);
    squaredDifferencesDown(values, c, first, part.pairsDown, alongZ);
    clearFrom(part.used, part.length, reference.data());
    clearFrom(pairsY, part.length, alongY.data());
    clearFrom(pairsX, part.length, alongX.data());
    clearFrom(part.pairsDown, part.length, alongZ.data());
    addTerms(reference, alongY, alongX, alongZ, part.length, norms);
}

void addNorms(const ModelColumn& column, ModelNorms& norms) {
    for (std::size_t first = 0; first < column.height; first += columnBlock) {
        addPartNorms(column, partFrom(column, first), norms);
    }
}

void differenceGradient(const double* values, const double* next, const float* weight, double distance,
                        std::size_t count, Block& gradients) {
    for (std::size_t k = 0; k < count; ++k) {
        gradients[k] = static_cast<double>(weight[k]) * (values[k] - next[k]) / distance;
    }
}

void differenceGradientDown(const double* values, const ModelColumn& c, std::size_t first, std::size_t count,
                            double* gradients) {
    const float* const weight = c.wtZ + first;
    for (std::size_t k = 0; k < count; ++k) {
        gradients[k] = static_cast<double>(weight[k]) * (values[k] - values[k + 1]) / distanceZ(c.zWidth, first + k);
    }
}

// Compatibility: the reference of a cell without one is 0, and so is that of every cell where the column has none.
void referenceGradient(const ModelColumn& c, const float* referenceWeight, const ColumnPart& part, Block& gradients) {
    const double* const model = c.model + part.first;
    const float* const weight = c.wtS + part.first;
    clearFrom(0, part.length, gradients.data());
    for (std::size_t k = 0, end = c.reference == nullptr ? 0 : part.used; k < end; ++k) {
        const double reference = c.reference[part.first + k];
        gradients[k] = reference > dummyValue ? reference : 0.0;
    }
    for (std::size_t k = 0; k < part.used; ++k) {
        gradients[k] = static_cast<double>(weight[k]) * (model[k] - gradients[k]);
    }
    divideBy(referenceWeight, part.first, part.used, gradients);
}

// Trade-off parameter times model gradient, plus the mean of the data gradient; fixed cells do not move.
void combine(const ColumnGradient& gradient, const ColumnPart& part, Block& sums) {
    const double multiplier = gradient.multiplier, nData = gradient.nData;
    const double* const adjoint = gradient.adjoint + part.first;
    const std::int32_t* const fixed = gradient.fixedCell + part.first;
    double* const out = gradient.out;
    for (std::size_t k = 0; k < part.length; ++k) {
        sums[k] = multiplier * sums[k] + adjoint[k] / nData;
    }
    for (std::size_t k = 0; k < part.length; ++k) {
        out[k] = fixed[k] != 0 ? 0.0 : sums[k];
    }
}

void addGradient(const ModelColumn& c, std::size_t first, ColumnGradient& gradient) {
    const ColumnPart part = partFrom(c, first);
    prefetchNextColumns(c, part);
    prefetchNextColumn(gradient.adjoint, c.height, part);
    prefetchNextColumn(gradient.fixedCell, c.height, part);
    Block sums, alongY, alongX, reference;
    std::array<double, columnBlock + 1> alongZ;  // from the pair of the block's first cell and the one above
    Values own, neighbour;
    const std::size_t pairsY = c.nextY == nullptr ? 0 : part.used;
    const std::size_t pairsX = c.nextX == nullptr ? 0 : part.used;
    const std::size_t above = first > 0 ? 1 : 0;
    const std::size_t pairsZ = c.zWidth == nullptr ? 0 : part.pairsDown + above;
    const double* const top =
        valuesOf(c.model, c.depthWeight, first - above, std::max(part.length + above, pairsZ + 1), own);
    const double* const values = top + above;
    differenceGradient(values, valuesOf(c.nextY, c.depthWeightNextY, first, pairsY, neighbour), c.wtN + first,
                       c.distanceY, pairsY, alongY);
    differenceGradient(values, valuesOf(c.nextX, c.depthWeightNextX, first, pairsX, neighbour), c.wtE + first,
                       c.distanceX, pairsX, alongX);
    alongZ[0] = 0.0;
    differenceGradientDown(top, c, first - above, pairsZ, alongZ.data() + 1 - above);
    referenceGradient(c, gradient.referenceWeight, part, reference);
    clearFrom(pairsY, part.length, alongY.data());
    clearFrom(pairsX, part.length, alongX.data());
    clearFrom(part.pairsDown, part.length, alongZ.data() + 1);
    if (gradient.firstRow) {
        clearFrom(0, part.length, sums.data());
    } else {
        std::copy_n(gradient.out, part.length, sums.data());
    }
    // A pair adds its gradient to its first cell and subtracts it from the second.
    for (std::size_t k = 0; k < part.length; ++k) {
        sums[k] = sums[k] + alongY[k] - gradient.alongX[k] + alongX[k] - alongZ[k] + alongZ[k + 1] + reference[k];
    }
    double* const outNextY = gradient.outNextY;
    for (std::size_t k = 0, end = outNextY == nullptr ? 0 : part.length; k < end; ++k) {
        outNextY[first + k] = 0.0 - alongY[k];
    }
    std::copy_n(alongX.data(), part.length, gradient.alongX.data());
    combine(gradient, part, sums);
}

constexpr ColumnKernels kernels{addNorms, addGradient};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
