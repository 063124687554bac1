#include "base/line_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/system_write.h"

namespace voxlith {

namespace {

std::string_view nameOf(const LineFile& file) {
    return file.name.data();
}

// A run that was killed may have left half a line at the end, to which the next line must not be joined.
bool completeLastLine(int handle) {
    struct stat state {};
    if (::fstat(handle, &state) != 0) {
        return false;
    }
    if (state.st_size == 0) {
        return true;
    }
    char last = '\n';
    ssize_t got = 0;
    do {
        got = ::pread(handle, &last, 1, state.st_size - 1);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        return false;
    }
    return last == '\n' || writeWholeLine(handle, {});
}

}  // namespace

LineFile::~LineFile() {
    // Reached while open only when a failure ends the run; that failure is what is reported.
    if (handle >= 0) {
        ::close(handle);
    }
}

bool openLineFile(LineFile& file, std::string_view name, LineFileMode mode) {
    std::array<char, 4096> path{};
    if (name.empty() || name.size() >= path.size()) {
        errno = name.empty() ? ENOENT : ENAMETOOLONG;
        return false;
    }
    std::copy(name.begin(), name.end(), path.begin());
    const int flags = mode == LineFileMode::create ? O_WRONLY | O_CREAT | O_TRUNC | O_APPEND : O_RDWR | O_APPEND;
    // Without O_NONBLOCK a named pipe that nobody reads would block the program forever.
    const int handle = ::open(path.data(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    if (handle < 0) {
        return false;
    }
    const bool usable = ::fcntl(handle, F_SETFL, O_APPEND) == 0;
    if (!usable || (mode == LineFileMode::append && !completeLastLine(handle))) {
        const int cause = errno;
        ::close(handle);
        errno = cause;
        return false;
    }
    closeLineFile(file);
    file.handle = handle;
    file.name.fill('\0');
    std::copy_n(name.begin(), std::min(name.size(), file.name.size() - 1), file.name.begin());
    return true;
}

bool isOpen(const LineFile& file) {
    return file.handle >= 0;
}

void writeLine(LineFile& file, std::string_view line) {
    if (!writeWholeLine(file.handle, line)) {
        throwSystemError(nameOf(file), "cannot be written", errno);
    }
}

void flushLineFile(LineFile& file) {
    if (file.handle < 0) {
        return;
    }
#ifdef __linux__
    // Starts the writing and does not wait for it. Refused for pipes and terminals, which are not cached.
    static_cast<void>(::sync_file_range(file.handle, 0, 0, SYNC_FILE_RANGE_WRITE));
#else
    static_cast<void>(::fsync(file.handle));
#endif
}

void closeLineFile(LineFile& file) {
    if (file.handle < 0) {
        return;
    }
    const int handle = file.handle;
    file.handle = -1;
    // After EINTR the descriptor is closed all the same, and every line has been written.
    if (::close(handle) != 0 && errno != EINTR) {
        throwSystemError(nameOf(file), "cannot be written", errno);
    }
}

}  // namespace voxlith
