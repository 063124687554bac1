#include "run/convergence/norm_operator.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <vector>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::size_t blockLength = 256;  // cells of a column at a time

double inverseSquare(const std::vector<double>& width, std::size_t first) {
    const double distance = (width[first] + width[first + 1]) * 0.5;
    return 1.0 / (distance * distance);
}

// sum[k] += weight[k] * factor * (own[k] - other[k])
void addFlow(const double* own, const double* other, const float* weight, double factor, std::size_t count,
             double* sum) {
    for (std::size_t k = 0; k < count; ++k) {
        sum[k] += static_cast<double>(weight[k]) * factor * (own[k] - other[k]);
    }
}

struct ColumnPosition {
    std::size_t i, j, first, end;  // cells first up to end of column (i, j)
};

void addLateral(const Regularisation& r, std::span<const double> model, const ColumnPosition& at, double* sum) {
    const MeshGeometry& mesh = r.mesh;
    const auto height = static_cast<std::size_t>(mesh.nz), nx = static_cast<std::size_t>(mesh.nx);
    const std::size_t end = std::min(at.end, static_cast<std::size_t>(mesh.nzl));
    if (end <= at.first) {
        return;
    }
    const std::size_t cell = mesh.cellIndex(at.first, at.i, at.j), row = height * nx, count = end - at.first;
    const double* const own = model.data() + cell;
    if (at.j > 0) {
        addFlow(own, own - row, r.weights.wtN.data() + cell - row, inverseSquare(mesh.yWidth, at.j - 1), count, sum);
    }
    if (at.j + 1 < static_cast<std::size_t>(mesh.ny)) {
        addFlow(own, own + row, r.weights.wtN.data() + cell, inverseSquare(mesh.yWidth, at.j), count, sum);
    }
    if (at.i > 0) {
        addFlow(own, own - height, r.weights.wtE.data() + cell - height, inverseSquare(mesh.xWidth, at.i - 1), count,
                sum);
    }
    if (at.i + 1 < nx) {
        addFlow(own, own + height, r.weights.wtE.data() + cell, inverseSquare(mesh.xWidth, at.i), count, sum);
    }
}

void addVertical(const Regularisation& r, std::span<const double> model, const ColumnPosition& at,
                 std::span<const double> inverseSquares, double* sum) {
    const auto height = static_cast<std::size_t>(r.mesh.nz);
    const std::size_t top = r.mesh.cellIndex(0, at.i, at.j);
    const double* const own = model.data() + top;
    const float* const weight = r.weights.wtZ.data() + top;
    for (std::size_t k = std::max<std::size_t>(at.first, 1); k < at.end; ++k) {
        sum[k - at.first] += static_cast<double>(weight[k - 1]) * inverseSquares[k - 1] * (own[k] - own[k - 1]);
    }
    for (std::size_t k = at.first; k < std::min(at.end, height - 1); ++k) {
        sum[k - at.first] += static_cast<double>(weight[k]) * inverseSquares[k] * (own[k] - own[k + 1]);
    }
}

void addReference(const Regularisation& r, GradientMode mode, std::span<const double> model,
                  std::span<const double> refModel, const ColumnPosition& at, double* sum) {
    const std::size_t end = std::min(at.end, static_cast<std::size_t>(r.mesh.nzl));
    for (std::size_t k = at.first; k < end; ++k) {
        const std::size_t cell = r.mesh.cellIndex(k, at.i, at.j);
        const double depthWeight = r.depthWeight.empty() ? 1.0 : static_cast<double>(r.depthWeight[cell]);
        const double reference = mode == GradientMode::gradient ? refModel[cell] / depthWeight : 0.0;
        const double weight = refModel[cell] > dummyValue ? static_cast<double>(r.weights.wtS[cell]) : 0.0;
        sum[k - at.first] += weight > 0.0 ? weight * (model[cell] - reference) : 0.0;
    }
}

}  // namespace

void addNormProduct(const Regularisation& regularisation, GradientMode mode, std::span<const double> vector,
                    std::span<const double> refModel, double scale, std::span<double> scaled, std::span<double> out) {
    const MeshGeometry& mesh = regularisation.mesh;
    const std::size_t cells = mesh.cellCount();
    assert(vector.size() == cells && refModel.size() == cells && scaled.size() == cells && out.size() == cells);
    const std::span<const float> depthWeight = regularisation.depthWeight;
    for (std::size_t n = 0; n < cells; ++n) {
        scaled[n] = depthWeight.empty() ? vector[n] : vector[n] / static_cast<double>(depthWeight[n]);
    }
    const auto height = static_cast<std::size_t>(mesh.nz);
    std::vector<double> inverseSquares(height, 0.0);
    for (std::size_t k = 0; k + 1 < height; ++k) {
        inverseSquares[k] = inverseSquare(mesh.zWidth, k);
    }
    for (std::size_t j = 0; j < static_cast<std::size_t>(mesh.ny); ++j) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(mesh.nx); ++i) {
            for (std::size_t first = 0; first < height; first += blockLength) {
                const ColumnPosition at{i, j, first, std::min(first + blockLength, height)};
                std::array<double, blockLength> sum{};
                addLateral(regularisation, scaled, at, sum.data());
                if (regularisation.vertical) {
                    addVertical(regularisation, scaled, at, inverseSquares, sum.data());
                }
                addReference(regularisation, mode, scaled, refModel, at, sum.data());
                const std::size_t cell = mesh.cellIndex(first, i, j);
                for (std::size_t k = 0; k < at.end - first; ++k) {
                    const double value = scale * sum[k];
                    out[cell + k] += depthWeight.empty() ? value : value / static_cast<double>(depthWeight[cell + k]);
                }
            }
        }
    }
}

}  // namespace voxlith
