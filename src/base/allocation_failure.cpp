#include "base/allocation_failure.h"

namespace voxlith {

std::string withAllocatorText(std::string_view message, const std::exception& error) {
    constexpr std::size_t longestText = 132;
    std::string_view text = error.what();
    text = text.substr(0, longestText);
    const std::size_t last = text.find_last_not_of(' ');
    text = last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
    std::string whole(message);
    if (!text.empty()) {
        whole.append(" ").append(text);
    }
    return whole;
}

}  // namespace voxlith
