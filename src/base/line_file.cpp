#include "base/line_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/file_sync.h"
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

// Pipes and devices are not locked. File systems without locks do without.
bool lockFile(int handle) {
    struct stat state {};
    if (::fstat(handle, &state) != 0 || !S_ISREG(state.st_mode)) {
        return true;
    }
    return ::flock(handle, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// Pipes and devices are always empty.
bool emptyFile(int handle) {
    struct stat state {};
    return ::fstat(handle, &state) == 0 && (!S_ISREG(state.st_mode) || ::ftruncate(handle, 0) == 0);
}

}  // namespace

LineFile::~LineFile() {
    // Reached while open only when a failure ends the run; that failure is what is reported.
    if (handle >= 0) {
        ::close(handle);
    }
}

bool openLineFile(LineFile& file, std::string_view name, LineFileMode mode) {
    closeLineFile(file);
    std::array<char, 4096> path{};
    if (name.empty() || name.size() >= path.size()) {
        errno = name.empty() ? ENOENT : ENAMETOOLONG;
        return false;
    }
    std::copy(name.begin(), name.end(), path.begin());
    // A link would lead the lines into the file of somebody else. Only a link is removed here, so a failure is
    // harmless.
    struct stat state {};
    if (mode == LineFileMode::create && ::lstat(path.data(), &state) == 0 && S_ISLNK(state.st_mode)) {
        ::unlink(path.data());
    }
    const int flags = mode == LineFileMode::create ? O_WRONLY | O_CREAT | O_APPEND : O_RDWR | O_APPEND;
    // Without O_NONBLOCK a named pipe that nobody reads would block the program forever.
    const int handle = ::open(path.data(), flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, 0666);
    if (handle < 0) {
        return false;
    }
    const bool usable = ::fcntl(handle, F_SETFL, O_APPEND) == 0 && lockFile(handle);
    if (!usable || (mode == LineFileMode::append ? !completeLastLine(handle) : !emptyFile(handle))) {
        const int cause = errno;
        ::close(handle);
        errno = cause;
        return false;
    }
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

void syncLineFile(LineFile& file) {
    if (file.handle >= 0 && !syncFile(file.handle)) {
        throwSystemError(nameOf(file), "cannot be written", errno);
    }
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
