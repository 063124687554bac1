#include "optim/lbfgsb/iteration_pass.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "optim/lbfgsb/block_waves.h"
#include "optim/lbfgsb/subspace_matrix.h"

namespace voxlith {

namespace {

// One block of the variables, and scratch for it.
struct PassBlock {
    std::size_t first = 0;
    std::size_t length = 0;
    bool anyFixed = false;
    std::array<double, blockLength> freeChange, fixedStep;
};

// What the blocks of a wave add, in ascending order.
struct WaveResults {
    static constexpr std::size_t productSpace = 32768;  // enough for all slots up to m = 16

    std::array<PathStart, mostSlots> path;
    std::array<double, productSpace> products;
    std::array<std::array<bool, blockLength>, mostSlots> wasFree;  // at the last Cauchy point
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
void updateTable(std::span<const bool> wasFree, std::size_t first, const CorrectionMemory& memory,
                 std::size_t olderPairs, const IterationPassArrays& arrays) {
    const std::int32_t* const status = arrays.status.data() + first;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < wasFree.size(); ++i) {
        changed += isFree(status[i]) != wasFree[i];
    }
    for (std::size_t i = 0; changed > 0 && i < wasFree.size(); ++i) {
        const bool free = isFree(status[i]);
        if (free == wasFree[i]) {
            continue;
        }
        gatherRow(memory, olderPairs, first + i, arrays.row);
        moveVariable(arrays.table, memory.m, olderPairs, arrays.row, free);
    }
}

// Sets the path of a block. Where that can change the status, `wasFree` says which variables were free before.
void startPath(const BoxProblem& problem, PathKind kind, const IterationPassArrays& arrays, PassBlock& block,
               PathStart& path, std::array<bool, blockLength>& wasFree) {
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
    if (kind == PathKind::none) {
        for (std::size_t i = 0; i < block.length; ++i) {
            direction[i] = isFree(status[i]) ? -g[i] : 0.0;
            path.freeCount += isFree(status[i]);
        }
    } else {
        BoxBlock box;
        boxOfBlock(problem, block.first, block.length, box);
        std::transform(status, status + block.length, wasFree.begin(), isFree);
        boxKernels().startPath(box, block.length, arrays.x.data() + block.first, g, status, direction, path);
    }
    block.anyFixed = path.freeCount < block.length;
}

// As if all blocks had been one.
void addPath(const PathStart& block, PathStart& path) {
    path.breakpointCount += block.breakpointCount;
    path.freeCount += block.freeCount;
    path.leastTime = block.leastTime < path.leastTime ? block.leastTime : path.leastTime;
    path.directionSquared += block.directionSquared;
    path.bounded = path.bounded && block.bounded;
    path.moves = path.moves || block.moves;
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

}  // namespace

PathStart startIterationPass(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind,
                             const IterationPassArrays& arrays) {
    assert(arrays.g.size() == arrays.x.size() && arrays.direction.size() == arrays.x.size());
    assert(arrays.newStep.size() == arrays.newChange.size() && (arrays.newStep.empty() || memory.count > 0));
    PathStart path;
    const std::span<double> sums = arrays.products.sums;
    std::fill(sums.begin(), sums.end(), 0.0);
    const bool updatesTable = kind == PathKind::projected && memory.count > (arrays.newStep.empty() ? 0U : 1U);
    const std::size_t olderPairs = memory.count - (arrays.newStep.empty() ? 0 : 1);
    // Where the products of a single block leave no space, they go to the sums, without a wave.
    const std::size_t productCount = memory.count > 0 ? sums.size() : 0;
    const std::size_t slots =
        std::clamp<std::size_t>(WaveResults::productSpace / std::max<std::size_t>(1, productCount), 1, mostSlots);
    const bool inWaves = productCount <= WaveResults::productSpace;
    WaveResults wave;
    const auto productsOf = [&](std::size_t slot) {
        return std::span(wave.products).subspan(slot * productCount, productCount);
    };
    const auto compute = [&](std::size_t slot, std::size_t first, std::size_t length) {
        PassBlock block;
        block.first = first;
        block.length = length;
        prefetchNext(block, kind, arrays);
        if (!arrays.newStep.empty()) {
            storePair(block, arrays);
        }
        wave.path[slot] = {};
        startPath(problem, kind, arrays, block, wave.path[slot], wave.wasFree[slot]);
        const double* const direction = arrays.direction.data() + first;
        wave.path[slot].directionSquared = blockProduct(direction, direction, length);
        if (productCount > 0 && inWaves) {
            std::ranges::fill(productsOf(slot), 0.0);
        }
        if (productCount > 0) {
            addPairProducts(memory, first, vectorsOf(arrays, block), inWaves ? productsOf(slot) : sums);
        }
    };
    const auto add = [&](std::size_t slot, std::size_t first, std::size_t length) {
        addPath(wave.path[slot], path);
        for (std::size_t n = 0; inWaves && n < productCount; ++n) {
            sums[n] += productsOf(slot)[n];
        }
        if (updatesTable) {
            updateTable(std::span(wave.wasFree[slot]).first(length), first, memory, olderPairs, arrays);
        }
    };
    forEachBlock(0, arrays.x.size(), slots, memory.count + 4, compute, add);
    return path;
}

}  // namespace voxlith
