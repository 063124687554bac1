#include "base/tokens.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace voxlith {

void nextToken(std::string& line, std::string& token) {
    token.clear();
    const std::size_t length = trimRight(line).size();
    if (length == 0) {
        return;
    }
    const std::size_t first = line.find_first_not_of(' ');
    std::size_t end = line.find_first_of(" ,\t", first);
    if (end == std::string::npos || end > length) {
        end = length;
    }
    token.assign(line, first, std::min(end - first, tokenWidth));
    if (end + 1 < length) {
        line.resize(length);
        line.erase(0, end + 1);
    } else {
        line.clear();
    }
}

void removeComment(std::string& line) {
    const std::size_t mark = line.find('!');
    if (mark != std::string::npos) {
        line.resize(mark);
    }
}

std::string_view trimRight(std::string_view text) {
    const std::size_t last = text.find_last_not_of(' ');
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string_view trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string_view::npos ? std::string_view() : trimRight(text.substr(first));
}

bool isBlank(std::string_view text) {
    return text.find_first_not_of(' ') == std::string_view::npos;
}

bool isNullWord(std::string_view text) {
    const std::string_view word = trimRight(text);
    return word == "null" || word == "NULL";
}

bool startsWithNull(std::string_view text) {
    const std::string_view start = text.substr(0, 4);
    return start == "null" || start == "NULL";
}

std::string fileNameOf(std::string_view text) {
    return std::string(trim(text.substr(0, lineWidth)));
}

bool fileExists(const std::string& name) {
    // Without O_NONBLOCK, opening a named pipe without a writer would block.
    const int handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle < 0) {
        return false;
    }
    struct stat state {};
    const bool usable = ::fstat(handle, &state) == 0 && S_ISREG(state.st_mode);
    ::close(handle);
    return usable;
}

}  // namespace voxlith
