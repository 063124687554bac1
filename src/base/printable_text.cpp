#include "base/printable_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

namespace voxlith {

namespace {

// Length of the well-formed UTF-8 character that `text` begins with; 0 where it begins with none.
std::size_t characterLength(std::string_view text) {
    const auto byte = [text](std::size_t n) { return static_cast<unsigned char>(text[n]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || length > text.size() || first > 0xF4) {
        return 0;
    }
    for (std::size_t n = 1; n < length; ++n) {
        if (byte(n) < 0x80 || byte(n) > 0xBF) {
            return 0;
        }
    }
    return length;
}

// The controls of ASCII, DEL, and those of ISO 8859-1, which in UTF-8 are C2 80 to C2 9F.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

std::string_view escapeOf(char c, std::array<char, 8>& text) {
    switch (c) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            return {text.data(), 4};
    }
}

}  // namespace

std::string_view printableText(std::string_view text, std::span<char> space) {
    std::size_t used = 0;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const bool shown = length > 0 && !isControl(text.substr(0, length));
        std::array<char, 8> escape{};
        const std::string_view part = shown ? text.substr(0, length) : escapeOf(text.front(), escape);
        if (part.size() > space.size() - used) {
            break;
        }
        std::ranges::copy(part, space.begin() + static_cast<std::ptrdiff_t>(used));
        used += part.size();
        text.remove_prefix(shown ? length : 1);
    }
    return {space.data(), used};
}

}  // namespace voxlith
