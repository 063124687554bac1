// The parts of the regularisation that visit pair by pair: the exact derivative, and the diagonals. Axis by axis, each
// cell receives its terms in the order y, x, z.
#include <array>
#include <cassert>
#include <cstddef>
#include <vector>

#include "inversion/regularisation.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

enum class Axis { y, x, z };

constexpr std::array axes{Axis::y, Axis::x, Axis::z};

const std::vector<float>& pairWeights(const SmoothnessWeights& weights, Axis axis) {
    return axis == Axis::y ? weights.wtN : axis == Axis::x ? weights.wtE : weights.wtZ;
}

// Calls visit(first, second, h) for the pairs of an axis, in the order of their first cells. Pairs along x and y count
// down to `layers`.
template <class Visit>
void visitPairs(const MeshGeometry& mesh, Axis axis, std::size_t layers, const Visit& visit) {
    const std::size_t alongY = axis == Axis::y ? 1 : 0, alongX = axis == Axis::x ? 1 : 0;
    const std::size_t alongZ = axis == Axis::z ? 1 : 0;
    const std::size_t stride = mesh.cellIndex(alongZ, alongX, alongY);
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const std::size_t height = axis == Axis::z ? static_cast<std::size_t>(mesh.nz) : layers;
    const auto distance = [](const std::vector<double>& width, std::size_t n) {
        return (width[n] + width[n + 1]) * 0.5;
    };
    for (std::size_t j = 0; j + alongY < ny; ++j) {
        for (std::size_t i = 0; i + alongX < nx; ++i) {
            const double lateral = axis == Axis::y   ? distance(mesh.yWidth, j)
                                   : axis == Axis::x ? distance(mesh.xWidth, i)
                                                     : 0.0;
            for (std::size_t k = 0; k + alongZ < height; ++k) {
                const std::size_t first = mesh.cellIndex(k, i, j);
                visit(first, first + stride, axis == Axis::z ? distance(mesh.zWidth, k) : lateral);
            }
        }
    }
}

// The pairs that the norm has.
template <class Visit>
void visitNormPairs(const Regularisation& regularisation, const Visit& visit) {
    const auto layers = static_cast<std::size_t>(regularisation.mesh.nzl);
    for (const Axis axis : axes) {
        if (axis == Axis::z && !regularisation.vertical) {
            continue;
        }
        const std::vector<float>& weights = pairWeights(regularisation.weights, axis);
        visitPairs(regularisation.mesh, axis, layers, [&](std::size_t first, std::size_t second, double h) {
            visit(first, second, static_cast<double>(weights[first]), h);
        });
    }
}

// Calls visit(cell) for the cells that may have a reference term.
template <class Visit>
void visitReferenceCells(const MeshGeometry& mesh, const Visit& visit) {
    const auto height = static_cast<std::size_t>(mesh.nz), layers = static_cast<std::size_t>(mesh.nzl);
    for (std::size_t column = 0; column < mesh.cellCount(); column += height) {
        for (std::size_t cell = column; cell < column + layers; ++cell) {
            visit(cell);
        }
    }
}

double depthWeightAt(const Regularisation& regularisation, std::size_t cell) {
    return regularisation.depthWeight.empty() ? 1.0 : static_cast<double>(regularisation.depthWeight[cell]);
}

float weightOverDepthWeightSquared(float weight, std::span<const float> depthWeight, std::size_t cell) {
    if (depthWeight.empty()) {
        return weight;
    }
    return weight / (depthWeight[cell] * depthWeight[cell]);
}

}  // namespace

void addNormGradient(const Regularisation& regularisation, GradientMode mode, std::span<const double> vector,
                     std::span<const double> refModel, double scale, std::span<double> out) {
    assert(vector.size() == regularisation.mesh.cellCount() && refModel.size() == vector.size());
    assert(out.size() == vector.size() && out.data() != vector.data());
    visitNormPairs(regularisation, [&](std::size_t first, std::size_t second, double weight, double h) {
        const double weightFirst = depthWeightAt(regularisation, first);
        const double weightSecond = depthWeightAt(regularisation, second);
        const double slope = vector[first] / weightFirst - vector[second] / weightSecond;
        const double flow = scale * weight * slope / (h * h);
        out[first] += flow / weightFirst;
        out[second] -= flow / weightSecond;
    });
    visitReferenceCells(regularisation.mesh, [&](std::size_t cell) {
        if (!(refModel[cell] > dummyValue)) {
            return;
        }
        const double depthWeight = depthWeightAt(regularisation, cell);
        const double difference = mode == GradientMode::gradient ? vector[cell] - refModel[cell] : vector[cell];
        const auto weight = static_cast<double>(regularisation.weights.wtS[cell]);
        out[cell] += scale * weight * difference / (depthWeight * depthWeight);
    });
}

void addNormDiagonal(const Regularisation& regularisation, NormForm form, std::span<const double> refModel,
                     double scale, std::span<double> out) {
    const bool exact = form == NormForm::exact;
    assert(out.size() == regularisation.mesh.cellCount() && (!exact || refModel.size() == out.size()));
    // The divisor of a term of one cell: W twice or once.
    const auto divisor = [&](std::size_t cell) {
        const double depthWeight = depthWeightAt(regularisation, cell);
        return exact ? depthWeight * depthWeight : depthWeight;
    };
    visitNormPairs(regularisation, [&](std::size_t first, std::size_t second, double weight, double h) {
        const double term = scale * weight / (exact ? h * h : h);
        out[first] += term / divisor(first);
        out[second] += term / divisor(second);
    });
    visitReferenceCells(regularisation.mesh, [&](std::size_t cell) {
        if (!exact || refModel[cell] > dummyValue) {
            out[cell] += scale * static_cast<double>(regularisation.weights.wtS[cell]) / divisor(cell);
        }
    });
}

void addPreconditionerDiagonal(const Regularisation& regularisation, std::span<float> diagonal) {
    const MeshGeometry& mesh = regularisation.mesh;
    assert(diagonal.size() == mesh.cellCount());
    for (std::size_t cell = 0; cell < diagonal.size(); ++cell) {
        diagonal[cell] +=
            weightOverDepthWeightSquared(regularisation.weights.wtS[cell], regularisation.depthWeight, cell);
    }
    // Compatibility: all axes, also in surface styles, and the depth weight of the first cell for both.
    for (const Axis axis : axes) {
        const std::vector<float>& weights = pairWeights(regularisation.weights, axis);
        visitPairs(mesh, axis, static_cast<std::size_t>(mesh.nz), [&](std::size_t first, std::size_t second, double) {
            const float term = weightOverDepthWeightSquared(weights[first], regularisation.depthWeight, first);
            diagonal[first] += term;
            diagonal[second] += term;
        });
    }
}

}  // namespace voxlith
