#include "base/number_scan.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "base/free_format.h"
#include "base/powers_of_ten.h"

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
std::size_t normaliseSpelling(std::string_view word, std::array<char, longestWord + 3>& plain) {
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
bool parseReal(std::string_view word, Real& target) {
    if (word.size() > longestWord) {
        return false;
    }
    std::array<char, longestWord + 3> plain;
    const std::size_t length = normaliseSpelling(word, plain);
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

// A decimal number as it was written: mantissa times ten to the power of exponent.
struct Decimal {
    std::uint64_t mantissa = 0;
    std::int32_t exponent = 0;
    bool negative = false;
};

// Up to eight digits at `position`, where eight characters can be read: their value, and how many they are. All eight
// are taken at once (a multiplication joins neighbours, then pairs, then fours).
std::uint64_t eightDigits(const char* position, int& count) {
    constexpr std::uint64_t eachByte = 0x0101010101010101;
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, position, sizeof bytes);
    bytes ^= '0' * eachByte;
    const std::uint64_t noDigits = (((bytes & 0x7f * eachByte) + 0x76 * eachByte) | bytes) & 0x80 * eachByte;
    count = std::countr_zero(noDigits) / 8;
    if (count == 0) {
        return 0;
    }
    bytes <<= 64 - 8 * count;
    bytes = (bytes * 10 + (bytes >> 8)) & 0x00ff00ff00ff00ff;
    bytes = (bytes * 100 + (bytes >> 16)) & 0x0000ffff0000ffff;
    return (bytes * 10000 + (bytes >> 32)) & 0xffffffff;
}

constexpr std::array<std::uint64_t, 9> wholePowers = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

// Joins the digits at `position` to the mantissa; gives the place behind them.
[[gnu::always_inline]] inline const char* joinDigits(const char* position, const char* limit, std::uint64_t& mantissa) {
    if constexpr (std::endian::native == std::endian::little) {
        while (limit - position >= 8) {
            int count = 0;
            const std::uint64_t value = eightDigits(position, count);
            mantissa = mantissa * wholePowers[static_cast<std::size_t>(count)] + value;
            position += count;
            if (count < 8) {
                return position;
            }
        }
    }
    while (isDigit(*position)) {
        mantissa = 10 * mantissa + static_cast<std::uint64_t>(*position++ - '0');
    }
    return position;
}

// Goes over an exponent behind E or D. Null pointer for other spellings.
const char* scanExponent(const char* position, std::int32_t& exponent) {
    const std::int32_t negative = *position == '-';
    position += static_cast<int>(*position == '-') | static_cast<int>(*position == '+');
    const char* const first = position;
    while (isDigit(*position) && position - first < 5) {
        exponent = 10 * exponent + (*position++ - '0');
    }
    exponent = (exponent ^ -negative) + negative;  // signs come in no order, so without a branch
    return position == first ? nullptr : position;
}

// Reads the usual spellings of at most 19 digits. Null pointer for everything else.
[[gnu::always_inline]] inline const char* scanDecimal(const char* position, const char* limit, Decimal& decimal) {
    decimal.negative = *position == '-';
    position += static_cast<int>(*position == '-') | static_cast<int>(*position == '+');
    const char* const first = position;
    while (isDigit(*position)) {
        decimal.mantissa = 10 * decimal.mantissa + static_cast<std::uint64_t>(*position++ - '0');
    }
    std::ptrdiff_t digits = position - first;
    std::ptrdiff_t fractionDigits = 0;
    if (*position == '.') {
        const char* const firstFraction = position + 1;
        position = joinDigits(firstFraction, limit, decimal.mantissa);
        fractionDigits = position - firstFraction;
        digits += fractionDigits;
    }
    if (digits == 0 || digits > 19) {
        return nullptr;
    }
    std::int32_t exponent = 0;
    if (const char letter = lower(*position); letter == 'e' || letter == 'd') {
        position = scanExponent(position + 1, exponent);
        if (position == nullptr) {
            return nullptr;
        }
    }
    decimal.exponent = exponent - static_cast<std::int32_t>(fractionDigits);
    return endsWord(*position) ? position : nullptr;
}

// The value of a decimal number, rounded once to the precision of Real. False where the 64 binary digits of the power
// of ten do not tell on which side of a middle between two neighbours the number lies, and outside the normal range.
template <class Real>
bool convertDecimal(const Decimal& decimal, Real& value) {
    using Bits = std::conditional_t<sizeof(Real) == 8, std::uint64_t, std::uint32_t>;
    constexpr int precision = std::numeric_limits<Real>::digits;
    constexpr int bias = std::numeric_limits<Real>::max_exponent - 1;
    if (decimal.mantissa == 0) {
        value = decimal.negative ? -Real{0} : Real{0};
        return true;
    }
    if (decimal.exponent < lowestPower || decimal.exponent > highestPower) {
        return false;
    }
    const PowerOfTen& power = powerOfTen(decimal.exponent);
    const int leadingZeros = std::countl_zero(decimal.mantissa);
    const std::uint64_t product = highProduct(decimal.mantissa << leadingZeros, power);
    const int dropped = 64 - std::countl_zero(product) - precision;
    // The product of two numbers of 2^63 and more has at most one leading zero, so at least 10 digits are dropped.
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
    const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
    const std::uint64_t rest = product & (2 * half - 1);
    // The field of a number whose significand has its top bit at 2^(precision - 1); rounding up may carry into it.
    const int field = power.binaryExponent + 64 - leadingZeros + dropped + precision - 1 + bias;
    if (rest == half || rest == half - 1 || field < 1 || field >= 2 * bias) {
        return false;
    }
    const Bits significand = static_cast<Bits>((product >> dropped) + (rest > half ? 1 : 0));
    const Bits topBit = Bits{1} << (precision - 1);
    const Bits sign = static_cast<Bits>(decimal.negative) << (8 * sizeof(Real) - 1);
    value = std::bit_cast<Real>(sign | ((static_cast<Bits>(field) << (precision - 1)) + (significand - topBit)));
    return true;
}

// Powers of ten that a double holds exactly.
constexpr std::array<double, 23> exactPowers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// A mantissa and a power that are both exact give the number with one operation and one rounding (W. D. Clinger, How to
// read floating point numbers accurately, 1990). Short numbers are of this kind, the ones of model files among them.
bool convertDecimal(const Decimal& decimal, double& value) {
    constexpr auto highest = static_cast<std::int32_t>(exactPowers.size()) - 1;
    constexpr std::uint64_t exactMantissas = std::uint64_t{1} << 53;
    if (decimal.mantissa > exactMantissas || decimal.exponent > highest || decimal.exponent < -highest) {
        return convertDecimal<double>(decimal, value);
    }
    const auto mantissa = static_cast<double>(static_cast<std::int64_t>(decimal.mantissa));
    const double size = decimal.exponent < 0 ? mantissa / exactPowers[static_cast<std::size_t>(-decimal.exponent)]
                                             : mantissa * exactPowers[static_cast<std::size_t>(decimal.exponent)];
    const std::uint64_t sign = static_cast<std::uint64_t>(decimal.negative) << 63;
    value = std::bit_cast<double>(std::bit_cast<std::uint64_t>(size) | sign);
    return true;
}

template <class Real>
const char* scanPlainReal(const char* word, const char* limit, Real& target) {
    Decimal decimal;
    const char* const behind = scanDecimal(word, limit, decimal);
    return behind != nullptr && convertDecimal(decimal, target) ? behind : nullptr;
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
    const auto [behind, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || behind != end) {
        return false;
    }
    target = value;
    return true;
}

const char* scanPlainNumber(const char* word, const char* limit, double& target) {
    return scanPlainReal(word, limit, target);
}
const char* scanPlainNumber(const char* word, const char* limit, float& target) {
    return scanPlainReal(word, limit, target);
}

}  // namespace voxlith
