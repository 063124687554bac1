#include "optim/lbfgsb/bounds.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>

#include "base/workers.h"

namespace voxlith {

bool argumentsAreValid(const BoxProblem& problem, double factr, TaskWord& task) {
    bool valid = true;
    const auto refuse = [&](std::string_view reason) {
        setTask(task, reason);
        valid = false;
    };
    if (problem.n <= 0) {
        refuse("ERROR: N .LE. 0");
    }
    if (problem.m <= 0) {
        refuse("ERROR: M .LE. 0");
    }
    if (factr < 0.0) {
        refuse("ERROR: FACTR .LT. 0");
    }
    const std::size_t n = problem.n > 0 ? static_cast<std::size_t>(problem.n) : 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (problem.nbd[i] < 0 || problem.nbd[i] > 5) {
            refuse("ERROR: INVALID NBD");
        }
        if (problem.nbd[i] == 3 && problem.fixedFlag[i] == 0 && problem.l[i] > problem.u[i]) {
            refuse("ERROR: NO FEASIBLE SOLUTION");
        }
    }
    return valid;
}

BoxKind setUpVariables(const BoxProblem& problem, std::span<double> x, std::span<std::int32_t> status) {
    assert(x.size() == static_cast<std::size_t>(problem.n) && status.size() == x.size());
    BoxKind kind;
    kind.boxed = true;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = problem.nbd[i];
        const bool fixed = problem.fixedFlag[i] != 0;
        if (!fixed && hasLowerBound(code) && x[i] < problem.l[i]) {
            x[i] = problem.l[i];
            kind.startProjected = true;
        } else if (!fixed && hasUpperBound(code) && x[i] > problem.u[i]) {
            x[i] = problem.u[i];
            kind.startProjected = true;
        }
        if (code != 3) {
            kind.boxed = false;
        }
        if (code != 0 || fixed) {
            kind.constrained = true;
        }
        if (fixed || (code == 3 && problem.u[i] - problem.l[i] <= 0.0)) {
            status[i] = alwaysFixed;
        } else {
            status[i] = code == 0 ? unbounded : freeBetweenBounds;
        }
    }
    return kind;
}

namespace {

constexpr std::array<std::int32_t, blockLength> noneFixed{};

BoundsBlock boundsOfBlock(const BoxProblem& problem, std::size_t first, std::size_t length) {
    const bool uniform = !problem.uniform.empty() && problem.uniform[first / blockLength] != 0;
    return {problem.nbd.data() + first,
            uniform ? noneFixed.data() : problem.fixedFlag.data() + first,
            problem.l.data() + first,
            problem.u.data() + first,
            length,
            uniform};
}

bool isUniform(const BoundsBlock& bounds) {
    for (std::size_t i = 0; i < bounds.length; ++i) {
        if (bounds.fixed[i] != 0 || bounds.code[i] != bounds.code[0]) {
            return false;
        }
    }
    return true;
}

// Largest absolute value so far, lane by lane; NaN if one value is. Comparisons alone would lose a NaN.
struct LargestValues {
    static constexpr std::size_t laneCount = 8;
    double lane[laneCount] = {};
    double nonFinite[laneCount] = {};  // sums of zeros and of values that are infinite or NaN

    void add(const double* values, std::size_t length) {
        std::size_t i = 0;
        for (; i + laneCount <= length; i += laneCount) {
            for (std::size_t k = 0; k < laneCount; ++k) {
                addToLane(k, values[i + k]);
            }
        }
        for (std::size_t k = 0; i < length; ++i, ++k) {
            addToLane(k, values[i]);
        }
    }
    void addToLane(std::size_t k, double value) {
        const double size = std::abs(value);
        lane[k] = size > lane[k] ? size : lane[k];
        nonFinite[k] += size < std::numeric_limits<double>::infinity() ? 0.0 : size;
    }
    double largest() const {
        double result = 0.0;
        for (std::size_t k = 0; k < laneCount; ++k) {
            if (std::isnan(nonFinite[k])) {
                return nonFinite[k];
            }
            result = std::max(result, lane[k]);
        }
        return result;
    }
};

}  // namespace

void findUniformBlocks(const BoxProblem& problem, std::span<std::int32_t> uniform) {
    BoxProblem unknown = problem;
    unknown.uniform = {};
    const auto n = static_cast<std::size_t>(problem.n);
    for (std::size_t first = 0; first < n; first += blockLength) {
        const std::size_t length = std::min(blockLength, n - first);
        uniform[first / blockLength] = isUniform(boundsOfBlock(unknown, first, length)) ? 1 : 0;
    }
}

double projectedGradientNorm(const BoxProblem& problem, std::span<const double> x, std::span<const double> g,
                             double enough) {
    assert(x.size() == g.size() && x.size() == static_cast<std::size_t>(problem.n));
    LargestValues values;
    BoxBlock box;
    std::array<double, blockLength> projected;
    for (std::size_t first = 0; first < x.size() && !(values.largest() > enough); first += blockLength) {
        const std::size_t length = std::min(blockLength, x.size() - first);
        const BoundsBlock bounds = boundsOfBlock(problem, first, length);
        formBox(bounds, box);
        boxKernels().projectGradient(bounds, box, x.data() + first, g.data() + first, projected.data());
        values.add(projected.data(), length);
    }
    return values.largest();
}

double gradientNorm(std::span<const double> g, double enough) {
    LargestValues values;
    for (std::size_t first = 0; first < g.size() && !(values.largest() > enough); first += blockLength) {
        values.add(g.data() + first, std::min(blockLength, g.size() - first));
    }
    return values.largest();
}

void boxOfBlock(const BoxProblem& problem, std::size_t first, std::size_t length, BoxBlock& box) {
    assert(first % blockLength == 0 && length <= blockLength);
    formBox(boundsOfBlock(problem, first, length), box);
}

void clampBlock(const BoxBlock& box, std::size_t length, double* x) {
    for (std::size_t i = 0; i < length; ++i) {
        const double raised = x[i] < box.lower[i] ? box.lower[i] : x[i];
        x[i] = raised > box.upper[i] ? box.upper[i] : raised;
    }
}

void clampToBounds(const BoxProblem& problem, std::span<double> x) {
    BoxBlock box;
    for (std::size_t first = 0; first < x.size(); first += blockLength) {
        const std::size_t length = std::min(blockLength, x.size() - first);
        boxOfBlock(problem, first, length, box);
        clampBlock(box, length, x.data() + first);
    }
}

void shortenStep(const BoxBlock& box, std::size_t first, std::size_t length, const double* x, const double* d,
                 StepToBound& step) {
    if (!boxKernels().leavesBox(box, length, x, d, step.length)) {
        return;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const bool downwards = d[i] < 0.0;
        const double distance = downwards ? box.lower[i] - x[i] : box.upper[i] - x[i];
        const double travel = d[i] * step.length;
        if (downwards ? travel < distance : d[i] > 0.0 && travel > distance) {
            // A variable on its bound, or outside, does not move. Of several that meet their bounds at the same step
            // the first one counts.
            const double reach = (downwards ? distance >= 0.0 : distance <= 0.0) ? 0.0 : distance / d[i];
            if (reach < step.length) {
                step.length = reach;
                step.variable = first + i;
                step.shortened = true;
            }
        }
    }
}

void shortenStepAsBlock(const BoxProblem& problem, std::size_t first, std::size_t length, const double* x,
                        const double* d, const StepToBound& ofBlock, StepToBound& step) {
    constexpr double surelyShorter = 1.0 - 1e-12;
    if (!ofBlock.shortened || step.length < surelyShorter * ofBlock.length) {
        return;
    }
    BoxBlock box;
    boxOfBlock(problem, first, length, box);
    shortenStep(box, first, length, x, d, step);
}

double largestAllowedStep(const BoxProblem& problem, std::span<const double> d, double limit) {
    assert(d.size() <= problem.maxStep.size());
    for (std::size_t i = 0; i < d.size(); ++i) {
        const double length = std::abs(d[i]);
        if (problem.maxStep[i] > 0.0 && length > 0.0 && length * limit > problem.maxStep[i]) {
            limit = problem.maxStep[i] / length;
        }
    }
    return limit;
}

}  // namespace voxlith
