#include "base/fixed_field.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "base/rounded_digits.h"

namespace voxlith {

namespace {

// Room for the largest double in fixed form with as many decimals as a field of a line can have.
using NumberText = std::array<char, 1400>;

constexpr auto makeDigitPairs() {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}

constexpr auto digitPairs = makeDigitPairs();

char* copyText(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* putBlanks(char* out, int count) {
    std::memset(out, ' ', static_cast<std::size_t>(count));
    return out + count;
}

char* putAsterisks(char* out, int width) {
    return std::fill_n(out, std::max(width, 0), '*');
}

// The last `count` digits of `number`, with leading zeros.
char* putDigits(char* out, std::uint64_t number, int count) {
    char* const behind = out + count;
    char* position = behind;
    while (position - out >= 2) {
        position -= 2;
        std::memcpy(position, digitPairs.data() + 2 * (number % 100), 2);
        number /= 100;
    }
    if (position != out) {
        *out = static_cast<char>('0' + number % 10);
    }
    return behind;
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
    return copyText(copyText(putBlanks(out, width - used), sign), word);
}

// The digits of a value that is not negative, with a point and at least one digit in front of it. Gives an empty text
// when the number is longer than any field.
std::string_view spellFixed(double value, int decimals, NumberText& text) {
    char* const first = text.data();
    char* behind = nullptr;
    if (value < roundedDecimalsLimit && decimals <= mostRoundedDecimals) {
        const std::uint64_t number = roundedDecimals(value, decimals);
        const char* const plainEnd = std::to_chars(first, first + text.size(), number).ptr;
        const int count = std::max(static_cast<int>(plainEnd - first), decimals + 1);
        putDigits(first, number, count);
        char* const point = first + count - decimals;
        std::memmove(point + 1, point, static_cast<std::size_t>(decimals));
        *point = '.';
        behind = first + count + 1;
    } else {
        const auto [end, error] =
            std::to_chars(first, first + text.size() - 1, value, std::chars_format::fixed, decimals);
        if (error != std::errc()) {
            return {};
        }
        behind = end;
        if (decimals == 0) {
            *behind++ = '.';
        }
    }
    return {first, static_cast<std::size_t>(behind - first)};
}

// Puts the digits of value = 0.DIGITS * 10^exponent, for a value that is not negative. False when there are more than
// any field has.
bool putLeadingDigits(char* out, double value, int digits, int& exponent) {
    std::uint32_t rounded = 0;
    exponent = 0;
    if (value == 0) {
        std::memset(out, '0', static_cast<std::size_t>(digits));
        return true;
    }
    if (digits <= mostRoundedDigits && leadingDigits(value, digits, rounded, exponent)) {
        putDigits(out, rounded, digits);
        return true;
    }
    NumberText text;
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::scientific, digits - 1);
    if (error != std::errc()) {
        return false;
    }
    const char* const letter = std::find(text.data(), end, 'e');
    const char* const exponentDigits = letter[1] == '+' ? letter + 2 : letter + 1;
    std::from_chars(exponentDigits, end, exponent);
    ++exponent;
    *out = text[0];
    if (digits > 1) {
        std::memcpy(out + 1, text.data() + 2, static_cast<std::size_t>(digits - 1));
    }
    return true;
}

// E+07, or +107 where the exponent has three digits.
char* putExponentPart(char* out, int exponent) {
    const char sign = exponent < 0 ? '-' : '+';
    const std::uint64_t size = static_cast<std::uint64_t>(exponent < 0 ? -exponent : exponent);
    if (size >= 100) {
        *out++ = sign;
        return putDigits(out, size, 3);
    }
    *out++ = 'E';
    *out++ = sign;
    return putDigits(out, size, 2);
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
    out = putBlanks(out, width - used);
    return copyText(copyText(out, signWidth == 1 ? "-" : ""), number);
}

char* putExponent(char* out, double value, int width, int digits) {
    if (!std::isfinite(value)) {
        return putNotFinite(out, value, width);
    }
    const int signWidth = std::signbit(value) ? 1 : 0;
    const int needed = signWidth + 1 + digits + 4;  // without the leading zero
    if (digits < 1 || needed > width) {
        return putAsterisks(out, width);
    }
    // From the right to the left: the places of the digits and of the exponent are fixed.
    char* position = out + width - 4 - digits;
    int exponent = 0;
    if (!putLeadingDigits(position, std::fabs(value), digits, exponent)) {
        return putAsterisks(out, width);
    }
    putExponentPart(position + digits, exponent);
    *--position = '.';
    if (needed < width) {
        *--position = '0';
    }
    // A sign is written where there is room for one, as a blank for positive values: signs come in no order, and a
    // branch on them costs more than all the rest here.
    if (position > out) {
        *--position = signWidth == 1 ? '-' : ' ';
    }
    while (position > out) {
        *--position = ' ';
    }
    return out + width;
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
    out = putBlanks(out, width - used);
    out = copyText(out, value < 0 ? "-" : "");
    return copyText(std::fill_n(out, zeros, '0'), number);
}

}  // namespace voxlith
