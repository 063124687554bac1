#include "base/rounded_digits.h"

#include <array>
#include <bit>
#include <cstddef>

#include "base/powers_of_ten.h"

namespace voxlith {

namespace {

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

}  // namespace

bool leadingDigits(double value, int digits, std::uint32_t& rounded, int& exponent) {
    BinaryNumber number = binaryNumber(value);
    const int leadingZeros = std::countl_zero(number.significand);
    number.significand <<= leadingZeros;
    number.binaryExponent -= leadingZeros;
    // The decimal exponent from the binary one by log10(2) = 315652.8 / 2^20 is right or one too low: too low where a
    // power of ten with the same binary exponent is not above the number. No branch, since nobody could foretell it.
    const int topBit = number.binaryExponent + 63;
    int decimalExponent = topBit * 315652 >> 20;
    const PowerOfTen& next = powerOfTen(decimalExponent + 1);
    decimalExponent +=
        static_cast<int>(next.binaryExponent + 63 == topBit) & static_cast<int>(number.significand >= next.significand);
    const PowerOfTen& power = powerOfTen(digits - 1 - decimalExponent);
    const std::uint64_t product = highProduct(number.significand, power);
    const int shift = -(number.binaryExponent + power.binaryExponent + 64);
    if (shift > 63) {
        return false;
    }
    std::uint64_t whole = product >> shift;
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
