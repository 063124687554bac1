#include "text/number_scan.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <limits>

#include "text/free_format.h"

namespace voxlith {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}
char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// Goes over the digits at `position`; the count of them is added to `digits`.
std::size_t skipDigits(std::string_view word, std::size_t position, std::size_t& digits) {
    while (position < word.size() && isDigit(word[position])) {
        ++position;
        ++digits;
    }
    return position;
}

bool equalsWithoutCase(std::string_view word, std::string_view lowerCaseWord) {
    if (word.size() != lowerCaseWord.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (lower(word[i]) != lowerCaseWord[i]) {
            return false;
        }
    }
    return true;
}

// inf, infinity, nan, nan(...), with or without a sign.
template <class Real>
bool namedNumber(std::string_view word, Real& target) {
    const bool negative = !word.empty() && word.front() == '-';
    if (!word.empty() && (word.front() == '-' || word.front() == '+')) {
        word.remove_prefix(1);
    }
    if (equalsWithoutCase(word, "inf") || equalsWithoutCase(word, "infinity")) {
        const Real infinity = std::numeric_limits<Real>::infinity();
        target = negative ? -infinity : infinity;
        return true;
    }
    const bool brackets = word.size() > 4 && word[3] == '(' && word.find(')') == word.size() - 1;
    if (equalsWithoutCase(brackets ? word.substr(0, 3) : word, "nan")) {
        target = std::numeric_limits<Real>::quiet_NaN();
        return true;
    }
    return false;
}

// The same number as the C library spells it, zero terminated: the exponent behind an e. Gives its length, 0 for no
// number.
std::size_t spellPlainly(std::string_view word, std::array<char, longestWord + 3>& plain) {
    std::size_t length = 0;
    std::size_t position = 0;
    std::size_t digits = 0;
    if (!word.empty() && (word[0] == '+' || word[0] == '-')) {
        position = 1;
    }
    position = skipDigits(word, position, digits);
    if (position < word.size() && word[position] == '.') {
        position = skipDigits(word, position + 1, digits);
    }
    if (digits == 0) {
        return 0;
    }
    const std::size_t first = word[0] == '+' ? 1 : 0;
    length = word.copy(plain.data(), position - first, first);
    if (position < word.size()) {
        const char letter = lower(word[position]);
        if (letter == 'e' || letter == 'd' || letter == 'q') {
            ++position;
        } else if (letter != '+' && letter != '-') {
            return 0;
        }
        plain[length++] = 'e';
        if (position < word.size() && (word[position] == '+' || word[position] == '-')) {
            plain[length++] = word[position++];
        }
        std::size_t exponentDigits = 0;
        const std::size_t behind = skipDigits(word, position, exponentDigits);
        if (exponentDigits == 0 || behind != word.size()) {
            return 0;
        }
        length += word.copy(plain.data() + length, exponentDigits, position);
    }
    plain[length] = '\0';
    return length;
}

// from_chars leaves open what a number out of range becomes; the C library gives the infinity or the zero of its sign.
void convertOutOfRange(const char* plain, double& target) {
    target = std::strtod(plain, nullptr);
}
void convertOutOfRange(const char* plain, float& target) {
    target = std::strtof(plain, nullptr);
}

template <class Real>
bool wordToReal(std::string_view word, Real& target) {
    if (word.size() > longestWord) {
        return false;
    }
    std::array<char, longestWord + 3> plain;
    const std::size_t length = spellPlainly(word, plain);
    if (length == 0) {
        return namedNumber(word, target);
    }
    Real value = 0;
    const auto [behind, error] = std::from_chars(plain.data(), plain.data() + length, value);
    if (error == std::errc::result_out_of_range) {
        convertOutOfRange(plain.data(), value);
    } else if (error != std::errc() || behind != plain.data() + length) {
        return false;
    }
    target = value;
    return true;
}

constexpr std::array<double, 23> exactPowers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// A decimal number as it was written: mantissa times ten to the power of exponent.
struct Decimal {
    std::uint64_t mantissa = 0;
    std::int32_t exponent = 0;
    bool negative = false;
};

// Reads the usual spellings of at most 19 digits. Null pointer for everything else.
const char* scanDecimal(const char* position, Decimal& decimal) {
    decimal.negative = *position == '-';
    position += *position == '-' || *position == '+' ? 1 : 0;
    const char* const first = position;
    std::uint64_t mantissa = 0;
    while (isDigit(*position)) {
        mantissa = 10 * mantissa + static_cast<std::uint64_t>(*position++ - '0');
    }
    std::ptrdiff_t digits = position - first;
    std::ptrdiff_t fractionDigits = 0;
    if (*position == '.') {
        const char* const firstFraction = ++position;
        while (isDigit(*position)) {
            mantissa = 10 * mantissa + static_cast<std::uint64_t>(*position++ - '0');
        }
        fractionDigits = position - firstFraction;
        digits += fractionDigits;
    }
    if (digits == 0 || digits > 19) {
        return nullptr;
    }
    std::int32_t exponent = 0;
    if (const char letter = lower(*position); letter == 'e' || letter == 'd') {
        ++position;
        const bool negativeExponent = *position == '-';
        position += *position == '-' || *position == '+' ? 1 : 0;
        const char* const firstExponent = position;
        while (isDigit(*position) && position - firstExponent < 5) {
            exponent = 10 * exponent + (*position++ - '0');
        }
        if (position == firstExponent) {
            return nullptr;
        }
        exponent = negativeExponent ? -exponent : exponent;
    }
    decimal.mantissa = mantissa;
    decimal.exponent = exponent - static_cast<std::int32_t>(fractionDigits);
    return endsWord(*position) ? position : nullptr;
}

// Mantissa and power of ten are both exact in a double, so their product or quotient is rounded once (Clinger, "How to
// read floating point numbers accurately", 1990).
bool convertExactly(const Decimal& decimal, double& value) {
    if (decimal.mantissa > (std::uint64_t{1} << 53) || decimal.exponent < -22 || decimal.exponent > 22) {
        return false;
    }
    value = static_cast<double>(decimal.mantissa);
    if (decimal.exponent < 0) {
        value /= exactPowers[static_cast<std::size_t>(-decimal.exponent)];
    } else {
        value *= exactPowers[static_cast<std::size_t>(decimal.exponent)];
    }
    value = decimal.negative ? -value : value;
    return true;
}

// A double that was rounded once may be rounded again to a float unless it lies exactly halfway between two of them:
// only then can the first rounding have hidden on which side the number was. Floats below the normal ones have other
// halfway points.
bool narrowExactly(double value, float& target) {
    constexpr std::uint64_t droppedBits = (std::uint64_t{1} << 29) - 1;
    const bool halfway = (std::bit_cast<std::uint64_t>(value) & droppedBits) == std::uint64_t{1} << 28;
    const double size = value < 0 ? -value : value;
    if (halfway || (size < 1.2e-38 && size > 0) || size > 3.4e38) {
        return false;
    }
    target = static_cast<float>(value);
    return true;
}

}  // namespace

bool wordToNumber(std::string_view word, double& target) {
    return wordToReal(word, target);
}
bool wordToNumber(std::string_view word, float& target) {
    return wordToReal(word, target);
}

bool wordToNumber(std::string_view word, std::int32_t& target) {
    if (word.size() > 1 && word[0] == '+' && isDigit(word[1])) {
        word.remove_prefix(1);
    }
    const char* const end = word.data() + word.size();
    std::int32_t value = 0;
    const auto [behind, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || behind != end) {
        return false;
    }
    target = value;
    return true;
}

const char* scanPlainNumber(const char* word, double& target) {
    Decimal decimal;
    const char* const behind = scanDecimal(word, decimal);
    if (behind == nullptr || !convertExactly(decimal, target)) {
        return nullptr;
    }
    return behind;
}

const char* scanPlainNumber(const char* word, float& target) {
    double value = 0;
    const char* const behind = scanPlainNumber(word, value);
    return behind != nullptr && narrowExactly(value, target) ? behind : nullptr;
}

}  // namespace voxlith
