// The box of the L-BFGS-B engine: bound codes, the check of the arguments, the status of each variable, projections.
//
// Bound codes: 0 none, 1 lower, 2 upper, 3 both, 5 fixed by equal bounds. Codes 4 and 5 set no bound of their own here:
// such variables are fixed by their flag. Bounds of an unused side are never read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "optim/lbfgsb/box_kernels.h"
#include "optim/task_word.h"

namespace voxlith {

// The problem as the caller states it; all arrays have n elements.
struct BoxProblem {
    std::int32_t n = 0;
    std::int32_t m = 0;                       // corrections to remember
    std::span<const double> l, u;             // bounds
    std::span<const std::int32_t> nbd;        // bound codes
    std::span<const std::int32_t> fixedFlag;  // not 0: the variable keeps its value
    std::span<const double> maxStep;          // above 0: largest change in the first search
    std::span<const std::int32_t> uniform{};  // of each block, set by findUniformBlocks; empty: not known
};

// Properties of the problem that follow from its bounds.
struct BoxKind {
    bool startProjected = false;  // the start point was outside its bounds
    bool constrained = false;     // some code or some flag is not 0
    bool boxed = false;           // all codes are 3
};

// Checks n, m, factr, codes and bounds. False, with the error text in `task`, if one is invalid; of several, the last
// in the order n, m, factr, variable 1 to n is reported. Arrays of n <= 0 variables are not read.
bool argumentsAreValid(const BoxProblem& problem, double factr, TaskWord& task);

// Projects the start point x into its bounds, fixed variables excepted, and sets the first status of each variable.
BoxKind setUpVariables(const BoxProblem& problem, std::span<double> x, std::span<std::int32_t> status);

// Sets uniform[b] to 1 where all variables of block b have the same code and none of them is fixed, else to 0: the
// bounds of such a block are its box, and codes and flags need not be read from memory at every pass.
void findUniformBlocks(const BoxProblem& problem, std::span<std::int32_t> uniform);

// Largest absolute component of the projected gradient P(x - g) - x, P being the projection into the box (Zhu et al.
// 1997, section 3). Variables with flag 1 contribute nothing, those with another flag |g|. NaN if one component is.
// Where it exceeds `enough`, some component that does may be returned in its place: the first blocks decide, then.
double projectedGradientNorm(const BoxProblem& problem, std::span<const double> x, std::span<const double> g,
                             double enough = std::numeric_limits<double>::infinity());

// The same for a problem without bounds and fixed variables.
double gradientNorm(std::span<const double> g, double enough = std::numeric_limits<double>::infinity());

// The box of the block that begins at variable `first`, a multiple of blockLength.
void boxOfBlock(const BoxProblem& problem, std::size_t first, std::size_t length, BoxBlock& box);

// Puts variables that rounding has carried across a bound back onto it; fixed variables excepted.
void clampToBounds(const BoxProblem& problem, std::span<double> x);
void clampBlock(const BoxBlock& box, std::size_t length, double* x);

// A step that is cut at the first bound it meets.
struct StepToBound {
    double length = 1.0;
    std::size_t variable = 0;  // the last one that shortened it
    bool shortened = false;
};

// Shortens step.length so that x + length * d stays in the box, for the block that begins at variable `first`; x and d
// are those of the block.
void shortenStep(const BoxBlock& box, std::size_t first, std::size_t length, const double* x, const double* d,
                 StepToBound& step);

// The same after a call for the block alone, which has given `ofBlock` from a step at least as long as this one. Only a
// block that can shorten the step further is visited again. Blocks in ascending order give the same bytes as one
// pass.
void shortenStepAsBlock(const BoxProblem& problem, std::size_t first, std::size_t length, const double* x,
                        const double* d, const StepToBound& ofBlock, StepToBound& step);

// The largest step, at most `limit`, along d that changes no variable by more than its maxStep.
double largestAllowedStep(const BoxProblem& problem, std::span<const double> d, double limit);

}  // namespace voxlith
