#include "run/convergence/data_subspace.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>

namespace voxlith {

namespace {

std::span<const double> directionOf(const DataSubspace& subspace, std::size_t n) {
    return std::span(subspace.directions).subspan(n * subspace.dataSize, subspace.dataSize);
}

std::span<double> imageOf(DataSubspace& subspace, std::size_t n) {
    return std::span(subspace.images).subspan(n * subspace.modelSize, subspace.modelSize);
}

std::span<const double> imageOf(const DataSubspace& subspace, std::size_t n) {
    return std::span(subspace.images).subspan(n * subspace.modelSize, subspace.modelSize);
}

double dot(std::span<const double> a, std::span<const double> b) {
    constexpr std::size_t lanes = 8;
    std::array<double, lanes> sums{};
    std::size_t n = 0;
    for (; n + lanes <= a.size(); n += lanes) {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            sums[lane] += a[n + lane] * b[n + lane];
        }
    }
    double sum = 0.0;
    for (; n < a.size(); ++n) {
        sum += a[n] * b[n];
    }
    for (const double lane : sums) {
        sum += lane;
    }
    return sum;
}

// rest = the part of `residual` that is not within the directions; returns its length. Twice, for rounding.
double splitResidual(std::span<const double> residual, const DataSubspace& subspace, std::span<double> rest) {
    std::copy(residual.begin(), residual.end(), rest.begin());
    for (int round = 0; round < 2; ++round) {
        for (std::size_t k = 0; k < subspace.count; ++k) {
            const std::span<const double> direction = directionOf(subspace, k);
            const double share = dot(direction, rest);
            for (std::size_t n = 0; n < rest.size(); ++n) {
                rest[n] -= share * direction[n];
            }
        }
    }
    return std::sqrt(dot(rest, rest));
}

}  // namespace

DataSubspace makeDataSubspace(std::size_t dataSize, std::size_t modelSize, std::size_t capacity) {
    DataSubspace subspace;
    subspace.dataSize = dataSize;
    subspace.modelSize = modelSize;
    subspace.capacity = capacity;
    subspace.directions.assign(dataSize * capacity, 0.0);
    subspace.images.assign(modelSize * capacity, 0.0);
    subspace.outside.assign(dataSize, 0.0);
    subspace.coefficients.assign(capacity, 0.0);
    return subspace;
}

bool applyTransposed(const InversionProblem& problem, DataOperator& data, std::span<const double> residual,
                     DataSubspace& subspace, std::span<double> out) {
    constexpr double negligible = 1.0e-7;
    if (subspace.capacity == 0) {
        return false;
    }
    const double length = std::sqrt(dot(residual, residual)),
                 outside = splitResidual(residual, subspace, subspace.outside);
    if (outside > negligible * length) {
        if (subspace.count == subspace.capacity) {
            return false;
        }
        const auto direction =
            std::span(subspace.directions).subspan(subspace.count * subspace.dataSize, subspace.dataSize);
        std::transform(subspace.outside.begin(), subspace.outside.end(), direction.begin(),
                       [outside](double value) { return value / outside; });
        applyTransposedJacobian(problem, data, direction, imageOf(subspace, subspace.count));
        ++subspace.count;
    }
    projectResidual(subspace, residual, subspace.coefficients);
    combineImages(subspace, subspace.coefficients, out);
    return true;
}

void projectResidual(const DataSubspace& subspace, std::span<const double> residual, std::span<double> out) {
    for (std::size_t k = 0; k < subspace.count; ++k) {
        out[k] = dot(directionOf(subspace, k), residual);
    }
}

void applyImages(const DataSubspace& subspace, std::span<const double> vector, std::span<double> out) {
    for (std::size_t k = 0; k < subspace.count; ++k) {
        out[k] = dot(imageOf(subspace, k), vector);
    }
}

void combineImages(const DataSubspace& subspace, std::span<const double> coefficients, std::span<double> out) {
    std::fill(out.begin(), out.end(), 0.0);
    for (std::size_t k = 0; k < subspace.count; ++k) {
        const std::span<const double> image = imageOf(subspace, k);
        const double share = coefficients[k];
        for (std::size_t n = 0; n < out.size(); ++n) {
            out[n] += share * image[n];
        }
    }
}

void restoreImages(const InversionProblem& problem, DataOperator& data, std::size_t count, DataSubspace& subspace) {
    subspace.count = count;
    for (std::size_t k = 0; k < count; ++k) {
        applyTransposedJacobian(problem, data, directionOf(subspace, k), imageOf(subspace, k));
    }
}

}  // namespace voxlith
