// The keywords of the command line, taken by the letter. voxlith matches them by their first characters and ignores
// what it does not know; here a keyword that would be ignored, or read only in part, is refused.
#pragma once

#include <span>
#include <string>

namespace voxlith {

// Throws RunError, one line that names the keyword, what was expected and, for an unknown one, the nearest known.
void checkKeywords(std::span<const std::string> keywords);

}  // namespace voxlith
