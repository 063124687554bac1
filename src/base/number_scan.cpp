#include "base/number_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "base/exact_powers.h"

namespace voxlith {

namespace {

constexpr bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

constexpr bool isSign(char character) {
    return character == '+' || character == '-';
}

// The same number as std::from_chars and the C library spell it, zero terminated: no plus sign in front, the exponent
// after an e. What is no number stays none. Gives the length.
std::size_t normaliseSpelling(std::string_view word, std::array<char, longestWord + 2>& plain) {
    if (word.size() > 1 && word[0] == '+' && !isSign(word[1])) {
        word.remove_prefix(1);
    }
    const std::size_t marker = word.find_first_of("eEdDqQ+-", 1);
    std::size_t length = word.copy(plain.data(), std::min(marker, word.size()));
    if (marker < word.size()) {
        plain[length++] = 'e';
        length += word.copy(plain.data() + length, word.size(), isSign(word[marker]) ? marker : marker + 1);
    }
    plain[length] = '\0';
    return length;
}

// inf, infinity, nan, nan(...), with or without a sign.
template <class Real>
bool parseNamedNumber(std::string_view word, Real& target) {
    const std::size_t signLength = !word.empty() && isSign(word[0]) ? 1 : 0;
    const bool negative = signLength == 1 && word[0] == '-';
    word.remove_prefix(signLength);
    if (word.empty() || isSign(word[0])) {
        return false;
    }
    const bool inParentheses = word.size() > 4 && word[3] == '(' && word.find(')') == word.size() - 1;
    const char* const end = word.data() + (inParentheses ? 3 : word.size());
    Real value = 0;
    const auto [wordEnd, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || wordEnd != end || std::isfinite(value) || (inParentheses && !std::isnan(value))) {
        return false;
    }
    constexpr Real infinity = std::numeric_limits<Real>::infinity();
    target = std::isnan(value) ? std::numeric_limits<Real>::quiet_NaN() : negative ? -infinity : infinity;
    return true;
}

// from_chars leaves open what a number out of range becomes; the C library gives the infinity or the zero of its sign.
void convertOutOfRange(const char* plain, double& target) {
    target = std::strtod(plain, nullptr);
}
void convertOutOfRange(const char* plain, float& target) {
    target = std::strtof(plain, nullptr);
}

template <class Real>
bool parseReal(std::string_view word, Real& target) {
    const std::size_t signLength = !word.empty() && isSign(word[0]) ? 1 : 0;
    if (word.size() > longestWord || word.size() == signLength) {
        return false;
    }
    if (!isDigit(word[signLength]) && word[signLength] != '.') {
        return parseNamedNumber(word, target);
    }
    std::array<char, longestWord + 2> plain;
    const char* const end = plain.data() + normaliseSpelling(word, plain);
    Real value = 0;
    const auto [numberEnd, error] = std::from_chars(plain.data(), end, value);
    if (numberEnd != end) {
        return false;
    }
    if (error == std::errc::result_out_of_range) {
        convertOutOfRange(plain.data(), value);
    } else if (error != std::errc()) {
        return false;
    }
    target = value;
    return true;
}

// A short number: at most 15 digits times a power of ten from -22 to 22. Most numbers of most files are short, and
// their value takes one operation. Null pointer for everything else.
const char* scanShortNumber(const char* position, double& value) {
    constexpr std::ptrdiff_t mostDigits = 15;  // below 2^53
    const bool negative = *position == '-';
    position += isSign(*position) ? 1 : 0;
    std::uint64_t digits = 0;  // wraps where there are too many
    const char* const first = position;
    while (isDigit(*position) && position - first <= mostDigits) {
        digits = 10 * digits + static_cast<std::uint64_t>(*position++ - '0');
    }
    std::ptrdiff_t digitCount = position - first;
    std::ptrdiff_t decimals = 0;
    if (*position == '.') {
        const char* const firstDecimal = ++position;
        while (isDigit(*position) && position - firstDecimal <= mostDigits) {
            digits = 10 * digits + static_cast<std::uint64_t>(*position++ - '0');
        }
        decimals = position - firstDecimal;
        digitCount += decimals;
    }
    if (digitCount == 0 || digitCount > mostDigits) {
        return nullptr;
    }
    int exponent = 0;
    if (*position == 'E' || *position == 'e' || *position == 'D' || *position == 'd') {
        const bool negativeExponent = *++position == '-';
        position += isSign(*position) ? 1 : 0;
        const char* const firstDigit = position;
        while (isDigit(*position) && position - firstDigit < 3) {
            exponent = 10 * exponent + (*position++ - '0');
        }
        if (position == firstDigit) {
            return nullptr;
        }
        exponent = negativeExponent ? -exponent : exponent;
    }
    exponent -= static_cast<int>(decimals);
    if (!endsWord(*position) || exponent < -highestExactPower || exponent > highestExactPower) {
        return nullptr;
    }
    const double size = timesPowerOfTen(static_cast<double>(static_cast<std::int64_t>(digits)), exponent);
    value = negative ? -size : size;
    return position;
}

template <class Real>
const char* scanAnyLength(const char* word, const char* limit, Real& target) {
    const char* const unsignedPart = word + (isSign(*word) ? 1 : 0);
    if (!isDigit(*unsignedPart) && *unsignedPart != '.') {
        return nullptr;
    }
    word = *word == '+' ? unsignedPart : word;
    const char* const end = limit - word > static_cast<std::ptrdiff_t>(longestWord) ? word + longestWord : limit;
    Real value = 0;
    const auto [numberEnd, error] = std::from_chars(word, end, value);
    if (error != std::errc() || numberEnd == end || !endsWord(*numberEnd)) {
        return nullptr;
    }
    target = value;
    return numberEnd;
}

// Whether a double that was rounded once gives the float of the same number: not where it is the middle between two
// floats, since then the digits lost may have been on either side of it. Short numbers are within the normal range of
// floats, or 0.
bool roundsSafelyToFloat(double value) {
    constexpr std::uint64_t lostBits = (std::uint64_t{1} << 29) - 1;
    constexpr std::uint64_t middle = std::uint64_t{1} << 28;
    return (std::bit_cast<std::uint64_t>(value) & lostBits) != middle;
}

}  // namespace

bool parseNumber(std::string_view word, double& target) {
    return parseReal(word, target);
}
bool parseNumber(std::string_view word, float& target) {
    return parseReal(word, target);
}

bool parseNumber(std::string_view word, std::int32_t& target) {
    if (word.size() > 1 && word[0] == '+' && isDigit(word[1])) {
        word.remove_prefix(1);
    }
    const char* const end = word.data() + word.size();
    std::int32_t value = 0;
    const auto [numberEnd, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || numberEnd != end) {
        return false;
    }
    target = value;
    return true;
}

const char* scanNumber(const char* word, const char* limit, double& target) {
    assert(word < limit);
    const char* const end = scanShortNumber(word, target);
    return end != nullptr ? end : scanAnyLength(word, limit, target);
}

const char* scanNumber(const char* word, const char* limit, float& target) {
    assert(word < limit);
    double value = 0;
    const char* const end = scanShortNumber(word, value);
    if (end == nullptr || !roundsSafelyToFloat(value)) {
        return scanAnyLength(word, limit, target);
    }
    target = static_cast<float>(value);
    return end;
}

}  // namespace voxlith
