// The powers of ten that are exact as doubles. An integer below 2^53 multiplied or divided by one of them is rounded
// once (W. D. Clinger, How to read floating point numbers accurately, 1990).
#pragma once

#include <array>
#include <cstddef>

namespace voxlith {

constexpr int highestExactPower = 22;

inline constexpr std::array<double, highestExactPower + 1> exactPowers = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// value * 10^power, rounded once, for powers from -22 to 22.
constexpr double timesPowerOfTen(double value, int power) {
    return power < 0 ? value / exactPowers[static_cast<std::size_t>(-power)]
                     : value * exactPowers[static_cast<std::size_t>(power)];
}

}  // namespace voxlith
