#include "base/fixed_field.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "base/exact_powers.h"

namespace voxlith {

namespace {

// The largest double in fixed form with as many decimals as a field of a line can have.
using NumberText = std::array<char, 1400>;

char* copyText(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* putSpaces(char* out, int count) {
    std::memset(out, ' ', static_cast<std::size_t>(count));
    return out + count;
}

char* putAsterisks(char* out, int width) {
    return std::fill_n(out, std::max(width, 0), '*');
}

char* putNotFinite(char* out, double value, int width) {
    const std::string_view sign = !std::isnan(value) && std::signbit(value) ? "-" : "";
    std::string_view word = std::isnan(value) ? "NaN" : "Infinity";
    if (static_cast<int>(word.size() + sign.size()) > width) {
        word = word.substr(0, 3);
    }
    const int used = static_cast<int>(word.size() + sign.size());
    if (used > width) {
        return putAsterisks(out, width);
    }
    return copyText(copyText(putSpaces(out, width - used), sign), word);
}

// The digits of a value that is not negative, with a point and at least one digit before it. Gives an empty text when
// the number is longer than any field.
std::string_view spellFixed(double value, int decimals, NumberText& text) {
    auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size() - 1, value, std::chars_format::fixed, decimals);
    if (error != std::errc()) {
        return {};
    }
    if (decimals == 0) {
        *end++ = '.';
    }
    return {text.data(), static_cast<std::size_t>(end - text.data())};
}

// The first digits of value = 0.DIGITS * 10^exponent by one multiplication or division. Values of most files pass here
// in a third of the time of a general algorithm. False where the error of that operation, half a unit in the last
// place, leaves open to which side to round, and for exponents without an exact power of ten.
bool scaleToDigits(double value, int digits, std::uint32_t& number, int& exponent) {
    constexpr int mostDigits = 9;  // in 32 bits
    // floor(log10(value)) from the binary exponent by log10(2) = 315652.8 / 2^20: right, or one too low.
    const int binaryExponent = static_cast<int>(std::bit_cast<std::uint64_t>(value) >> 52) - 1023;
    int lastPower = (binaryExponent * 315652 >> 20) - (digits - 1);
    if (digits > mostDigits || lastPower < -highestExactPower || lastPower >= highestExactPower) {
        return false;
    }
    const double limit = exactPowers[static_cast<std::size_t>(digits)];
    double scaled = timesPowerOfTen(value, -lastPower);
    if (scaled >= limit) {
        scaled = timesPowerOfTen(value, -++lastPower);
    }
    number = static_cast<std::uint32_t>(scaled);
    const double rest = scaled - number;
    if (std::fabs(rest - 0.5) <= std::numeric_limits<double>::epsilon() * scaled) {
        return false;
    }
    number += rest > 0.5 ? 1 : 0;
    if (static_cast<double>(number) == limit) {
        number /= 10;
        ++lastPower;
    }
    exponent = lastPower + digits;
    return true;
}

// Puts the digits of value = 0.DIGITS * 10^exponent, for a value that is not negative. False when there are more than
// any field has.
bool putLeadingDigits(char* out, double value, int digits, int& exponent) {
    std::uint32_t number = 0;
    if (scaleToDigits(value, digits, number, exponent)) {
        std::to_chars(out, out + digits, number);
        return true;
    }
    NumberText text;
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::scientific, digits - 1);
    if (error != std::errc()) {
        return false;
    }
    // "D.DDDDDe+XX", without the point for one digit.
    const char* const letter = text.data() + (digits > 1 ? digits + 1 : 1);
    std::from_chars(letter[1] == '+' ? letter + 2 : letter + 1, end, exponent);
    exponent += value == 0 ? 0 : 1;
    *out = text[0];
    std::memcpy(out + 1, text.data() + 2, static_cast<std::size_t>(digits - 1));
    return true;
}

// E+07, or +107 where the exponent has three digits.
char* putExponentPart(char* out, int exponent) {
    const char sign = exponent < 0 ? '-' : '+';
    const int size = std::abs(exponent);
    if (size >= 100) {
        *out++ = sign;
        *out++ = static_cast<char>('0' + size / 100);
    } else {
        *out++ = 'E';
        *out++ = sign;
    }
    *out++ = static_cast<char>('0' + size / 10 % 10);
    *out++ = static_cast<char>('0' + size % 10);
    return out;
}

}  // namespace

char* putFixed(char* out, double value, int width, int decimals) {
    if (!std::isfinite(value)) {
        return putNotFinite(out, value, width);
    }
    NumberText text;
    std::string_view number = spellFixed(std::fabs(value), std::max(decimals, 0), text);
    const int signWidth = std::signbit(value) ? 1 : 0;
    if (static_cast<int>(number.size()) + signWidth > width && decimals > 0 && !number.empty() && number[0] == '0') {
        number.remove_prefix(1);
    }
    const int used = static_cast<int>(number.size()) + signWidth;
    if (used > width || number.empty()) {
        return putAsterisks(out, width);
    }
    out = putSpaces(out, width - used);
    return copyText(copyText(out, signWidth == 1 ? "-" : ""), number);
}

char* putExponent(char* out, double value, int width, int digits) {
    if (!std::isfinite(value)) {
        return putNotFinite(out, value, width);
    }
    const bool negative = std::signbit(value);
    const int needed = (negative ? 1 : 0) + 1 + digits + 4;  // sign, point, digits, exponent; without the leading zero
    if (digits < 1 || needed > width) {
        return putAsterisks(out, width);
    }
    char* const firstDigit = out + width - 4 - digits;
    int exponent = 0;
    if (!putLeadingDigits(firstDigit, std::fabs(value), digits, exponent)) {
        return putAsterisks(out, width);
    }
    char* position = firstDigit - 1;
    *position = '.';
    if (needed < width) {
        *--position = '0';
    }
    // Signs are unpredictable: a space for positive values costs less than a branch.
    if (position > out) {
        *--position = negative ? '-' : ' ';
    }
    putSpaces(out, static_cast<int>(position - out));
    return putExponentPart(firstDigit + digits, exponent);
}

char* putInteger(char* out, std::int64_t value, int width) {
    return putIntegerZeros(out, value, width, 1);
}

char* putIntegerZeros(char* out, std::int64_t value, int width, int digits) {
    std::array<char, 24> text;
    const std::uint64_t size = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), size).ptr;
    const std::string_view number(text.data(), static_cast<std::size_t>(end - text.data()));
    const int zeros = std::max(digits - static_cast<int>(number.size()), 0);
    const int used = (value < 0 ? 1 : 0) + zeros + static_cast<int>(number.size());
    if (used > width) {
        return putAsterisks(out, width);
    }
    out = putSpaces(out, width - used);
    out = copyText(out, value < 0 ? "-" : "");
    return copyText(std::fill_n(out, zeros, '0'), number);
}

}  // namespace voxlith
