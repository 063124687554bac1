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

// Length of the file without zero bytes at its end; -1 with errno.
off_t writtenLength(int handle, off_t length) {
    std::array<char, 512> piece;
    while (length > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<off_t>(length, piece.size()));
        const ssize_t got = ::pread(handle, piece.data(), wanted, length - static_cast<off_t>(wanted));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < static_cast<ssize_t>(wanted)) {
            return got < 0 ? -1 : length;
        }
        const std::size_t last = std::string_view(piece.data(), wanted).find_last_not_of('\0');
        length -= static_cast<off_t>(wanted);
        if (last != std::string_view::npos) {
            return length + static_cast<off_t>(last) + 1;
        }
    }
    return 0;
}

// A power failure may have left zero bytes in place of the last lines: space that the file had got and whose content
// did not reach the disk. A run that was killed may have left half a line, to which the next line must not be joined.
// What is no regular file has no lines to continue, and a pipe that nobody reads would hold the program up when full.
bool completeLastLine(int handle) {
    struct stat state {};
    if (::fstat(handle, &state) != 0) {
        return false;
    }
    if (!S_ISREG(state.st_mode)) {
        errno = EINVAL;
        return false;
    }
    const off_t length = writtenLength(handle, state.st_size);
    if (length < 0 || (length < state.st_size && ::ftruncate(handle, length) != 0)) {
        return false;
    }
    if (length == 0) {
        return true;
    }
    char last = '\n';
    ssize_t got = 0;
    do {
        got = ::pread(handle, &last, 1, length - 1);
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
