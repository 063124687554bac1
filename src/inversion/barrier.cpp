#include "inversion/barrier.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// Columns of `height` values, of which the first `used` count.
struct Columns {
    std::size_t count = 0, height = 0, used = 0;
};

Columns columnsOf(const MeshGeometry& mesh, std::span<const double> model) {
    const auto height = static_cast<std::size_t>(mesh.nz);
    return {height == 0 ? 0 : model.size() / height, height, static_cast<std::size_t>(mesh.nzl)};
}

double logarithmicSum(const Barrier& barrier, const Columns& columns, std::span<const double> model) {
    double sum = 0.0;
    for (std::size_t column = 0; column < columns.count; ++column) {
        const double* x = model.data() + column * columns.height;
        for (std::size_t k = 0; k < columns.used; ++k) {
            const double share = x[k] / barrier.barrierLimit;
            if (share > 0.0 && share < 1.0) {
                sum += -2.0 * barrier.barrierWeight * std::log(share);
            }
        }
    }
    return sum;
}

double rationalSum(const Barrier& barrier, const Columns& columns, std::span<const double> model) {
    double sum = 0.0;
    for (std::size_t column = 0; column < columns.count; ++column) {
        const double* x = model.data() + column * columns.height;
        for (std::size_t k = 0; k < columns.used; ++k) {
            if (isValid(x[k])) {
                sum += x[k] * x[k] / (x[k] * x[k] + barrier.barrierWeight);
            }
        }
    }
    return sum;
}

double largestValue(const MeshGeometry& mesh, std::span<const double> model) {
    const Columns columns = columnsOf(mesh, model);
    double largest = 0.0;
    for (std::size_t column = 0; column < columns.count; ++column) {
        for (std::size_t k = 0; k < columns.used; ++k) {
            largest = std::max(largest, model[column * columns.height + k]);
        }
    }
    return largest;
}

}  // namespace

double calcBarrier(Positivity positivity, const Barrier& barrier, const MeshGeometry& mesh,
                   std::span<const double> model) {
    if (!(barrier.barrierWeight > 0.0)) {
        return 0.0;
    }
    const Columns columns = columnsOf(mesh, model);
    // Compatibility: the sum over all model types is divided by the cells of one.
    const double cells = static_cast<double>(mesh.nx) * mesh.ny * mesh.nzl;
    const double sum =
        isStrict(positivity) ? logarithmicSum(barrier, columns, model) : rationalSum(barrier, columns, model);
    return sum / cells;
}

Barrier startBarrier(Positivity positivity, const MeshGeometry& mesh, std::span<const double> model) {
    // Single-precision constants: their real64 values are part of the result.
    constexpr auto startWeight = static_cast<double>(0.2F);
    constexpr auto smallestLimit = static_cast<double>(0.001F);
    if (!isStrict(positivity)) {
        return {};
    }
    return {startWeight, std::max(largestValue(mesh, model) / 3.0, smallestLimit)};
}

double updateBarrier(Positivity positivity, Barrier& barrier, const MeshGeometry& mesh, std::span<const double> model,
                     double misfit) {
    constexpr auto decrease = static_cast<double>(0.9F);
    constexpr auto raiseLimitAbove = static_cast<double>(0.1F);
    const double norm = calcBarrier(positivity, barrier, mesh, model);
    // Beta falls with the iterations; a barrier that outweighs the misfit is reduced to half of it at once.
    if (2.0 * barrier.barrierWeight * norm > misfit) {
        barrier.barrierWeight = 0.5 * misfit / norm;
    } else {
        barrier.barrierWeight = decrease * barrier.barrierWeight;
    }
    const double largest = largestValue(mesh, model);
    // u stays well above the model, so that the barrier acts on all cells.
    if (largest > raiseLimitAbove) {
        barrier.barrierLimit = 10.0 * largest;
    }
    return calcBarrier(positivity, barrier, mesh, model);
}

}  // namespace voxlith
