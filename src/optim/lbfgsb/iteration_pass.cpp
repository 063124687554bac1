#include "optim/lbfgsb/iteration_pass.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "optim/lbfgsb/subspace_matrix.h"

namespace voxlith {

namespace {

// One block of the variables, and scratch for it.
struct PassBlock {
    std::size_t first = 0;
    std::size_t length = 0;
    bool anyFixed = false;
    std::array<std::int32_t, blockLength> statusBefore;
    std::array<double, blockLength> freeChange, fixedStep;
};

void storePair(const PassBlock& block, const IterationPassArrays& arrays) {
    const double* const g = arrays.g.data() + block.first;
    const double* const lastG = arrays.lastG.data() + block.first;
    const double* const d = arrays.direction.data() + block.first;
    double* const change = arrays.newChange.data() + block.first;
    double* const step = arrays.newStep.data() + block.first;
    for (std::size_t i = 0; i < block.length; ++i) {
        change[i] = g[i] - lastG[i];
    }
    for (std::size_t i = 0; i < block.length; ++i) {
        step[i] = arrays.stepLength * d[i];
    }
}

// Updates the table for the variables that have met a bound or left one since the last Cauchy point.
void updateTable(const PassBlock& block, const CorrectionMemory& memory, std::size_t olderPairs,
                 const IterationPassArrays& arrays) {
    const std::int32_t* const status = arrays.status.data() + block.first;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < block.length; ++i) {
        changed += isFree(status[i]) != isFree(block.statusBefore[i]);
    }
    for (std::size_t i = 0; changed > 0 && i < block.length; ++i) {
        const bool free = isFree(status[i]);
        if (free == isFree(block.statusBefore[i])) {
            continue;
        }
        gatherRow(memory, olderPairs, block.first + i, arrays.row);
        moveVariable(arrays.table, memory.m, olderPairs, arrays.row, free);
    }
}

void startPath(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind,
               const IterationPassArrays& arrays, PassBlock& block, PathStart& path) {
    const double* const g = arrays.g.data() + block.first;
    double* const direction = arrays.direction.data() + block.first;
    std::int32_t* const status = arrays.status.data() + block.first;
    if (kind == PathKind::straight) {
        for (std::size_t i = 0; i < block.length; ++i) {
            direction[i] = -g[i];
        }
        path.freeCount += block.length;
        return;
    }
    const std::size_t freeBefore = path.freeCount;
    if (kind == PathKind::none) {
        for (std::size_t i = 0; i < block.length; ++i) {
            direction[i] = isFree(status[i]) ? -g[i] : 0.0;
            path.freeCount += isFree(status[i]);
        }
    } else {
        BoxBlock box;
        boxOfBlock(problem, block.first, block.length, box);
        std::copy_n(status, block.length, block.statusBefore.begin());
        boxKernels().startPath(box, block.length, arrays.x.data() + block.first, g, status, direction, path);
        const std::size_t olderPairs = memory.count - (arrays.newStep.empty() ? 0 : 1);
        if (memory.count > 0 && olderPairs > 0) {
            updateTable(block, memory, olderPairs, arrays);
        }
    }
    block.anyFixed = path.freeCount - freeBefore < block.length;
}

// The newest pair, split: its change where variables are free, its step where they are fixed.
void splitPair(const IterationPassArrays& arrays, PassBlock& block) {
    const std::int32_t* const status = arrays.status.data() + block.first;
    const double* const change = arrays.newChange.data() + block.first;
    const double* const step = arrays.newStep.data() + block.first;
    for (std::size_t i = 0; i < block.length; ++i) {
        block.freeChange[i] = isFree(status[i]) ? change[i] : 0.0;
        block.fixedStep[i] = isFree(status[i]) ? 0.0 : step[i];
    }
}

// Where all variables are free, the products with the fixed step are 0 and need not be formed.
VectorBlock vectorsOf(const IterationPassArrays& arrays, PassBlock& block) {
    VectorBlock vectors;
    vectors.length = block.length;
    vectors.vector[pathVector] = arrays.direction.data() + block.first;
    vectors.count = 1;
    if (arrays.newStep.empty()) {
        return vectors;
    }
    vectors.vector[newestStep] = arrays.newStep.data() + block.first;
    vectors.vector[newestFreeChange] = arrays.newChange.data() + block.first;
    vectors.count = 3;
    if (block.anyFixed) {
        splitPair(arrays, block);
        vectors.vector[newestFreeChange] = block.freeChange.data();
        vectors.vector[newestFixedStep] = block.fixedStep.data();
        vectors.count = 4;
    }
    return vectors;
}

void prefetchNext(const PassBlock& block, PathKind kind, const IterationPassArrays& arrays) {
    prefetchNextBlock(arrays.g.data() + block.first, block.length);
    prefetchNextBlock(arrays.direction.data() + block.first, block.length);
    if (!arrays.newStep.empty()) {
        prefetchNextBlock(arrays.lastG.data() + block.first, block.length);
    }
    if (kind == PathKind::straight) {
        return;
    }
    prefetchNextBlock(arrays.x.data() + block.first, block.length);
    prefetchNextBlock(arrays.status.data() + block.first, block.length);
}

double squareOf(const double* values, std::size_t length) {
    return longProduct({values, length}, {values, length});
}

}  // namespace

PathStart startIterationPass(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind,
                             const IterationPassArrays& arrays) {
    assert(arrays.g.size() == arrays.x.size() && arrays.direction.size() == arrays.x.size());
    assert(arrays.newStep.size() == arrays.newChange.size() && (arrays.newStep.empty() || memory.count > 0));
    PathStart path;
    std::fill(arrays.products.sums.begin(), arrays.products.sums.end(), 0.0);
    PassBlock block;
    for (block.first = 0; block.first < arrays.x.size(); block.first += blockLength) {
        block.length = std::min(blockLength, arrays.x.size() - block.first);
        prefetchNext(block, kind, arrays);
        if (!arrays.newStep.empty()) {
            storePair(block, arrays);
        }
        startPath(problem, memory, kind, arrays, block, path);
        path.directionSquared += squareOf(arrays.direction.data() + block.first, block.length);
        if (memory.count > 0) {
            addPairProducts(memory, block.first, vectorsOf(arrays, block), arrays.products);
        }
    }
    return path;
}

}  // namespace voxlith
