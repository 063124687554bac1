#include "optim/lbfgsb/cauchy_point.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <limits>

#include "optim/lbfgsb/breakpoint_heap.h"
#include "optim/lbfgsb/subspace_matrix.h"

namespace voxlith {

namespace {

constexpr double epsmch = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();

// The quadratic model along the current segment of the path.
struct PathModel {
    double slope = 0.0;      // f' of the paper
    double curvature = 0.0;  // f''
    double curvatureAtStart = 0.0;
    double time = 0.0;           // where the segment begins
    double timeToMinimum = 0.0;  // from there
};

// The breakpoints on the heap. Most paths end after a few segments: only the breakpoints up to a limit are sorted, and
// the limit is raised when they are used up.
struct BreakpointQueue {
    double limit = -infinity;
    std::size_t count = 0;
};

PathModel startModel(const CorrectionMemory& memory, const PathStart& path, const CauchyArrays& arrays) {
    PathModel model;
    model.slope = -path.directionSquared;
    model.curvature = -memory.theta * model.slope;
    model.curvatureAtStart = model.curvature;
    const std::size_t order = 2 * memory.count;
    if (order > 0) {
        multiplyByMiddleMatrix(memory, arrays.p, arrays.product);
        model.curvature -= innerProduct(arrays.product.first(order), arrays.p.first(order));
    }
    model.timeToMinimum = -model.slope / model.curvature;
    return model;
}

// Puts the breakpoints after the old limit and up to `limit` into the queue.
void collectBreakpoints(const BoxProblem& problem, std::span<const double> x, double limit, const CauchyArrays& arrays,
                        BreakpointQueue& queue) {
    BoxBlock box;
    queue.count = 0;
    for (std::size_t first = 0; first < x.size(); first += blockLength) {
        const std::size_t length = std::min(blockLength, x.size() - first);
        boxOfBlock(problem, first, length, box);
        for (std::size_t i = 0; i < length; ++i) {
            const std::size_t variable = first + i;
            const double time = timeToBound(x[variable], box.lower[i], box.upper[i], arrays.direction[variable]);
            if (time > queue.limit && time <= limit && time < infinity) {
                arrays.breakpoints[queue.count] = time;
                arrays.order[queue.count] = static_cast<std::int32_t>(variable);
                ++queue.count;
            }
        }
    }
    queue.limit = limit;
    makeHeap(arrays.breakpoints, arrays.order, queue.count);
}

// Moves the next breakpoint to the end of the queue, entry queue.count. False if none is left.
bool popNextBreakpoint(const BoxProblem& problem, std::span<const double> x, const PathStart& path,
                       const PathModel& model, const CauchyArrays& arrays, BreakpointQueue& queue) {
    if (queue.count == 0) {
        const double expected = 2.0 * std::max(path.leastTime, model.time + model.timeToMinimum);
        collectBreakpoints(problem, x, expected > queue.limit ? expected : infinity, arrays, queue);
        if (queue.count == 0) {
            collectBreakpoints(problem, x, infinity, arrays, queue);
        }
        if (queue.count == 0) {
            return false;
        }
    }
    popLeast(arrays.breakpoints, arrays.order, queue.count);
    --queue.count;
    return true;
}

// Stops variable b at the bound that it moves to and returns its distance from x. arrays.row becomes its row of [Y S].
double stopAtBound(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x, std::size_t b,
                   const CauchyArrays& arrays) {
    const bool upwards = arrays.direction[b] > 0.0;
    arrays.status[b] = upwards ? atUpperBound : atLowerBound;
    arrays.direction[b] = 0.0;
    gatherRow(memory, memory.count, b, arrays.row);
    moveVariable(arrays.table, memory.m, memory.count, arrays.row, false);
    return (upwards ? problem.u[b] : problem.l[b]) - x[b];
}

// Removes a variable from the direction. It has moved by `travel` when it meets its bound at the end of a segment of
// duration `length`; `speed` is its component of the direction. (Paper, algorithm CP, the updates in its loop.)
void removeVariable(const CorrectionMemory& memory, double speed, double travel, double length,
                    const CauchyArrays& arrays, PathModel& model) {
    const double speedSquared = speed * speed;
    model.slope += length * model.curvature + speedSquared - memory.theta * speed * travel;
    model.curvature -= memory.theta * speedSquared;
    const std::size_t order = 2 * memory.count;
    if (order > 0) {
        for (std::size_t k = memory.count; k < order; ++k) {
            arrays.row[k] *= memory.theta;
        }
        multiplyByMiddleMatrix(memory, arrays.row, arrays.product);
        const auto product = arrays.product.first(order);
        const double withC = innerProduct(arrays.c.first(order), product);
        const double withP = innerProduct(arrays.p.first(order), product);
        const double withRow = innerProduct(arrays.row.first(order), product);
        for (std::size_t k = 0; k < order; ++k) {
            arrays.p[k] -= speed * arrays.row[k];
        }
        model.slope += speed * withC;
        model.curvature += 2.0 * speed * withP - speedSquared * withRow;
    }
    model.curvature = std::max(epsmch * model.curvatureAtStart, model.curvature);
}

void moveC(const CauchyArrays& arrays, std::size_t order, double length) {
    for (std::size_t k = 0; k < order; ++k) {
        arrays.c[k] += length * arrays.p[k];
    }
}

double largestSize(std::span<const double> values) {
    double largest = 0.0;
    for (const double value : values) {
        largest = std::max(largest, std::abs(value));
    }
    return largest;
}

// Goes from breakpoint to breakpoint until the model has its minimum on the current segment.
CauchyPoint minimiseAlongPath(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                              PathStart& path, const CauchyArrays& arrays) {
    PathModel model = startModel(memory, path, arrays);
    CauchyPoint end{0.0, 1};
    BreakpointQueue queue;
    const std::size_t order = 2 * memory.count;
    std::size_t left = model.timeToMinimum < path.leastTime ? 0 : path.breakpointCount;
    for (; left > 0 && popNextBreakpoint(problem, x, path, model, arrays, queue); --left) {
        const double next = arrays.breakpoints[queue.count];
        const double length = next - model.time;
        if (model.timeToMinimum < length) {
            break;
        }
        const auto b = static_cast<std::size_t>(arrays.order[queue.count]);
        const double speed = arrays.direction[b];
        const double travel = stopAtBound(problem, memory, x, b, arrays);
        --path.freeCount;
        model.time = next;
        moveC(arrays, order, length);
        if (left == 1 && path.breakpointCount == x.size()) {
            end.time = model.time;
            return end;
        }
        ++end.segments;
        removeVariable(memory, speed, travel, length, arrays, model);
        model.timeToMinimum = left == 1 && path.bounded ? 0.0 : -model.slope / model.curvature;
    }
    const double duration = std::max(model.timeToMinimum, 0.0);
    moveC(arrays, order, duration);
    end.time = model.time + duration;
    return end;
}

}  // namespace

CauchyPoint findCauchyPoint(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                            PathStart& path, const CauchyArrays& arrays) {
    assert(x.size() == arrays.direction.size() && arrays.p.size() >= 2 * memory.count);
    if (!path.moves) {
        return {};
    }
    const std::size_t order = 2 * memory.count;
    const double sizeAtStart = largestSize(arrays.p.first(order));
    const CauchyPoint end = minimiseAlongPath(problem, memory, x, path, arrays);
    // After many stops p may be little more than the rounding errors of its updates. The subspace step needs it
    // accurate.
    constexpr double muchCancelled = 1.0e-3;
    if (end.segments > 1 && largestSize(arrays.p.first(order)) < muchCancelled * sizeAtStart) {
        multiplyByPairs(memory, arrays.direction, arrays.products, arrays.p);
    }
    return end;
}

}  // namespace voxlith
