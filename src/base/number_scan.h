// From the characters of one number to its value, rounded once to the precision of the target.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace voxlith {

// What ends a word of free-format text.
constexpr std::string_view separators = " \n,\t\r/";
constexpr bool endsWord(char character) {
    return character == ' ' || character == '\n' || character == ',' || character == '\t' || character == '\r' ||
           character == '/';
}

// The whole word as a number; false, and the target unchanged, when it is none. Reals: digits with at most one point,
// exponent behind E, D or Q or a sign alone; inf, infinity, nan and nan(...) in any case. A number too large gives an
// infinity, one too small gives zero. Integers: sign and digits, within 32 bits.
bool parseNumber(std::string_view word, double& target);
bool parseNumber(std::string_view word, float& target);
bool parseNumber(std::string_view word, std::int32_t& target);

// The first character from `position` on that is no blank, or `limit`.
inline const char* skipBlanks(const char* position, const char* limit) {
    constexpr std::uint64_t eightBlanks = 0x2020202020202020;
    if constexpr (std::endian::native == std::endian::little) {
        while (limit - position >= 8) {
            std::uint64_t bytes = 0;
            std::memcpy(&bytes, position, sizeof bytes);
            bytes ^= eightBlanks;
            if (bytes != 0) {
                return position + std::countr_zero(bytes) / 8;
            }
            position += 8;
        }
    }
    while (position < limit && *position == ' ') {
        ++position;
    }
    return position;
}

// The number that begins at `word` when it is of the usual spelling; gives the place behind it, or a null pointer, with
// the target unchanged, when the word needs parseNumber. The word must be followed by a separator; the characters up
// to `limit`, behind that separator, can be read.
const char* scanPlainNumber(const char* word, const char* limit, double& target);
const char* scanPlainNumber(const char* word, const char* limit, float& target);

}  // namespace voxlith
