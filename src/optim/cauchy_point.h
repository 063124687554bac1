// The generalised Cauchy point of L-BFGS-B: the first local minimiser of the quadratic model along the projected path
// of steepest descent (Byrd et al. 1995, section 4, algorithm CP).
#pragma once

#include <cstdint>
#include <span>

#include "optim/bounds.h"
#include "optim/correction_memory.h"

namespace voxlith {

// Arrays that the search uses. All but `breakpoints` and `order` hold results afterwards.
struct CauchyArrays {
    std::span<double> point;            // n: the Cauchy point
    std::span<double> direction;        // n: the rest of the path beyond it
    std::span<double> breakpoints;      // n: scratch
    std::span<std::int32_t> order;      // n: scratch
    std::span<std::int32_t> status;     // n: VariableStatus, changed to that at the Cauchy point
    std::span<double> c;                // 2 m: W'(point - x)
    std::span<double> p, row, product;  // 2 m each: scratch
};

// Finds the Cauchy point from x with gradient g. `gradientNorm` is the norm of the projected gradient; if it is 0 or
// less the point is x and the status stays. Returns the number of pieces of the path that were looked at.
std::int32_t findCauchyPoint(const BoxProblem& problem, const CorrectionMemory& memory, std::span<const double> x,
                             std::span<const double> g, double gradientNorm, const CauchyArrays& arrays);

}  // namespace voxlith
