// One line of output under construction, of at most 1024 characters; more is cut. Nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace voxlith {

class TextLine {
public:
    TextLine() = default;
    explicit TextLine(std::string_view start) { text(start); }

    TextLine& text(std::string_view words);
    TextLine& spaces(int count);
    TextLine& padTo(int column);  // spaces up to and including that column; nothing when the line is longer
    TextLine& fixed(double value, int width, int decimals);
    TextLine& exponent(double value, int width, int digits);
    TextLine& integer(std::int64_t value, int width);
    TextLine& integerZeros(std::int64_t value, int width, int digits);
    TextLine& clear();

    std::string_view view() const { return {characters_.data(), length_}; }
    operator std::string_view() const { return view(); }

private:
    bool hasSpaceFor(int width) const;

    std::array<char, 1024> characters_{};
    std::size_t length_ = 0;
};

}  // namespace voxlith
