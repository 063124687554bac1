#include "run/screen_capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "base/system_write.h"
#include "base/tokens.h"

namespace voxlith {

ScreenCapture::~ScreenCapture() {
    releaseScreen(*this);
}

void captureScreen(ScreenCapture& capture) {
    std::fflush(stdout);
    const int store = ::memfd_create("screen", MFD_CLOEXEC);
    if (store < 0) {
        throwSystemError("memory for the screen output", "cannot be had", errno);
    }
    const int screen = ::dup(STDOUT_FILENO);  // -1 when the process has no standard output
    const bool captured = ::dup2(store, STDOUT_FILENO) >= 0;
    const int cause = errno;
    ::close(store);  // standard output keeps it
    if (!captured) {
        throwSystemError("standard output", "cannot be redirected", cause);
    }
    capture.screen = screen;
}

std::string lastScreenLine(const ScreenCapture& capture) {
    if (capture.screen < 0) {
        return {};
    }
    std::array<char, 4096> end{};
    const off_t size = ::lseek(STDOUT_FILENO, 0, SEEK_END);
    const off_t start = std::max<off_t>(0, size - static_cast<off_t>(end.size()));
    const ssize_t got = ::pread(STDOUT_FILENO, end.data(), end.size(), start);
    std::string_view text(end.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    while (!text.empty()) {
        const std::size_t lineEnd = text.rfind('\n');
        const std::string_view line = lineEnd == std::string_view::npos ? text : text.substr(lineEnd + 1);
        if (!isBlank(line)) {
            return std::string(trim(line));
        }
        text = lineEnd == std::string_view::npos ? std::string_view{} : text.substr(0, lineEnd);
    }
    return {};
}

void releaseScreen(ScreenCapture& capture) {
    if (capture.screen >= 0) {
        ::dup2(capture.screen, STDOUT_FILENO);
        ::close(capture.screen);
        capture.screen = -1;
    }
}

}  // namespace voxlith
