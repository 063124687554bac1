// The wording of a failed allocation.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace voxlith {

// `message` followed by the text of the allocator's own error: at most 132 characters of it, without trailing
// spaces.
std::string withAllocatorText(std::string_view message, const std::exception& error);

}  // namespace voxlith
