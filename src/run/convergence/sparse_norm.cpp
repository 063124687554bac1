#include "run/convergence/sparse_norm.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double thresholdShare = 0.05;  // last e over the largest value; by experiment, as the powers and the cooling
constexpr double cooling = 0.7;          // of e from one round to the next
constexpr double smallChange = 0.02;     // of the model in a round, over its largest value
constexpr std::int32_t mostRounds = 60;

bool isCooling(const SparseState& state) {
    return state.threshold[0] > state.lastThreshold[0];
}

double largestOf(std::span<const double> values) {
    double largest = 0.0;
    for (const double value : values) {
        largest = std::max(largest, std::abs(value));
    }
    return largest;
}

// (s + 1)^(p/2 - 1), s = (v/e)^2
double factorOf(double square, double power) {
    return std::pow(square + 1.0, 0.5 * power - 1.0);
}

// Values in physical units over the threshold of their model type: differences from the reference, and from zero.
struct ScaledModel {
    const InversionProblem& problem;
    const SparseState& state;
    std::span<const double> model;

    double value(std::size_t type, std::size_t cell) const {
        const std::span<const float> depthWeight = problem.foldedWeight(0);
        const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[cell]);
        return model[type * problem.mesh.cellCount() + cell] / (weight * state.threshold[type]);
    }
    double reference(std::size_t type, std::size_t cell) const {
        const std::span<const float> depthWeight = problem.foldedWeight(0);
        const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[cell]);
        const double stored = problem.arrays.refModel[type * problem.mesh.cellCount() + cell];
        return stored > dummyValue ? stored / (weight * state.threshold[type]) : value(type, cell);
    }
    double squareAt(std::size_t cell) const {
        double sum = 0.0;
        for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
            const double v = value(type, cell) - reference(type, cell);
            sum += v * v;
        }
        return sum;
    }
    double squareBetween(std::size_t first, std::size_t second) const {
        double sum = 0.0;
        for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
            const double v = value(type, first) - value(type, second);
            sum += v * v;
        }
        return sum;
    }
};

}  // namespace

std::string_view nameOf(ModelNorm norm) {
    return norm == ModelNorm::compact ? "compact" : norm == ModelNorm::blocky ? "blocky" : "smooth";
}

SparsePowers powersOf(ModelNorm norm) {
    switch (norm) {
        case ModelNorm::compact:
            return {0.0, 0.7};
        case ModelNorm::blocky:
            return {1.0, 1.0};
        default:
            return {2.0, 2.0};
    }
}

bool beginSparseNorm(const InversionProblem& problem, double target, SparseState& state) {
    const std::size_t cells = problem.mesh.cellCount();
    state.threshold.fill(1.0);
    state.target = target;
    const ScaledModel scaled{problem, state, std::span(problem.arrays.model).first(problem.modelSize())};
    std::array<double, maxFiles> largest{};
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        for (std::size_t n = 0; n < cells; ++n) {
            largest[type] = std::max(largest[type], std::abs(scaled.value(type, n) - scaled.reference(type, n)));
        }
    }
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        state.threshold[type] = largest[type] > 0.0 ? largest[type] : 1.0;
        state.lastThreshold[type] = thresholdShare * state.threshold[type];
    }
    return target > 0.0 && largestOf(largest) > 0.0;
}

double misfitTolerance(const SparseState& state) {
    constexpr double tolerance = 0.01, toleranceCooling = 0.05;
    return isCooling(state) ? toleranceCooling : tolerance;
}

bool mayAdjust(const SparseState& state) {
    constexpr std::int32_t mostAdjustments = 6, mostCooling = 1;
    return state.adjustments < (isCooling(state) ? mostCooling : mostAdjustments);
}

double sparseAccuracy(const SparseState& state) {
    constexpr double beforeReweighting = 0.03, atEnd = 1.0e-3;
    return state.lastWeights ? atEnd : beforeReweighting;
}

bool adjustTradeoff(SparseState& state, double misfit, double& multiplier) {
    constexpr double usualSlope = 0.7, smallestSlope = 0.3, largestSlope = 2.0, largestChange = 3.0;
    const double distance = misfit > 0.0 ? std::log(misfit / state.target) : 0.0;
    if (!mayAdjust(state) || std::abs(distance) <= 2.0 * std::log1p(misfitTolerance(state))) {
        return false;
    }
    double slope = usualSlope;
    if (state.lastMisfit > 0.0) {
        slope = std::log(misfit / state.lastMisfit) / std::log(multiplier / state.lastMultiplier);
        slope = std::isfinite(slope) ? std::clamp(slope, smallestSlope, largestSlope) : usualSlope;
    }
    state.lastMisfit = misfit;
    state.lastMultiplier = multiplier;
    ++state.adjustments;
    multiplier *= std::clamp(std::exp(-distance / slope), 1.0 / largestChange, largestChange);
    return true;
}

bool finishRound(const InversionProblem& problem, std::span<const double> sparseModel, SparseState& state) {
    double difference = 0.0;
    for (std::size_t n = 0; n < sparseModel.size(); ++n) {
        difference = std::max(difference, std::abs(problem.arrays.model[n] - sparseModel[n]));
    }
    const double largest = largestOf(std::span(problem.arrays.model).first(sparseModel.size()));
    state.change = largest > 0.0 ? difference / largest : 0.0;
    ++state.round;
    state.adjustments = 0;
    state.lastMisfit = 0.0;
    state.settled = !isCooling(state) && state.change < smallChange;
    state.lastWeights = state.settled || state.round >= mostRounds;
    if (state.lastWeights) {
        return false;
    }
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        state.threshold[type] = std::max(cooling * state.threshold[type], state.lastThreshold[type]);
    }
    return true;
}

void reweight(const InversionProblem& problem, const SparsePowers& powers, const SparseState& state,
              const SmoothnessWeights& original, std::span<const double> model, SmoothnessWeights& weights) {
    const MeshGeometry& mesh = problem.mesh;
    assert(model.size() == problem.modelSize() && original.wtS.size() == mesh.cellCount());
    const ScaledModel scaled{problem, state, model};
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto height = static_cast<std::size_t>(mesh.nz), row = height * nx;
    const auto put = [](const std::vector<float>& from, std::size_t n, double factor, std::vector<float>& to) {
        to[n] = static_cast<float>(static_cast<double>(from[n]) * factor);
    };
    for (std::size_t j = 0; j < ny; ++j) {
        for (std::size_t i = 0; i < nx; ++i) {
            for (std::size_t k = 0; k < height; ++k) {
                const std::size_t n = mesh.cellIndex(k, i, j);
                put(original.wtS, n, factorOf(scaled.squareAt(n), powers.reference), weights.wtS);
                if (i + 1 < nx) {
                    put(original.wtE, n, factorOf(scaled.squareBetween(n, n + height), powers.difference), weights.wtE);
                }
                if (j + 1 < ny) {
                    put(original.wtN, n, factorOf(scaled.squareBetween(n, n + row), powers.difference), weights.wtN);
                }
                if (k + 1 < height) {
                    put(original.wtZ, n, factorOf(scaled.squareBetween(n, n + 1), powers.difference), weights.wtZ);
                }
            }
        }
    }
}

}  // namespace voxlith
