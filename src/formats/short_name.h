// Names of data, model and bounds files, of which only the first 80 characters count.
#pragma once

#include <string>
#include <string_view>

#include "base/tokens.h"

namespace voxlith {

constexpr std::size_t shortNameWidth = 80;

// The part of a control line that may be the word null, a number or a name.
inline std::string_view shortText(std::string_view text) {
    return text.substr(0, shortNameWidth);
}

// The name as the file is opened.
inline std::string shortFileName(std::string_view text) {
    return fileNameOf(shortText(text));
}

// The name as messages show it.
inline std::string shownName(std::string_view text) {
    return std::string(trimRight(shortText(text)));
}

}  // namespace voxlith
