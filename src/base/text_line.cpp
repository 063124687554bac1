#include "base/text_line.h"

#include <algorithm>
#include <cstring>

#include "base/fixed_field.h"

namespace voxlith {

TextLine& TextLine::text(std::string_view words) {
    const std::size_t count = std::min(words.size(), characters_.size() - length_);
    if (count > 0) {
        std::memcpy(characters_.data() + length_, words.data(), count);
        length_ += count;
    }
    return *this;
}

TextLine& TextLine::spaces(int wanted) {
    const std::size_t count = std::min(static_cast<std::size_t>(std::max(wanted, 0)), characters_.size() - length_);
    std::memset(characters_.data() + length_, ' ', count);
    length_ += count;
    return *this;
}

TextLine& TextLine::padTo(int column) {
    return spaces(column - static_cast<int>(length_));
}

// A field that fits is written in place. Only one that reaches beyond the end of the line is built elsewhere and cut.
TextLine& TextLine::fixed(double value, int width, int decimals) {
    if (hasSpaceFor(width)) {
        putFixed(characters_.data() + length_, value, width, decimals);
        length_ += static_cast<std::size_t>(width);
        return *this;
    }
    std::array<char, 1024> field;
    const int used = std::clamp(width, 0, static_cast<int>(field.size()));
    putFixed(field.data(), value, used, decimals);
    return text({field.data(), static_cast<std::size_t>(used)});
}

TextLine& TextLine::exponent(double value, int width, int digits) {
    if (hasSpaceFor(width)) {
        putExponent(characters_.data() + length_, value, width, digits);
        length_ += static_cast<std::size_t>(width);
        return *this;
    }
    std::array<char, 1024> field;
    const int used = std::clamp(width, 0, static_cast<int>(field.size()));
    putExponent(field.data(), value, used, digits);
    return text({field.data(), static_cast<std::size_t>(used)});
}

bool TextLine::hasSpaceFor(int width) const {
    return width >= 0 && static_cast<std::size_t>(width) <= characters_.size() - length_;
}

TextLine& TextLine::integer(std::int64_t value, int width) {
    return integerZeros(value, width, 1);
}

TextLine& TextLine::integerZeros(std::int64_t value, int width, int digits) {
    std::array<char, 1024> field;
    const int used = std::clamp(width, 0, static_cast<int>(field.size()));
    putIntegerZeros(field.data(), value, used, digits);
    return text({field.data(), static_cast<std::size_t>(used)});
}

TextLine& TextLine::clear() {
    length_ = 0;
    return *this;
}

}  // namespace voxlith
