// The generalised Cauchy point of L-BFGS-B: the first local minimiser of the quadratic model along the projected path
// of steepest descent (Byrd et al. 1995, section 4, algorithm CP).
#pragma once

#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/correction_memory.h"

namespace voxlith {

// Where the path ends: variables that are still moving have moved by `time` times their direction; the others have
// their old value or that of the bound given by their status.
struct CauchyPoint {
    double time = 0.0;
    std::int32_t segments = 0;  // of the path that were examined
};

// Arrays that the search along the path uses.
struct CauchyArrays {
    std::span<double> direction;     // n: the path; afterwards 0 for variables that have stopped
    std::span<std::int32_t> status;  // n: VariableStatus, changed to that at the Cauchy point
    std::span<double> breakpoints;   // n: scratch
    std::span<std::int32_t> order;   // n: scratch
    std::span<double> p;             // 2 m: W'direction, updated with it
    std::span<double> c;             // 2 m: in: 0; out: W'(point - x)
    std::span<double> row, product;  // 2 m each: scratch
    SmallMatrix table;               // the subspace table, changed with the status
    PairProducts products;           // scratch
};

// Finds the Cauchy point from x along the path that startIterationPass has started. Updates path.freeCount with the
// status.
CauchyPoint findCauchyPoint(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                            PathStart& path, const CauchyArrays& arrays);

}  // namespace voxlith
