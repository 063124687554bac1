#include "optim/bounds.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace voxlith {

bool argumentsAreValid(const BoxProblem& problem, double factr, TaskWord& task) {
    bool valid = true;
    const auto refuse = [&](std::string_view reason) {
        setTask(task, reason);
        valid = false;
    };
    if (problem.n <= 0)
        refuse("ERROR: N .LE. 0");
    if (problem.m <= 0)
        refuse("ERROR: M .LE. 0");
    if (factr < 0.0)
        refuse("ERROR: FACTR .LT. 0");
    const std::size_t n = problem.n > 0 ? static_cast<std::size_t>(problem.n) : 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (problem.nbd[i] < 0 || problem.nbd[i] > 5)
            refuse("ERROR: INVALID NBD");
        if (problem.nbd[i] == 3 && problem.fixedFlag[i] == 0 && problem.l[i] > problem.u[i])
            refuse("ERROR: NO FEASIBLE SOLUTION");
    }
    return valid;
}

BoxKind setUpVariables(const BoxProblem& problem, std::span<double> x, std::span<std::int32_t> status) {
    BoxKind kind;
    kind.boxed = true;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = problem.nbd[i];
        const bool held = problem.fixedFlag[i] != 0;
        if (!held && hasLowerBound(code) && x[i] < problem.l[i]) {
            x[i] = problem.l[i];
            kind.startProjected = true;
        } else if (!held && hasUpperBound(code) && x[i] > problem.u[i]) {
            x[i] = problem.u[i];
            kind.startProjected = true;
        }
        if (code != 3)
            kind.boxed = false;
        if (code != 0 || held)
            kind.constrained = true;
        if (held || (code == 3 && problem.u[i] - problem.l[i] <= 0.0))
            status[i] = alwaysFixed;
        else
            status[i] = code == 0 ? unbounded : freeBetweenBounds;
    }
    return kind;
}

double projectedGradientNorm(const BoxProblem& problem, std::span<const double> x, std::span<const double> g) {
    double norm = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = problem.nbd[i];
        double component = g[i];
        if (problem.fixedFlag[i] == 1)
            component = 0.0;
        else if (problem.fixedFlag[i] == 0 && component < 0.0 && hasUpperBound(code))
            component = std::max(x[i] - problem.u[i], component);
        else if (problem.fixedFlag[i] == 0 && component >= 0.0 && hasLowerBound(code))
            component = std::min(x[i] - problem.l[i], component);
        if (!(std::abs(component) <= norm)) {
            norm = std::abs(component);
            if (std::isnan(norm))
                return norm;
        }
    }
    return norm;
}

void clampToBounds(const BoxProblem& problem, std::span<double> x) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (problem.fixedFlag[i] != 0)
            continue;
        const std::int32_t code = problem.nbd[i];
        if (hasLowerBound(code) && x[i] < problem.l[i])
            x[i] = problem.l[i];
        if (hasUpperBound(code) && x[i] > problem.u[i])
            x[i] = problem.u[i];
    }
}

double largestFeasibleStep(const BoxProblem& problem, std::span<const double> x, std::span<const double> d,
                           double limit) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = problem.nbd[i];
        if (d[i] < 0.0 && hasLowerBound(code)) {
            const double room = problem.l[i] - x[i];
            if (room >= 0.0)
                limit = 0.0;
            else if (d[i] * limit < room)
                limit = room / d[i];
        } else if (d[i] > 0.0 && hasUpperBound(code)) {
            const double room = problem.u[i] - x[i];
            if (room <= 0.0)
                limit = 0.0;
            else if (d[i] * limit > room)
                limit = room / d[i];
        }
    }
    return limit;
}

double largestAllowedStep(const BoxProblem& problem, std::span<const double> d, double limit) {
    for (std::size_t i = 0; i < d.size(); ++i) {
        const double length = std::abs(d[i]);
        if (problem.maxStep[i] > 0.0 && length > 0.0 && length * limit > problem.maxStep[i])
            limit = problem.maxStep[i] / length;
    }
    return limit;
}

}  // namespace voxlith
