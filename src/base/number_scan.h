// Numbers of free-format text: from the characters of a word to its value, rounded once to the precision of the target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace voxlith {

// What ends a word of free-format text.
constexpr std::string_view separators = " \n,\t\r/";
constexpr bool endsWord(char character) {
    return character == ' ' || character == '\n' || character == ',' || character == '\t' || character == '\r' ||
           character == '/';
}

// A longer word is bad text, whatever it holds, so that a file of endless digits takes neither memory nor time.
constexpr std::size_t longestWord = 1024;

// The whole word as a number; false, and the target unchanged, when it is none. Reals: digits with at most one point,
// exponent after E, D or Q or a sign alone; inf, infinity, nan and nan(...) in any case. A number too large gives an
// infinity, one too small gives zero. Integers: sign and digits, within 32 bits.
bool parseNumber(std::string_view word, double& target);
bool parseNumber(std::string_view word, float& target);
bool parseNumber(std::string_view word, std::int32_t& target);

// The number that begins at `word` when it has the usual spelling; gives its end, or a null pointer, with the target
// unchanged, when the word needs parseNumber. A separator must follow the word before `limit`.
const char* scanNumber(const char* word, const char* limit, double& target);
const char* scanNumber(const char* word, const char* limit, float& target);

}  // namespace voxlith
