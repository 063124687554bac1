// The last pass over memory of an iteration of L-BFGS-B: from the Cauchy point to the minimiser of the quadratic model
// over the variables that are free there, truncated at the first bound (Byrd et al. 1995, section 5.1, direct primal
// method), and to the direction of the line search. The corrections are read once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/cauchy_point.h"
#include "optim/lbfgsb/correction_memory.h"

namespace voxlith {

struct SearchDirectionArrays {
    std::span<double> x;                   // n: the iterate
    std::span<const double> g;             // n
    std::span<const std::int32_t> status;  // n: VariableStatus at the Cauchy point
    std::span<double> direction;           // n: out: of the line search
    std::span<double> point;               // n: out: the minimiser, to which a whole step leads; may be x
    std::span<double> lastX, lastG;        // n: out: x and g before the call
    std::span<const double> factors;       // 2 m: of the columns of s, then of y; empty: no subspace step
};

struct SearchDirectionTask {
    bool constrained = false;     // the problem has bounds or fixed variables
    bool leavesX = false;         // otherwise the Cauchy point is x
    double time = 0.0;            // of the Cauchy point on the path
    bool limitStep = false;       // the search must not leave the box
    bool expectWholeStep = true;  // the step is likely to meet no bound: saves time if so
};

// Start of the line search.
struct SearchDirection {
    bool stepReachedBound = false;  // the subspace step was truncated
    double directionSquared = 0.0;
    double slope = 0.0;
    double largestStep = 0.0;
};

// The factors of the columns of the memory in the subspace step: from c, p and `time` of the path and the factors of
// the subspace matrix, M c + K^-1 W'Z r / theta, where r is the negated gradient of the model at the Cauchy point over
// the free variables. W'Z r follows from p and the inner products, since the free variables have moved by `time` times
// the direction, which is their negated gradient. c and p are changed; `products` is scratch of 2 count elements.
void subspaceFactors(const CorrectionMemory& memory, SmallMatrix table, SmallMatrix subspaceFactor, bool leavesX,
                     double time, std::span<double> c, std::span<double> p, std::span<double> products,
                     std::span<double> factors);

// `largestStep` is the limit of the line search where no bound is nearer.
SearchDirection computeSearchDirection(const BoxProblem& problem, const CorrectionMemory& memory,
                                       const SearchDirectionTask& task, double largestStep,
                                       const SearchDirectionArrays& arrays);

}  // namespace voxlith
