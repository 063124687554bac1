#include "base/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/system_write.h"

namespace voxlith {

namespace {

constexpr std::string_view temporarySuffix = ".part";

// Closes and removes the unfinished file; the file of its final name stays.
void abandon(OutputFile& file) {
    if (file.handle >= 0) {
        ::close(file.handle);
        file.handle = -1;
        ::unlink(file.temporaryName.data());
    }
    file.used = 0;
}

[[noreturn]] void failOutput(OutputFile& file, int cause) {
    abandon(file);
    throwSystemError(file.name.data(), "cannot be written", cause);
}

void writeBuffer(OutputFile& file) {
    if (!writeWhole(file.handle, file.buffer.data(), file.used)) {
        failOutput(file, errno);
    }
    file.used = 0;
}

// Renaming onto a device or a pipe would replace it; such names are refused. A link is replaced, not followed.
bool mayBeReplaced(const char* name) {
    struct stat state {};
    if (::lstat(name, &state) != 0) {
        return true;
    }
    if (S_ISREG(state.st_mode) || S_ISLNK(state.st_mode)) {
        return true;
    }
    errno = S_ISDIR(state.st_mode) ? EISDIR : EINVAL;
    return false;
}

}  // namespace

OutputFile::~OutputFile() {
    abandon(*this);
}

void openOutputFile(OutputFile& file, std::string_view name) {
    abandon(file);
    if (name.size() >= file.name.size()) {
        throwSystemError(name, "cannot be created", ENAMETOOLONG);
    }
    file.name.fill('\0');
    file.temporaryName.fill('\0');
    std::copy(name.begin(), name.end(), file.name.begin());
    char* const nameEnd = std::copy(name.begin(), name.end(), file.temporaryName.begin());
    std::copy(temporarySuffix.begin(), temporarySuffix.end(), nameEnd);
    if (name.empty() || !mayBeReplaced(file.name.data())) {
        throwSystemError(name, "cannot be created", name.empty() ? ENOENT : errno);
    }
    // What a killed run left under this name is removed first, and only a new file is accepted: were the name a link,
    // its target would be overwritten.
    ::unlink(file.temporaryName.data());
    file.handle = ::open(file.temporaryName.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file.handle < 0) {
        throwSystemError(name, "cannot be created", errno);
    }
}

void expectOutput(OutputFile& file, std::size_t bytes) {
#if defined(__linux__)
    // The writes themselves fail where the disk is too small.
    static_cast<void>(::fallocate(file.handle, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)));
#else
    static_cast<void>(file);
    static_cast<void>(bytes);
#endif
}

char* reserveOutput(OutputFile& file, std::size_t count) {
    assert(file.handle >= 0 && count <= file.buffer.size());
    if (count > file.buffer.size() - file.used) {
        writeBuffer(file);
    }
    return file.buffer.data() + file.used;
}

void commitOutput(OutputFile& file, std::size_t count) {
    assert(count <= file.buffer.size() - file.used);
    file.used += count;
}

void appendOutput(OutputFile& file, std::string_view text) {
    while (!text.empty()) {
        if (file.used == file.buffer.size()) {
            writeBuffer(file);
        }
        const std::size_t count = std::min(text.size(), file.buffer.size() - file.used);
        std::memcpy(file.buffer.data() + file.used, text.data(), count);
        file.used += count;
        text.remove_prefix(count);
    }
}

void appendOutputLine(OutputFile& file, std::string_view line) {
    appendOutput(file, line);
    appendOutput(file, "\n");
}

void finishOutputFile(OutputFile& file) {
    writeBuffer(file);
    const int handle = file.handle;
    file.handle = -1;
    // Some file systems report a full disk only here. After EINTR the descriptor is closed all the same.
    bool complete = ::close(handle) == 0 || errno == EINTR;
    complete = complete && std::rename(file.temporaryName.data(), file.name.data()) == 0;
    if (!complete) {
        const int cause = errno;
        ::unlink(file.temporaryName.data());
        throwSystemError(file.name.data(), "cannot be written", cause);
    }
}

}  // namespace voxlith
