#include "optim/lbfgsb/search_direction.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "optim/lbfgsb/block_waves.h"
#include "optim/lbfgsb/subspace_matrix.h"

namespace voxlith {

namespace {

struct VariableBlock {
    std::size_t first = 0;
    std::size_t length = 0;
};

// The Cauchy point: variables that have stopped are at their bound, the others have moved along the path and, apart
// from rounding, are within the box. The path goes down the gradient where variables still move.
void setCauchyPoint(const BoxBlock& box, const SearchDirectionTask& task, const VariableBlock& block,
                    const SearchDirectionArrays& arrays) {
    const double* const x = arrays.lastX.data() + block.first;
    double* const point = arrays.point.data() + block.first;
    if (!task.leavesX) {
        std::copy_n(x, block.length, point);
        return;
    }
    const double* const g = arrays.g.data() + block.first;
    const std::int32_t* const status = arrays.status.data() + block.first;
    for (std::size_t i = 0; i < block.length; ++i) {
        const bool moves = (status[i] == freeBetweenBounds) | (status[i] == unbounded);
        point[i] = x[i] + task.time * (moves ? -g[i] : 0.0);
    }
    if (!task.constrained) {
        return;
    }
    const double* const lower = box.lower;
    const double* const upper = box.upper;
    for (std::size_t i = 0; i < block.length; ++i) {
        const double moved = point[i];
        const double raised = status[i] == atLowerBound ? lower[i] : moved;
        point[i] = status[i] == atUpperBound ? upper[i] : raised;
    }
    clampBlock(box, block.length, point);
}

// The step from the Cauchy point to the minimiser, 0 for fixed variables, into `step`.
void formSubspaceStep(const CorrectionMemory& memory, const SearchDirectionTask& task, const VariableBlock& block,
                      const SearchDirectionArrays& arrays, double* step) {
    const double* const x = arrays.lastX.data() + block.first;
    const double* const g = arrays.g.data() + block.first;
    const double* const point = arrays.point.data() + block.first;
    const std::int32_t* const status = arrays.status.data() + block.first;
    const double theta = memory.theta;
    for (std::size_t i = 0; i < block.length; ++i) {
        step[i] = task.leavesX ? -theta * (point[i] - x[i]) - g[i] : -g[i];
    }
    const ColumnBlock steps{memory.s.data() + block.first, memory.n, memory.count};
    const ColumnBlock changes{memory.y.data() + block.first, memory.n, memory.count};
    const BlockKernels& kernels = blockKernels();
    kernels.addColumns(steps, arrays.factors.data(), block.length, step);
    kernels.addColumns(changes, arrays.factors.data() + memory.m, block.length, step);
    for (std::size_t i = 0; i < block.length; ++i) {
        step[i] = isFree(status[i]) ? step[i] / theta : 0.0;
    }
}

// Adds the truncated subspace step; the variable that has shortened it gets the value of its bound exactly.
void applySubspaceStep(const BoxProblem& problem, const StepToBound& truncated, const VariableBlock& block,
                       const double* step, double* point) {
    for (std::size_t i = 0; i < block.length; ++i) {
        point[i] += truncated.length * step[i];
    }
    if (truncated.shortened && truncated.variable >= block.first && truncated.variable < block.first + block.length) {
        const std::size_t i = truncated.variable - block.first;
        point[i] = step[i] > 0.0 ? problem.u[truncated.variable] : problem.l[truncated.variable];
    }
}

// What the blocks of a wave add, in ascending order.
struct BlockSearch {
    double directionSquared = 0.0;
    double slope = 0.0;
    StepToBound limit;
};

// The direction of the line search, d'd, g'd and the largest step, `limit.length` at most.
void startSearch(const BoxBlock& box, const SearchDirectionTask& task, const VariableBlock& block,
                 const SearchDirectionArrays& arrays, BlockSearch& search) {
    const double* const x = arrays.lastX.data() + block.first;
    const double* const g = arrays.g.data() + block.first;
    const double* const point = arrays.point.data() + block.first;
    double* const direction = arrays.direction.data() + block.first;
    for (std::size_t i = 0; i < block.length; ++i) {
        direction[i] = point[i] - x[i];
    }
    double products[vectorsAtOnce] = {};
    blockKernels().addProducts({direction, 0, 1}, {{direction, g}, 2, block.length}, products);
    search.directionSquared = products[0];
    search.slope = products[1];
    if (task.limitStep) {
        shortenStep(box, block.first, block.length, x, direction, search.limit);
    }
    std::copy_n(g, block.length, arrays.lastG.data() + block.first);
}

void prefetchNext(const VariableBlock& block, const SearchDirectionArrays& arrays) {
    prefetchNextBlock(arrays.x.data() + block.first, block.length);
    prefetchNextBlock(arrays.g.data() + block.first, block.length);
    prefetchNextBlock(arrays.status.data() + block.first, block.length);
    prefetchNextBlock(arrays.lastX.data() + block.first, block.length);
    prefetchNextBlock(arrays.lastG.data() + block.first, block.length);
}

}  // namespace

void subspaceFactors(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix subspaceFactor, bool leavesX,
                     double time, std::span<double> c, std::span<double> p, std::span<double> products,
                     std::span<double> factors) {
    const std::size_t count = memory.count;
    const double theta = memory.theta;
    std::fill(products.begin(), products.end(), 0.0);
    if (leavesX) {
        multiplyByMiddleMatrix(memory, c, products);
        for (std::size_t k = 0; k < 2 * count; ++k) {
            p[k] -= theta * time * p[k];
        }
        addFreeProducts(memory, table, products, p);
    }
    solveSubspaceMatrix(subspaceFactor, memory.m, count, p);
    for (std::size_t pair = 0; pair < count; ++pair) {
        const std::size_t column = memory.columnOf(pair);
        factors[column] = theta * products[count + pair] + p[count + pair];
        factors[memory.m + column] = products[pair] + p[pair] / theta;
    }
}

SearchDirection computeSearchDirection(const BoxProblem& problem, const CorrectionMemory& memory,
                                       const SearchDirectionTask& task, double largestStep,
                                       const SearchDirectionArrays& arrays) {
    assert(arrays.g.size() == arrays.x.size() && arrays.status.size() == arrays.x.size());
    assert(arrays.factors.empty() || arrays.factors.size() >= 2 * memory.m);
    const bool steps = !arrays.factors.empty();
    const std::size_t n = arrays.x.size();
    const std::size_t columnCost = steps ? memory.count + 4 : 4;
    SearchDirection search;
    StepToBound truncated, limit;
    std::array<BlockSearch, mostSlots> searches;
    std::array<StepToBound, mostSlots> truncations;

    // The Cauchy point and the subspace step, of which the truncation is known only after all blocks.
    const auto prepare = [&](std::size_t start, std::size_t end) {
        const auto compute = [&](std::size_t slot, std::size_t first, std::size_t length) {
            const VariableBlock block{first, length};
            BoxBlock box;
            prefetchNext(block, arrays);
            if (task.constrained) {
                boxOfBlock(problem, first, length, box);
            }
            std::copy_n(arrays.x.data() + first, length, arrays.lastX.data() + first);
            setCauchyPoint(box, task, block, arrays);
            double* const step = arrays.lastG.data() + first;  // free until the last gradient is stored there
            truncations[slot] = {};
            truncations[slot].length = truncated.length;
            if (steps) {
                formSubspaceStep(memory, task, block, arrays, step);
            }
            if (steps && task.constrained) {
                shortenStep(box, first, length, arrays.point.data() + first, step, truncations[slot]);
            }
        };
        forEachBlock(start, end, mostSlots, columnCost, compute,
                     [&](std::size_t slot, std::size_t first, std::size_t length) {
                         shortenStepAsBlock(problem, first, length, arrays.point.data() + first,
                                            arrays.lastG.data() + first, truncations[slot], truncated);
                     });
    };
    const auto finish = [&](std::size_t start, std::size_t end) {
        const auto compute = [&](std::size_t slot, std::size_t first, std::size_t length) {
            const VariableBlock block{first, length};
            BoxBlock box;
            if (task.constrained) {
                boxOfBlock(problem, first, length, box);
            }
            double* const point = arrays.point.data() + first;
            if (steps) {
                applySubspaceStep(problem, truncated, block, arrays.lastG.data() + first, point);
            }
            if (steps && task.constrained) {
                clampBlock(box, length, point);
            }
            searches[slot] = {};
            searches[slot].limit.length = limit.length;
            startSearch(box, task, block, arrays, searches[slot]);
        };
        forEachBlock(start, end, mostSlots, columnCost, compute,
                     [&](std::size_t slot, std::size_t first, std::size_t length) {
                         search.directionSquared += searches[slot].directionSquared;
                         search.slope += searches[slot].slope;
                         if (task.limitStep) {
                             shortenStepAsBlock(problem, first, length, arrays.lastX.data() + first,
                                                arrays.direction.data() + first, searches[slot].limit, limit);
                         }
                     });
    };
    const auto restart = [&] {
        search = {};
        limit = {};
        limit.length = largestStep;
    };

    // Where no bound is expected to cut the step, a wave is finished while it is in the cache.
    restart();
    std::size_t finished = 0;
    const std::size_t wave = waveLength(mostSlots);
    for (std::size_t start = 0; start < n; start += wave) {
        const std::size_t end = std::min(start + wave, n);
        prepare(start, end);
        if ((task.expectWholeStep || !task.constrained) && !truncated.shortened) {
            finish(start, end);
            finished = end;
        }
    }
    // A bound does cut the step: what has been finished is done again.
    if (finished < n && finished > 0) {
        std::copy_n(arrays.lastX.begin(), finished, arrays.x.begin());
        prepare(0, finished);
        restart();
        finished = 0;
    }
    if (finished < n) {
        finish(0, n);
    }
    search.stepReachedBound = truncated.length < 1.0;
    search.largestStep = limit.length;
    return search;
}

}  // namespace voxlith
