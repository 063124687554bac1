// The positivity flag of the control file: which sign the model may have. It acts through the bounds; the strict form
// also adds a logarithmic barrier to the objective.
#pragma once

#include <cstdint>

namespace voxlith {

enum class Positivity : std::int32_t {
    notGiven = -999,  // until the data type has decided
    negative = -1,
    unconstrained = 0,
    positive = 1,
    strictlyPositive = 2,
};

// Smallest value of a strictly positive model.
constexpr float strictPositiveMinimum = 1.0e-5F;

constexpr std::int32_t codeOf(Positivity flag) {
    return static_cast<std::int32_t>(flag);
}

// Flags without a name take the side of their sign.
constexpr bool requiresNegative(Positivity flag) {
    return codeOf(flag) < 0;
}

constexpr bool requiresPositive(Positivity flag) {
    return codeOf(flag) > 0;
}

constexpr bool isStrict(Positivity flag) {
    return flag == Positivity::strictlyPositive;
}

// Lower bound of a cell under a flag above 0.
constexpr float smallestPositive(Positivity flag) {
    return isStrict(flag) ? strictPositiveMinimum : 0.0F;
}

}  // namespace voxlith
