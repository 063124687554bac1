#include "text/exponent_lines.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "text/fixed_field.h"
#include "text/powers_of_ten.h"

namespace voxlith {

namespace {

static_assert(std::endian::native == std::endian::little, "lines are put together in words");

// Decimal exponents e of 10^e <= value < 10^(e+1) whose fields have an exponent of two digits.
constexpr int lowestExponent = -98, highestExponent = 97;
constexpr int digitsBehindFirst = exponentFieldDigits - 1;
constexpr int lowestScale = lowestExponent;  // powers of ten are needed to scale by and to compare with
constexpr int highestScale = digitsBehindFirst - lowestExponent;
static_assert(digitsBehindFirst - highestExponent >= lowestScale && highestExponent <= highestScale);
constexpr std::uint32_t behindDigits = 1000000;  // the first number with a digit too many

// Each within a unit in the last place of the power.
std::array<double, highestScale - lowestScale + 1> makePowers() {
    std::array<double, highestScale - lowestScale + 1> powers{};
    for (int p = lowestScale; p <= highestScale; ++p) {
        const PowerOfTen& power = powerOfTen(p);
        powers[static_cast<std::size_t>(p - lowestScale)] =
            std::ldexp(static_cast<double>(power.significand), power.binaryExponent);
    }
    return powers;
}

const double* powersFromLowest() {
    static const auto powers = makePowers();
    return powers.data();
}

// "E+07" of all exponents of two digits, as a word.
constexpr auto makeExponentTexts() {
    std::array<std::uint32_t, 199> texts{};
    for (int exponent = -99; exponent <= 99; ++exponent) {
        const auto size = static_cast<std::uint32_t>(exponent < 0 ? -exponent : exponent);
        const std::uint32_t sign = exponent < 0 ? '-' : '+';
        texts[static_cast<std::size_t>(exponent + 99)] =
            'E' | sign << 8 | ('0' + size / 10) << 16 | ('0' + size % 10) << 24;
    }
    return texts;
}

constexpr auto exponentTexts = makeExponentTexts();

// The six digits of a number below behindDigits, one a byte, the first one lowest, with two bytes '0' behind them. The
// number is halved into pieces of four, two and one digits, all pieces of a size at once.
std::uint64_t sixDigits(std::uint32_t number) {
    const std::uint64_t fours = number / 100 | std::uint64_t{number % 100 * 100} << 32;
    const std::uint64_t upperTwos = (fours * 5243 >> 19) & 0x0000007f0000007f;  // division by 100
    const std::uint64_t twos = upperTwos | (fours - 100 * upperTwos) << 16;
    const std::uint64_t upperOnes = (twos * 103 >> 10) & 0x000f000f000f000f;  // division by 10
    return (upperOnes | (twos - 10 * upperOnes) << 8) + 0x3030303030303030;
}

// No branch on the sign: signs come in no order, and each wrong guess costs as much as all the rest.
void putLine(char* out, std::uint64_t negative, std::uint32_t digits, int exponent) {
    constexpr std::uint64_t plainStart = ' ' | ' ' << 8 | '0' << 16 | '.' << 24;
    constexpr std::uint64_t signDifference = std::uint64_t{'-' - ' '} << 8;
    const std::uint64_t text = sixDigits(digits);
    const std::uint64_t first = (plainStart + negative * signDifference) | text << 32;
    const std::uint64_t second = (text >> 32 & 0xffff) |
                                 std::uint64_t{exponentTexts[static_cast<std::size_t>(exponent + 99)]} << 16 |
                                 std::uint64_t{'\n'} << 48;
    std::memcpy(out, &first, sizeof first);
    std::memcpy(out + sizeof first, &second, sizeof second);
}

void putLineAtLeisure(char* out, double value) {
    out = putExponent(out, value, exponentFieldWidth, exponentFieldDigits);
    *out = '\n';
}

// The six digits are what value * 10^scale rounds to. That product has an error of 2^-52 of its size at most, less than
// 3e-10; where what is rounded away is nearer to a half than that, the exact writer decides.
void putOne(char* out, double value, const double* powers) {
    constexpr double doubt = 1.0e-9;
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const double size = std::fabs(value);
    if (size == 0.0) {
        return putLine(out, bits >> 63, 0, 0);
    }
    const int field = static_cast<int>(bits >> 52 & 0x7ff);
    // By log10(2) = 315652.8 / 2^20, right or one too low. A power that is not exact may put a value beside it on the
    // wrong side; its digits then round to those of the power all the same.
    int exponent = (field - 1023) * 315652 >> 20;
    if (exponent < lowestExponent || exponent >= highestExponent) {
        return putLineAtLeisure(out, value);
    }
    exponent += static_cast<int>(size >= powers[exponent + 1 - lowestScale]);
    const double scaled = size * powers[digitsBehindFirst - exponent - lowestScale];
    auto digits = static_cast<std::uint32_t>(static_cast<std::int64_t>(scaled + 0.5));
    if (std::fabs(scaled - digits) > 0.5 - doubt) {
        return putLineAtLeisure(out, value);
    }
    if (digits == behindDigits) {
        digits /= 10;
        ++exponent;
    }
    putLine(out, bits >> 63, digits, exponent + 1);
}

}  // namespace

char* putExponentLines(char* out, std::span<const double> values) {
    const double* const powers = powersFromLowest();
    for (const double value : values) {
        putOne(out, value, powers);
        out += exponentLineBytes;
    }
    return out;
}

}  // namespace voxlith
