#include "run/convergence/minimum_distance.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

double bestTangentDecrease(double gradient, double curvature, double longest) {
    // max over 0 <= t <= longest of 2 gradient t - curvature t^2, gradient > 0
    const double best = curvature > 0.0 ? gradient / curvature : infinite;
    const double t = std::min(best, longest);
    return t < infinite ? 2.0 * gradient * t - curvature * t * t : infinite;
}

}  // namespace

double largestPossibleDecrease(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    const std::size_t cells = problem.mesh.cellCount(), height = static_cast<std::size_t>(problem.mesh.nz);
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    double sum = 0.0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        if (problem.bounds.fixedCell[n] != 0 || work.gradient[n] == 0.0) {
            continue;
        }
        const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n % cells]);
        const bool hasReference =
            n % height < static_cast<std::size_t>(problem.mesh.nzl) && problem.arrays.refModel[n] > dummyValue;
        const double curvature =
            hasReference
                ? problem.options.multiplier * static_cast<double>(problem.weights.wtS[n % cells]) / (weight * weight)
                : 0.0;
        const double longest = work.gradient[n] > 0.0 ? model[n] - work.lower[n] : work.upper[n] - model[n];
        sum += bestTangentDecrease(std::abs(work.gradient[n]), curvature, longest);
    }
    return sum;
}

}  // namespace voxlith
