#include "base/system_write.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/messages.h"

namespace voxlith {

bool writeWhole(int handle, const char* characters, std::size_t count) {
    while (count > 0) {
        const ssize_t written = ::write(handle, characters, count);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        characters += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

bool writeWholeLine(int handle, std::string_view line) {
    char lineEnd = '\n';
    // The system only reads what an iovec of a write points to; its type has no const.
    iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {&lineEnd, 1}};
    ssize_t written = 0;
    do {
        written = ::writev(handle, parts, 2);
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        return false;
    }
    const std::size_t done = static_cast<std::size_t>(written);
    if (done < line.size() && !writeWhole(handle, line.data() + done, line.size() - done)) {
        return false;
    }
    return done > line.size() || writeWhole(handle, &lineEnd, 1);
}

void throwSystemError(std::string_view name, std::string_view what, int errorNumber) {
    std::string message(name);
    message.append(": ").append(what).append(": ").append(std::strerror(errorNumber));
    throw RunError(message);
}

}  // namespace voxlith
