// What bounds do to a block of the variables: the box, the projected gradient, the start of the projected path, steps
// that leave the box. Variables at a bound and free ones alternate at random, so the kernels compare and select instead
// of branching. Each variable is computed by itself, so the results are the same bytes for all instruction sets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "optim/lbfgsb/block_kernels.h"

namespace voxlith {

inline bool hasLowerBound(std::int32_t code) {
    return code == 1 || code == 3;
}
inline bool hasUpperBound(std::int32_t code) {
    return code == 2 || code == 3;
}

// Status of a variable, kept between calls. Up to 0 the variable is free in the subspace step.
enum VariableStatus : std::int32_t {
    freeWithoutGradient = -3,  // free, and its gradient is 0
    unbounded = -1,            // free for the whole run
    freeBetweenBounds = 0,
    atLowerBound = 1,
    atUpperBound = 2,
    alwaysFixed = 3,  // fixed by flag or by equal bounds for the whole run
};
inline bool isFree(std::int32_t status) {
    return status <= 0;
}

// The box of a block: infinite where a variable has no bound or is fixed. It points to the bounds themselves where they
// are the box, else to its own buffers; so it is not copied.
struct BoxBlock {
    BoxBlock() = default;
    ~BoxBlock() = default;
    BoxBlock(const BoxBlock&) = delete;
    BoxBlock& operator=(const BoxBlock&) = delete;
    BoxBlock(BoxBlock&&) = delete;
    BoxBlock& operator=(BoxBlock&&) = delete;

    const double* lower = nullptr;
    const double* upper = nullptr;
    std::array<double, blockLength> lowerBuffer, upperBuffer;
};

// Bound codes, flags and bounds of the same block. The bound of an unused side has no influence, even if it is NaN.
struct BoundsBlock {
    const std::int32_t* code = nullptr;
    const std::int32_t* fixed = nullptr;
    const double* lower = nullptr;
    const double* upper = nullptr;
    std::size_t length = 0;  // at most blockLength
    bool uniform = false;    // all variables have the same code, and none is fixed
};

// The time at which a variable meets its bound; infinite if it does not.
inline double timeToBound(double x, double lower, double upper, double direction) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double distance = direction < 0.0 ? x - lower : upper - x;
    const double speed = direction < 0.0 ? -direction : direction;
    const double time = distance / speed;
    return speed > 0.0 ? time : infinity;
}

// The start of the path of steepest descent, over all variables.
struct PathStart {
    std::size_t breakpointCount = 0;                             // variables that meet a bound
    std::size_t freeCount = 0;                                   // variables that are free
    double leastTime = std::numeric_limits<double>::infinity();  // of the first breakpoint
    double directionSquared = 0.0;
    bool bounded = true;  // every variable that moves meets a bound
    bool moves = false;   // some variable is free with a gradient other than 0, or without any bound
};

struct BoxKernels {
    // The box of a block that is not uniform, in its own buffers.
    void (*fillBox)(const BoundsBlock& bounds, BoxBlock& box);

    // projected[i] = g[i], or the part of it that keeps x - g in the box; 0 where the flag is 1.
    void (*projectGradient)(const BoundsBlock& bounds, const BoxBlock& box, const double* x, const double* g,
                            double* projected);

    // True if x + step * d is outside the box for a variable that moves towards the bound.
    bool (*leavesBox)(const BoxBlock& box, std::size_t length, const double* x, const double* d, double step);

    // Sets status and direction of a block from its point x and gradient g, and adds them to the start of the path
    // (Byrd et al. 1995, equations 4.1 and 4.2). directionSquared is not changed.
    void (*startPath)(const BoxBlock& box, std::size_t length, const double* x, const double* g, std::int32_t* status,
                      double* direction, PathStart& path);
};

// For the widest instruction set.
const BoxKernels& boxKernels();

// The box of a block: of a uniform one the bounds themselves, of others by fillBox.
void formBox(const BoundsBlock& bounds, BoxBlock& box);

}  // namespace voxlith
