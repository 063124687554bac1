#include "forward/number_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "base/messages.h"

namespace voxlith {

namespace {

template <class Number>
bool parseWhole(std::string_view text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end;
}

template <class Number>
std::string shortestText(Number value) {
    std::array<char, 32> characters{};
    const Number magnitude = std::abs(value);
    const bool usual = magnitude == 0 || (magnitude >= Number{1.0e-5F} && magnitude < Number{1.0e15F});
    const auto format = usual ? std::chars_format::fixed : std::chars_format::scientific;
    const auto result = std::to_chars(characters.data(), characters.data() + characters.size(), value, format);
    return {characters.data(), result.ptr};
}

std::string_view withoutPlus(std::string_view text) {
    const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+';
    return plus ? text.substr(1) : text;
}

}  // namespace

std::optional<double> parseNumber(std::string_view text) {
    std::string plain(withoutPlus(text));
    for (char& c : plain) {
        if (c == 'd' || c == 'D') {
            c = 'e';
        }
    }
    double value = 0;
    if (!parseWhole(std::string_view(plain), value) || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::int32_t> parseInteger(std::string_view text) {
    std::int32_t value = 0;
    if (!parseWhole(withoutPlus(text), value)) {
        return std::nullopt;
    }
    return value;
}

std::vector<std::string_view> splitWords(std::string_view line) {
    constexpr std::string_view separators = " \t,\r";
    std::vector<std::string_view> words;
    std::size_t start = line.find_first_not_of(separators);
    while (start != std::string_view::npos) {
        const std::size_t end = std::min(line.find_first_of(separators, start), line.size());
        words.push_back(line.substr(start, end - start));
        start = line.find_first_not_of(separators, end);
    }
    return words;
}

std::vector<double> parseNumberList(std::string_view option, std::string_view form, std::string_view text,
                                    std::size_t count) {
    std::vector<double> numbers;
    for (const std::string_view word : splitWords(text)) {
        const std::optional<double> number = parseNumber(word);
        if (!number) {
            numbers.clear();
            break;
        }
        numbers.push_back(*number);
    }
    if (numbers.size() != count) {
        throw RunError(std::string(option) + " " + std::string(text) + ": expected " + std::string(form));
    }
    return numbers;
}

std::string numberText(double value) {
    return shortestText(value);
}

std::string numberText(float value) {
    return shortestText(value);
}

}  // namespace voxlith
