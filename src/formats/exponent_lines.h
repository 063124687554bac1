// Model values as text: one a line, each in a field of 14 characters with 6 digits, "  0.123456E+01" for 1.23456. The
// same characters as putExponent gives, made for millions of values at every iteration: many lines at once, with the
// widest instructions that the machine has.
#pragma once

#include <cstddef>
#include <span>

#include "simd/instruction_set.h"

namespace voxlith {

constexpr int exponentFieldWidth = 14, exponentFieldDigits = 6;
constexpr std::size_t exponentLineBytes = exponentFieldWidth + 1;

// Bytes to have at hand for so many lines: the last one is put with a byte to spare.
constexpr std::size_t exponentLinesSize(std::size_t count) {
    return exponentLineBytes * count + 1;
}

// Puts the lines of `values` at `out`, which has the room above, and returns what is behind the last line end.
char* putExponentLines(char* out, std::span<const double> values, InstructionSet instructions);

}  // namespace voxlith
