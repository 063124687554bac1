// From the characters of one number to its value, rounded once to the precision of the target.
#pragma once

#include <cstdint>
#include <string_view>

namespace voxlith {

// What ends a word of free-format text.
constexpr std::string_view separators = " \n,\t\r/";
constexpr bool endsWord(char character) {
    return separators.find(character) != std::string_view::npos;
}

// The whole word as a number; false, and the target unchanged, when it is none. Reals: digits with at most one point,
// exponent behind E, D or Q or a sign alone; inf, infinity, nan and nan(...) in any case. A number too large gives an
// infinity, one too small gives zero. Integers: sign and digits, within 32 bits.
bool wordToNumber(std::string_view word, double& target);
bool wordToNumber(std::string_view word, float& target);
bool wordToNumber(std::string_view word, std::int32_t& target);

// The number that begins at `word` when it is of the usual spelling; gives the place behind it, or a null pointer, with
// the target unchanged, when the word needs wordToNumber. The word must be followed by a separator; the characters up
// to `limit`, behind that separator, can be read.
const char* scanPlainNumber(const char* word, const char* limit, double& target);
const char* scanPlainNumber(const char* word, const char* limit, float& target);

}  // namespace voxlith
