#include "optim/plis/plis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <type_traits>

#include "optim/plis/plis_bounds.h"
#include "optim/plis/plis_constants.h"
#include "optim/plis/plis_kernels.h"
#include "optim/plis/plis_line_search.h"
#include "optim/plis/plis_update.h"

namespace voxlith {

namespace plis {

namespace {

static_assert(std::is_trivially_copyable_v<PlisState>);

constexpr int initialise = -1;
constexpr int iterationReady = 0;
constexpr int trialReady = 3;

// The arguments of one call, and the parts of the workspace.
struct Call {
    Box box;
    std::span<double> x, g;
    double& f;
    std::span<double> s, xo, go, shiftedStep;
    std::span<double> lowRank;
    std::span<double> gradProjection, stepProjection;
    int& state;
    int& stopCode;
    PlisState& saved;
};

void clearState(int method, int n, int nb, PlisState& saved) {
    saved = PlisState{};
    saved.method = method > 0 ? method : 2;
    saved.boundSwitch = nb > 0 ? 2 : 0;
    saved.stepMax = hugeValue;
    saved.largestStep = hugeValue;
    saved.lastRestartIteration = -restartFactor * n;
}

void countEvaluation(PlisState& saved) {
    ++saved.valueCount;
    ++saved.gradientCount;
}

void startRun(const Call& call) {
    call.f = valueFloor;
    if (call.saved.boundSwitch > 0) {
        startBounds(call.box, call.x);
        call.saved.newlyFixed = updateActiveSet(call.box, call.x);
    }
    countEvaluation(call.saved);
    call.stopCode = 0;
    call.state = initialise;
}

// The tests on step, value and gradient: the code of the one that ends the run, else 0.
int testProgress(double f, const GradientNorms& norms, PlisState& saved) {
    if (f <= floorTol) {
        return 3;
    }
    if (norms.freeGradMax <= gradTol && norms.activeGradMax <= gradTol) {
        return 4;
    }
    saved.stepPasses = stepTol >= saved.largestStep ? saved.stepPasses + 1 : 0;
    if (saved.stepPasses >= stepPassesNeeded) {
        return 1;
    }
    const double change = std::abs(saved.fo - f) / std::max(std::abs(f), 1.0);
    saved.valuePasses = change <= valueTol ? saved.valuePasses + 1 : 0;
    return saved.valuePasses >= valuePassesNeeded ? 2 : 0;
}

// The termination code at the start of an iteration, 0 to continue. Counts the iteration and requests the periodic
// restart.
int testTermination(double f, const GradientNorms& norms, std::int64_t n, PlisState& saved) {
    if (saved.iterationCount == 0) {
        saved.fo = f + std::min(std::sqrt(std::abs(f)), std::abs(f) / 10.0);
    }
    // After a failed search the last step says nothing about progress.
    if (saved.searchStatus != 0) {
        const int code = testProgress(f, norms, saved);
        if (code != 0) {
            return code;
        }
    }
    if (saved.iterationCount >= maxIterationCount) {
        return 11;
    }
    if (saved.valueCount >= maxValueCount) {
        return 12;
    }
    if (saved.gradientCount >= maxGradientCount) {
        return 13;
    }
    if (saved.iterationCount - saved.lastRestartIteration >= restartFactor * n + restartOffset) {
        saved.restartRequest = 1;
    }
    ++saved.iterationCount;
    return 0;
}

void releaseActive(const Call& call, const GradientNorms& norms) {
    const PlisState& saved = call.saved;
    const bool lastStepWasFull = saved.newlyFixed == 0 || saved.iterationCount == 1 || !norms.anyFree;
    if (saved.boundSwitch == 0 || !lastStepWasFull || !(norms.activeGradMax > norms.freeGradMax)) {
        return;
    }
    if (releaseBounds(call.box, call.x, call.g) >= 2) {
        call.saved.restartRequest = 1;
    }
}

// Starts the matrix anew. Returns 0, or the code that ends the run: no two restarts in one iteration.
int restartMatrix(PlisState& saved) {
    saved.shift = 1.0;
    saved.columnsInUse = 0;
    saved.restartRequest = 0;
    if (saved.iterationCount <= saved.lastRestartIteration) {
        return saved.searchStatus < 0 ? saved.searchStatus - 5 : -10;
    }
    ++saved.restartCount;
    saved.lastRestartIteration = saved.iterationCount;
    return 0;
}

// s = -(lowRank lowRank' + shift I) g over the free variables, its slope and the limits of the step. False if s does
// not descend, or is NaN.
bool findDirection(const Call& call) {
    PlisState& saved = call.saved;
    const std::span<const std::int32_t> nbd = call.box.nbd;
    const std::size_t columns = static_cast<std::size_t>(saved.columnsInUse);
    const std::span<const double> used = call.lowRank.first(call.x.size() * columns);
    const std::span<double> gradProjection = call.gradProjection.first(columns);
    const double gradNorm = std::sqrt(maskedDot(saved.boundSwitch, nbd, call.g, call.g));
    maskedNegatedCopy(saved.boundSwitch, nbd, call.g, call.s);
    transposedProduct(used, call.s, gradProjection);
    product(used, gradProjection, saved.shift, call.s, call.s);
    maskedZero(saved.boundSwitch, nbd, call.s);
    const double stepNorm = std::sqrt(dot(call.s, call.s));
    saved.p = maskedDot(saved.boundSwitch, nbd, call.g, call.s);
    const bool descends = stepNorm > 0.0 && saved.p + descentTol * gradNorm * stepNorm <= 0.0;
    saved.directionStatus = descends ? 0 : 1;
    saved.stepMin = stepFactorLow * gradNorm / stepNorm;
    saved.stepMax = std::min({hugeValue, stepFactorHigh * gradNorm / stepNorm, stepLimit / stepNorm});
    return descends;
}

void moveToTrial(const Call& call) {
    stepAlong(call.xo, call.saved.r, call.s, call.x);
    if (call.saved.boundSwitch > 0) {
        projectIntoBounds(call.box, call.x);
    }
    countEvaluation(call.saved);
    call.state = trialReady;
}

void endRun(const Call& call, int code) {
    call.stopCode = code;
    call.state = iterationReady;
}

// Restarts if requested, finds a direction and takes the first step along it.
void startSearch(const Call& call) {
    PlisState& saved = call.saved;
    do {
        if (saved.restartRequest > 0) {
            const int code = restartMatrix(saved);
            if (code != 0) {
                return endRun(call, code);
            }
        }
        if (!findDirection(call)) {
            saved.restartRequest = 1;
        }
    } while (saved.restartRequest > 0);
    saved.fo = call.f;
    saved.po = saved.p;
    copy(call.x, call.xo);
    copy(call.g, call.go);
    if (saved.boundSwitch > 0) {
        saved.stepMax = stepToBounds(call.box, call.x, call.s, saved.stepMax);
    }
    beginSearch(saved);
    moveToTrial(call);
}

void startIteration(const Call& call) {
    const GradientNorms norms = gradientNorms(call.saved.boundSwitch, call.box, call.x, call.g);
    const int code = testTermination(call.f, norms, static_cast<std::int64_t>(call.x.size()), call.saved);
    if (code != 0) {
        return endRun(call, code);
    }
    releaseActive(call, norms);
    startSearch(call);
}

// After a failed search: back to its start, and on with a new matrix.
void abandonSearch(const Call& call) {
    copy(call.xo, call.x);
    copy(call.go, call.g);
    call.f = call.saved.fo;
    call.saved.p = call.saved.po;
    call.saved.restartRequest = 1;
    startSearch(call);
}

double largestRelativeChange(std::span<const double> x, std::span<const double> xo) {
    double largest = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        largest = std::max(largest, std::abs(x[i] - xo[i]) / std::max(std::abs(x[i]), 1.0));
    }
    return largest;
}

// After a successful search: updates the active set and the matrix. The update uses the gradient at the start of the
// step, not the direction: otherwise the quasi-Newton condition would not hold.
void acceptStep(const Call& call) {
    PlisState& saved = call.saved;
    const std::span<const std::int32_t> nbd = call.box.nbd;
    if (saved.boundSwitch > 0) {
        saved.newlyFixed = updateActiveSet(call.box, call.x);
    }
    saved.largestStep = largestRelativeChange(call.x, call.xo);
    maskedNegatedCopy(saved.boundSwitch, nbd, call.go, call.s);
    maskedDifference(saved.boundSwitch, nbd, call.x, call.xo);
    maskedDifference(saved.boundSwitch, nbd, call.g, call.go);
    const UpdateVectors vectors{call.s, call.xo, call.go, call.shiftedStep, call.gradProjection, call.stepProjection};
    const bool changed = updateMatrix(saved.method, saved.r, vectors, call.lowRank, saved.columnsInUse, saved.shift);
    saved.updateStatus = changed ? 0 : 1;
    endRun(call, 0);
}

void processTrial(const Call& call) {
    PlisState& saved = call.saved;
    saved.p = maskedDot(saved.boundSwitch, call.box.nbd, call.g, call.s);
    const SearchEnd end = evaluateStep(call.f, saved);
    if (end == searchContinues) {
        return moveToTrial(call);
    }
    saved.searchStatus = end;
    if (end <= 0) {
        abandonSearch(call);
    } else {
        acceptStep(call);
    }
}

}  // namespace

}  // namespace plis

void plisStep(int method, int n, int m, int nb, std::span<double> x, std::span<double> l, std::span<double> u,
              std::span<std::int32_t> nbd, double& f, std::span<double> g, std::span<double> wa, int& state,
              int& stopCode, PlisState& saved) {
    if (n < 0 || m < 0) {
        throw std::invalid_argument("plisStep: the number of variables and of columns must not be negative");
    }
    const std::size_t length = static_cast<std::size_t>(n);
    const std::size_t columns = static_cast<std::size_t>(m);
    if (std::min({x.size(), l.size(), u.size(), nbd.size(), g.size()}) < length ||
        wa.size() < (columns + 4) * length + 2 * columns) {
        throw std::invalid_argument("plisStep: an array is shorter than n and m require");
    }
    if (state == plis::initialise) {
        plis::clearState(method, n, nb, saved);
    } else if (saved.columnsInUse < 0 || saved.columnsInUse > m) {
        throw std::invalid_argument("plisStep: the saved state belongs to another m");
    }

    std::size_t next = 0;
    const auto take = [&](std::size_t count) {
        const std::span<double> part = wa.subspan(next, count);
        next += count;
        return part;
    };
    const std::span<double> s = take(length);
    const std::span<double> xo = take(length);
    const std::span<double> go = take(length);
    const std::span<double> shiftedStep = take(length);
    const std::span<double> lowRank = take(length * columns);
    const std::span<double> gradProjection = take(columns);
    const std::span<double> stepProjection = take(columns);
    const plis::Call call{{l.first(length), u.first(length), nbd.first(length)},
                          x.first(length),
                          g.first(length),
                          f,
                          s,
                          xo,
                          go,
                          shiftedStep,
                          lowRank,
                          gradProjection,
                          stepProjection,
                          state,
                          stopCode,
                          saved};
    if (state == plis::initialise) {
        plis::startRun(call);
    } else if (state == plis::trialReady) {
        plis::processTrial(call);
    } else {
        plis::startIteration(call);
    }
}

}  // namespace voxlith
