// Powers of ten to 64 binary digits, for the conversions between decimal text and doubles in both directions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace voxlith {

__extension__ typedef unsigned __int128 DoubleWord;

constexpr int lowestPower = -345;
constexpr int highestPower = 345;

// 10^p = (significand + error) * 2^binaryExponent, with significand >= 2^63 and 0 <= error < 1.
struct PowerOfTen {
    std::uint64_t significand = 0;
    std::int32_t binaryExponent = 0;
};

extern const std::array<PowerOfTen, highestPower - lowestPower + 1> powersOfTen;

// For lowestPower <= power <= highestPower.
inline const PowerOfTen& powerOfTen(int power) {
    return powersOfTen[static_cast<std::size_t>(power - lowestPower)];
}

// The high word of significand * power.significand. The exact product with the power itself, divided by 2^64, lies at
// most 2 above.
inline std::uint64_t highProduct(std::uint64_t significand, const PowerOfTen& power) {
    return static_cast<std::uint64_t>((DoubleWord{significand} * power.significand) >> 64);
}

}  // namespace voxlith
