#include "text/fixed_field.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace voxlith {

namespace {

char* putAsterisks(char* out, int width) {
    return std::fill_n(out, std::max(width, 0), '*');
}

// The parts of a field one after the other, right-aligned; the caller has made sure that they fit.
char* putRight(char* out, int width, int used) {
    return std::fill_n(out, width - used, ' ');
}

char* copyText(char* out, std::string_view text) {
    return std::copy(text.begin(), text.end(), out);
}

char* putNotFinite(char* out, double value, int width) {
    const std::string_view sign = !std::isnan(value) && std::signbit(value) ? "-" : "";
    const int signWidth = static_cast<int>(sign.size());
    std::string_view word = std::isnan(value) ? "NaN" : "Infinity";
    if (static_cast<int>(word.size()) + signWidth > width) {
        word = word.substr(0, 3);
    }
    const int used = static_cast<int>(word.size()) + signWidth;
    if (used > width) {
        return putAsterisks(out, width);
    }
    return copyText(copyText(putRight(out, width, used), sign), word);
}

}  // namespace

char* putFixed(char* out, double value, int width, int decimals) {
    if (!std::isfinite(value)) {
        return putNotFinite(out, value, width);
    }
    std::array<char, 1400> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size() - 1, std::fabs(value),
                                            std::chars_format::fixed, std::max(decimals, 0));
    if (error != std::errc()) {
        return putAsterisks(out, width);
    }
    char* last = end;
    if (decimals <= 0) {
        *last++ = '.';
    }
    std::string_view number(digits.data(), static_cast<std::size_t>(last - digits.data()));
    const int signWidth = std::signbit(value) ? 1 : 0;
    if (static_cast<int>(number.size()) + signWidth > width && number.size() > 2 && number[0] == '0') {
        number.remove_prefix(1);
    }
    const int used = static_cast<int>(number.size()) + signWidth;
    if (used > width) {
        return putAsterisks(out, width);
    }
    out = putRight(out, width, used);
    return copyText(copyText(out, std::string_view("-", static_cast<std::size_t>(signWidth))), number);
}

namespace {

// E+07, or +107 where the exponent has three digits.
char* putExponentPart(char* out, int exponent) {
    const int size = exponent < 0 ? -exponent : exponent;
    if (size < 100) {
        *out++ = 'E';
    }
    *out++ = exponent < 0 ? '-' : '+';
    if (size >= 100) {
        *out++ = static_cast<char>('0' + size / 100);
    }
    *out++ = static_cast<char>('0' + size / 10 % 10);
    *out++ = static_cast<char>('0' + size % 10);
    return out;
}

}  // namespace

char* putExponent(char* out, double value, int width, int digits) {
    if (!std::isfinite(value)) {
        return putNotFinite(out, value, width);
    }
    const int signWidth = std::signbit(value) ? 1 : 0;
    const int needed = signWidth + 1 + digits + 4;
    if (digits < 1 || needed > width) {
        return putAsterisks(out, width);
    }
    std::array<char, 1400> text;
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), std::fabs(value),
                                            std::chars_format::scientific, digits - 1);
    if (error != std::errc()) {
        return putAsterisks(out, width);
    }
    const char* mark = std::find(text.data(), end, 'e');
    int exponent = 0;
    std::from_chars(mark[1] == '+' ? mark + 2 : mark + 1, end, exponent);
    exponent = value == 0 ? 0 : exponent + 1;
    const bool leadingZero = needed < width;
    out = putRight(out, width, needed + (leadingZero ? 1 : 0));
    out = copyText(out, signWidth == 1 ? "-" : "");
    out = copyText(out, leadingZero ? "0." : ".");
    *out++ = text[0];
    if (digits > 1) {
        out = copyText(out, std::string_view(text.data() + 2, static_cast<std::size_t>(digits - 1)));
    }
    return putExponentPart(out, exponent);
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
    out = putRight(out, width, used);
    out = copyText(out, value < 0 ? "-" : "");
    return copyText(std::fill_n(out, zeros, '0'), number);
}

}  // namespace voxlith
