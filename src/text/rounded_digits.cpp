#include "text/rounded_digits.h"

#include <array>
#include <bit>
#include <cstddef>

namespace voxlith {

namespace {

__extension__ typedef unsigned __int128 DoubleWord;

constexpr int lowestPower = -310;
constexpr int highestPower = 340;

// 10^p = (significand + error) * 2^(binaryExponent), with significand >= 2^63 and 0 <= error < 1.
struct PowerOfTen {
    std::uint64_t significand = 0;
    std::int32_t binaryExponent = 0;
};

// A number of 192 bits while the table is made, the most significant word of 32 bits first and its top bit set.
struct LongNumber {
    std::array<std::uint32_t, 6> words{};
    std::int32_t binaryExponent = 0;  // of the last bit of the first two words
};

constexpr void shiftLeftOne(LongNumber& number) {
    for (std::size_t i = 0; i < number.words.size(); ++i) {
        const std::uint32_t carry = i + 1 < number.words.size() ? number.words[i + 1] >> 31 : 0;
        number.words[i] = (number.words[i] << 1) | carry;
    }
    --number.binaryExponent;
}

constexpr void shiftRightOne(LongNumber& number, std::uint32_t topBit) {
    for (std::size_t i = number.words.size(); i-- > 0;) {
        const std::uint32_t carry = i > 0 ? number.words[i - 1] & 1 : topBit;
        number.words[i] = (number.words[i] >> 1) | (carry << 31);
    }
    ++number.binaryExponent;
}

constexpr void timesTen(LongNumber& number) {
    std::uint64_t carry = 0;
    for (std::size_t i = number.words.size(); i-- > 0;) {
        carry += std::uint64_t{number.words[i]} * 10;
        number.words[i] = static_cast<std::uint32_t>(carry);
        carry >>= 32;
    }
    while (carry != 0) {
        shiftRightOne(number, static_cast<std::uint32_t>(carry & 1));
        carry >>= 1;
    }
}

constexpr void byTen(LongNumber& number) {
    std::uint64_t rest = 0;
    for (std::uint32_t& word : number.words) {
        const std::uint64_t part = (rest << 32) | word;
        word = static_cast<std::uint32_t>(part / 10);
        rest = part % 10;
    }
    while ((number.words[0] >> 31) == 0) {
        shiftLeftOne(number);
    }
}

constexpr PowerOfTen roundDown(const LongNumber& number) {
    return {(std::uint64_t{number.words[0]} << 32) | number.words[1], number.binaryExponent};
}

// Each step loses less than a unit in the last of 192 bits, so 340 of them do not reach the first 64.
constexpr auto makePowersOfTen() {
    std::array<PowerOfTen, highestPower - lowestPower + 1> powers{};
    LongNumber one;
    one.words[0] = std::uint32_t{1} << 31;
    one.binaryExponent = -63;
    LongNumber number = one;
    for (int power = 0; power <= highestPower; ++power) {
        powers[static_cast<std::size_t>(power - lowestPower)] = roundDown(number);
        timesTen(number);
    }
    number = one;
    for (int power = -1; power >= lowestPower; --power) {
        byTen(number);
        powers[static_cast<std::size_t>(power - lowestPower)] = roundDown(number);
    }
    return powers;
}

constexpr auto powersOfTen = makePowersOfTen();

constexpr std::array<std::uint32_t, mostRoundedDigits + 1> smallPowers = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

// value = significand * 2^binaryExponent.
struct BinaryNumber {
    std::uint64_t significand = 0;
    int binaryExponent = 0;
};

BinaryNumber binaryNumber(double value) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    const int field = static_cast<int>(bits >> 52 & 0x7ff);
    if (field == 0) {
        return {fraction, -1074};
    }
    return {fraction | std::uint64_t{1} << 52, field - 1075};
}

// The high word of significand * 10^power. The true product divided by 2^64 lies less than 2 above it.
std::uint64_t highProduct(std::uint64_t significand, const PowerOfTen& power) {
    return static_cast<std::uint64_t>((DoubleWord{significand} * power.significand) >> 64);
}

}  // namespace

bool leadingDigits(double value, int digits, std::uint32_t& rounded, int& exponent) {
    BinaryNumber number = binaryNumber(value);
    const int leadingZeros = std::countl_zero(number.significand);
    number.significand <<= leadingZeros;
    number.binaryExponent -= leadingZeros;
    // The decimal exponent from the binary one by log10(2) = 315652.8 / 2^20: right or one too low.
    int decimalExponent = (number.binaryExponent + 63) * 315652 >> 20;
    std::uint64_t product = 0;
    std::uint64_t whole = 0;
    int shift = 0;
    for (;; ++decimalExponent) {
        const PowerOfTen& power = powersOfTen[static_cast<std::size_t>(digits - 1 - decimalExponent - lowestPower)];
        product = highProduct(number.significand, power);
        shift = -(number.binaryExponent + power.binaryExponent + 64);
        if (shift > 63) {
            return false;
        }
        whole = product >> shift;
        if (whole < smallPowers[static_cast<std::size_t>(digits)]) {
            break;
        }
    }
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    const std::uint64_t rest = product & (2 * half - 1);
    if (rest == half || rest == half - 1) {
        return false;
    }
    whole += rest > half ? 1 : 0;
    if (whole == smallPowers[static_cast<std::size_t>(digits)]) {
        whole /= 10;
        ++decimalExponent;
    }
    rounded = static_cast<std::uint32_t>(whole);
    exponent = decimalExponent + 1;
    return true;
}

std::uint64_t roundedDecimals(double value, int decimals) {
    const BinaryNumber number = binaryNumber(value);
    const DoubleWord scaled = DoubleWord{number.significand} * smallPowers[static_cast<std::size_t>(decimals)];
    const int shift = -number.binaryExponent;
    // The product has less than 83 bits, so that far to the right nothing is left that could round up.
    if (shift > 100) {
        return 0;
    }
    const DoubleWord half = DoubleWord{1} << (shift - 1);
    const DoubleWord rest = scaled & (2 * half - 1);
    const std::uint64_t whole = static_cast<std::uint64_t>(scaled >> shift);
    const bool up = rest > half || (rest == half && (whole & 1) != 0);
    return whole + (up ? 1 : 0);
}

}  // namespace voxlith
