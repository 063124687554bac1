// The one writer of fixed-width fields: F (fixed point), E (exponent) and I (integer), right-aligned, asterisks where a
// number does not fit, exponents of three digits without the letter E. The rounding is that of the exact binary value,
// ties to the even digit, as std::to_chars has it. Nothing is allocated.
#pragma once

#include <cstdint>

namespace voxlith {

// Each writes exactly `width` characters at `out` and returns out + width.

// Fixed point with `decimals` digits after the point: F10.3 is putFixed(out, v, 10, 3). A leading zero before the
// point is left out when only so the number fits.
char* putFixed(char* out, double value, int width, int decimals);

// Exponent form with a leading zero and `digits` significant digits: 1.23456 as E14.6 is "  0.123456E+01".
char* putExponent(char* out, double value, int width, int digits);

char* putInteger(char* out, std::int64_t value, int width);

// At least `digits` digits with leading zeros, right-aligned in `width` (I4.2 is width 4, digits 2).
char* putIntegerZeros(char* out, std::int64_t value, int width, int digits);

}  // namespace voxlith
