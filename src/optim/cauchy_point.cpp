#include "optim/cauchy_point.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "optim/breakpoint_heap.h"

namespace voxlith {

namespace {

constexpr double epsmch = std::numeric_limits<double>::epsilon();

// What the set-up of the path finds.
struct PathStart {
    std::size_t breakpointCount = 0;  // variables that meet a bound
    bool bounded = true;              // every variable that moves meets a bound
    bool moves = false;               // some variable moves, or might for all that is known
};

// The model along the current piece of the path: slope, curvature and its least value that counts as positive.
struct PathModel {
    double slope = 0.0;      // f' of the paper
    double curvature = 0.0;  // f''
    double curvatureAtStart = 0.0;
    double time = 0.0;           // where the current piece begins
    double timeToMinimum = 0.0;  // from there
};

// Status of a variable that is not fixed for the whole run, at a point with distances to its bounds.
std::int32_t statusAt(bool atLower, bool atUpper, double descent) {
    if (atLower)
        return descent <= 0.0 ? atLowerBound : freeBetweenBounds;
    if (atUpper)
        return descent >= 0.0 ? atUpperBound : freeBetweenBounds;
    return std::abs(descent) <= 0.0 ? freeWithoutGradient : freeBetweenBounds;
}

// Sets status, direction and breakpoints of all variables. (Paper, equations 4.1 and 4.2.)
PathStart startPath(const BoxProblem& problem, std::span<const double> x, std::span<const double> g,
                    const CauchyArrays& arrays) {
    PathStart path;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double descent = -g[i];
        const bool mayMeetBound = arrays.status[i] != alwaysFixed && arrays.status[i] != unbounded;
        const bool lower = mayMeetBound && hasLowerBound(problem.nbd[i]);
        const bool upper = mayMeetBound && hasUpperBound(problem.nbd[i]);
        const double roomBelow = lower ? x[i] - problem.l[i] : 0.0;
        const double roomAbove = upper ? problem.u[i] - x[i] : 0.0;
        if (mayMeetBound)
            arrays.status[i] = statusAt(lower && roomBelow <= 0.0, upper && roomAbove <= 0.0, descent);
        if (arrays.status[i] != freeBetweenBounds && arrays.status[i] != unbounded) {
            arrays.direction[i] = 0.0;
            continue;
        }
        arrays.direction[i] = descent;
        path.moves = true;
        const bool meetsLower = lower && descent < 0.0;
        if (meetsLower || (upper && descent > 0.0)) {
            arrays.breakpoints[path.breakpointCount] = meetsLower ? roomBelow / -descent : roomAbove / descent;
            arrays.order[path.breakpointCount] = static_cast<std::int32_t>(i);
            ++path.breakpointCount;
        } else if (std::abs(descent) > 0.0) {
            path.bounded = false;
        }
    }
    return path;
}

// p := W'd, and the model at the start of the path.
PathModel startModel(const CorrectionMemory& memory, const CauchyArrays& arrays) {
    PathModel model;
    model.slope = -innerProduct(arrays.direction, arrays.direction);
    model.curvature = -memory.theta * model.slope;
    model.curvatureAtStart = model.curvature;
    const std::size_t order = 2 * memory.count;
    if (order > 0) {
        multiplyByPairs(memory, memory.count, arrays.direction, arrays.p);
        for (std::size_t k = memory.count; k < order; ++k)
            arrays.p[k] *= memory.theta;
        multiplyByMiddleMatrix(memory, arrays.p, arrays.product);
        model.curvature -= innerProduct(arrays.product.first(order), arrays.p.first(order));
    }
    model.timeToMinimum = -model.slope / model.curvature;
    return model;
}

// Takes variable b, which has moved by `travel` when it meets its bound at the end of a piece of length `length`, out
// of the direction. `speed` is its component of it. (Paper, algorithm CP, the steps in its loop.)
void leaveVariable(const CorrectionMemory& memory, std::size_t b, double speed, double travel, double length,
                   const CauchyArrays& arrays, PathModel& model) {
    const double speedSquared = speed * speed;
    model.slope += length * model.curvature + speedSquared - memory.theta * speed * travel;
    model.curvature -= memory.theta * speedSquared;
    const std::size_t order = 2 * memory.count;
    if (order > 0) {
        for (std::size_t k = 0; k < order; ++k)
            arrays.c[k] += length * arrays.p[k];
        for (std::size_t pair = 0; pair < memory.count; ++pair) {
            arrays.row[pair] = memory.change(pair)[b];
            arrays.row[memory.count + pair] = memory.theta * memory.step(pair)[b];
        }
        multiplyByMiddleMatrix(memory, arrays.row, arrays.product);
        const auto product = arrays.product.first(order);
        const double withC = innerProduct(arrays.c.first(order), product);
        const double withP = innerProduct(arrays.p.first(order), product);
        const double withRow = innerProduct(arrays.row.first(order), product);
        for (std::size_t k = 0; k < order; ++k)
            arrays.p[k] -= speed * arrays.row[k];
        model.slope += speed * withC;
        model.curvature += 2.0 * speed * withP - speedSquared * withRow;
    }
    model.curvature = std::max(epsmch * model.curvatureAtStart, model.curvature);
}

// Stops variable b at the bound that it moves to and returns the way that it has come.
double stopAtBound(const BoxProblem& problem, std::span<const double> x, std::size_t b, const CauchyArrays& arrays) {
    const bool upwards = arrays.direction[b] > 0.0;
    arrays.point[b] = upwards ? problem.u[b] : problem.l[b];
    arrays.status[b] = upwards ? atUpperBound : atLowerBound;
    arrays.direction[b] = 0.0;
    return arrays.point[b] - x[b];
}

// Puts the breakpoint with the least time last among `count`. The heap is built only when a second one is wanted.
void bringNextBreakpoint(const CauchyArrays& arrays, std::size_t count, std::size_t total) {
    if (count == total) {
        const auto times = arrays.breakpoints.first(total);
        const auto least = static_cast<std::size_t>(std::min_element(times.begin(), times.end()) - times.begin());
        std::swap(arrays.breakpoints[least], arrays.breakpoints[total - 1]);
        std::swap(arrays.order[least], arrays.order[total - 1]);
        return;
    }
    if (count + 1 == total)
        makeHeap(arrays.breakpoints, arrays.order, count);
    takeLeast(arrays.breakpoints, arrays.order, count);
}

// Adds the way from the last breakpoint to the minimiser to all variables that are still moving.
void moveToMinimum(const BoxProblem& problem, double time, const CauchyArrays& arrays) {
    for (std::size_t i = 0; i < arrays.point.size(); ++i)
        arrays.point[i] += time * arrays.direction[i];
    clampToBounds(problem, arrays.point);
}

}  // namespace

std::int32_t findCauchyPoint(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                             std::span<const double> g, double gradientNorm, const CauchyArrays& arrays) {
    std::copy(x.begin(), x.end(), arrays.point.begin());
    std::fill(arrays.c.begin(), arrays.c.end(), 0.0);
    if (gradientNorm <= 0.0) {
        std::fill(arrays.direction.begin(), arrays.direction.end(), 0.0);
        return 0;
    }
    const PathStart path = startPath(problem, x, g, arrays);
    if (!path.moves)
        return 0;
    PathModel model = startModel(memory, arrays);
    std::int32_t pieces = 1;
    const std::size_t order = 2 * memory.count;
    const bool everyVariableMeetsBound = path.breakpointCount == x.size();
    for (std::size_t left = path.breakpointCount; left > 0; --left) {
        bringNextBreakpoint(arrays, left, path.breakpointCount);
        const double next = arrays.breakpoints[left - 1];
        const double length = next - model.time;
        if (model.timeToMinimum < length)
            break;
        const auto b = static_cast<std::size_t>(arrays.order[left - 1]);
        const double speed = arrays.direction[b];
        const double travel = stopAtBound(problem, x, b, arrays);
        model.time = next;
        if (left == 1 && everyVariableMeetsBound) {
            for (std::size_t k = 0; k < order; ++k)
                arrays.c[k] += length * arrays.p[k];
            return pieces;
        }
        ++pieces;
        leaveVariable(memory, b, speed, travel, length, arrays, model);
        model.timeToMinimum = left == 1 && path.bounded ? 0.0 : -model.slope / model.curvature;
    }
    const double way = std::max(model.timeToMinimum, 0.0);
    moveToMinimum(problem, model.time + way, arrays);
    for (std::size_t k = 0; k < order; ++k)
        arrays.c[k] += way * arrays.p[k];
    return pieces;
}

}  // namespace voxlith
