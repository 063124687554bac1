// The few leading decimal digits of a double, correctly rounded, without the cost of a general algorithm: what model
// files, observed data and tables are made of.
#pragma once

#include <cstdint>

namespace voxlith {

constexpr int mostRoundedDigits = 9;
constexpr int mostRoundedDecimals = 9;
constexpr double roundedDecimalsLimit = 1.0e9;

// For a finite value above 0 and 1 to 9 digits: value = 0.DIGITS * 10^exponent, DIGITS rounded to nearest and without
// leading zeros. False where the rounding is not certain, that is where the value lies on the middle between two such
// numbers or nearer to it than the arithmetic here can tell (2^-29 of their distance): a general algorithm has to
// decide then.
bool leadingDigits(double value, int digits, std::uint32_t& rounded, int& exponent);

// For 0 <= value < roundedDecimalsLimit and 0 to 9 decimals: value * 10^decimals, rounded to nearest, ties to even,
// always exact.
std::uint64_t roundedDecimals(double value, int decimals);

}  // namespace voxlith
