// The first pass over memory of an iteration of L-BFGS-B. It stores the newest pair, starts the path of steepest
// descent and forms all inner products that the iteration needs, block by block, so that corrections, gradient and
// bounds are read once. At a million variables they are far larger than the caches, and reading them is most of the
// time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/cauchy_point.h"
#include "optim/lbfgsb/correction_memory.h"

namespace voxlith {

// Vectors that the columns of the memory are multiplied by, in the order of their products.
enum IterationPassVector : std::size_t {
    pathVector,        // the path of steepest descent
    newestStep,        // step of the newest pair
    newestFreeChange,  // its change where variables are free, else 0
    newestFixedStep,   // its step where variables are fixed, else 0
};

struct IterationPassArrays {
    std::span<const double> x, g;          // n: where the iteration begins
    std::span<const double> lastG;         // n: gradient where the last iteration began
    std::span<double> direction;           // n: in: direction of the last search; out: path of steepest descent
    std::span<std::int32_t> status;        // n: in: VariableStatus at the last Cauchy point; out: at x
    std::span<double> newStep, newChange;  // n: out: columns of the newest pair; empty: there is none
    double stepLength = 0.0;               // of the last search
    SmallMatrix table;                     // the subspace table: updated with the status, for all pairs but the newest
    PairProducts products;                 // out: with IterationPassVector
    std::span<double> row;                 // 2 m: scratch
};

// Start of a path.
enum class PathKind {
    projected,  // along the bounds: sets status and direction
    straight,   // no bounds at all: the direction is -g
    none,       // x is stationary: the status stays, the direction is -g where variables are free
};

// `memory` counts the newest pair already, if there is one.
PathStart startIterationPass(const BoxProblem& problem, const CorrectionMemory& memory, PathKind kind,
                             const IterationPassArrays& arrays);

}  // namespace voxlith
