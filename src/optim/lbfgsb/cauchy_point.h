// The generalised Cauchy point of L-BFGS-B: the first local minimiser of the quadratic model along the projected path
// of steepest descent (Byrd et al. 1995, section 4, algorithm CP).
#pragma once

#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/correction_memory.h"

namespace voxlith {

// Where the path ends: variables that are still moving have gone `time` times their direction, others are where they
// were or at the bound that their status tells.
struct CauchyPoint {
    double time = 0.0;
    std::int32_t blocks = 0;  // that were looked at
};

// Arrays that the search along the path uses.
struct CauchyArrays {
    std::span<double> direction;     // n: the path; 0 where it ends, afterwards
    std::span<std::int32_t> status;  // n: VariableStatus, changed to that at the Cauchy point
    std::span<double> breakpoints;   // n: scratch
    std::span<std::int32_t> order;   // n: scratch
    std::span<double> p;             // 2 m: W'direction, before and afterwards
    std::span<double> c;             // 2 m: W'(point - x), afterwards
    std::span<double> row, product;  // 2 m each: scratch
    SmallMatrix table;               // the subspace table, changed with the status
    PairProducts products;           // scratch
};

// Searches the Cauchy point from x along the path that startPathBlock has begun. Changes the number of free variables
// with their status.
CauchyPoint findCauchyPoint(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                            PathStart& path, const CauchyArrays& arrays);

}  // namespace voxlith
