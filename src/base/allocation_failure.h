// The wording of a failed allocation.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace voxlith {

// `message` with the text of the allocator's own error behind it: at most 132 characters of it, without trailing
// blanks.
std::string withAllocatorText(std::string_view message, const std::exception& error);

}  // namespace voxlith
