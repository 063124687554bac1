// What bounds do to a block of the variables: the box, the projected gradient, the start of the projected path, steps
// that leave the box. Branches would be taken at random here, so all is done by comparing and choosing; every variable
// by itself, so that the results are the same bytes whatever instructions the machine has.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "optim/lbfgsb/block_kernels.h"
#include "simd/instruction_set.h"

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
// are the box, else to its own room.
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

// Bound codes, flags and bounds of the same block. The bound of an unused side has no influence, even if no number.
struct BoundsBlock {
    const std::int32_t* code = nullptr;
    const std::int32_t* fixed = nullptr;
    const double* lower = nullptr;
    const double* upper = nullptr;
    std::size_t length = 0;
    bool uniform = false;  // all variables have the same code, and none is fixed
};

void formBox(const BoundsBlock& bounds, BoxBlock& box, InstructionSet instructions);

// projected[i] = g[i], or what is left of it where x would be carried out of the box; 0 where the flag is 1.
void projectGradient(const BoundsBlock& bounds, const BoxBlock& box, const double* x, const double* g,
                     double* projected, InstructionSet instructions);

// True if x + step * d lies outside of the box for a variable that moves towards the bound.
bool leavesBox(const BoxBlock& box, std::size_t length, const double* x, const double* d, double step,
               InstructionSet instructions);

// When a variable meets its bound; infinite if it has none on its way.
inline double timeToBound(double x, double lower, double upper, double direction) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double room = direction < 0.0 ? x - lower : upper - x;
    const double speed = direction < 0.0 ? -direction : direction;
    const double time = room / speed;
    return speed > 0.0 ? time : infinity;
}

// What the start of the path of steepest descent says about all variables.
struct PathStart {
    std::size_t breakpointCount = 0;                             // variables that meet a bound
    std::size_t freeCount = 0;                                   // variables that are free
    double leastTime = std::numeric_limits<double>::infinity();  // of the first breakpoint
    double directionSquared = 0.0;
    bool bounded = true;  // every variable that moves meets a bound
    bool moves = false;   // some variable moves, or might for all that is known
};

// Sets status and direction of a block from its point x and gradient g, and adds what it says to the start of the path.
// (Byrd et al. 1995, equations 4.1 and 4.2.)
void startPathBlock(const BoxBlock& box, std::size_t length, const double* x, const double* g, std::int32_t* status,
                    double* direction, PathStart& path, InstructionSet instructions);

}  // namespace voxlith
