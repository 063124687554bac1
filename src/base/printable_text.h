// Text that a terminal can show as one line, whatever names and files have put into it.
#pragma once

#include <span>
#include <string_view>

namespace voxlith {

// `text` with control characters as \n, \r, \t or \x1b, and so the bytes that are no UTF-8 and may be taken for
// controls. Other bytes stay. Written to `space`, where it is cut at the end.
std::string_view printableText(std::string_view text, std::span<char> space);

}  // namespace voxlith
