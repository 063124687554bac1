#include "base/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/file_sync.h"
#include "base/system_write.h"
#include "base/temporary_file.h"

namespace voxlith {

namespace {

// Closes and removes the unfinished file, or keeps it; the file of its final name stays.
void abandon(OutputFile& file) {
    if (file.handle >= 0) {
        ::close(file.handle);
        file.handle = -1;
        if (!file.kept) {
            ::unlink(file.temporaryName.data());
        }
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
    std::copy(name.begin(), name.end(), file.name.begin());
    if (name.empty() || !mayBeReplaced(file.name.data())) {
        throwSystemError(name, "cannot be created", name.empty() ? ENOENT : errno);
    }
    file.handle = createTemporaryFile(file.name.data(), file.temporaryName);
    if (file.handle < 0) {
        throwSystemError(name, "cannot be created", errno);
    }
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

void flushOutput(OutputFile& file) {
    writeBuffer(file);
}

void finishOutputFile(OutputFile& file) {
    writeBuffer(file);
    // Renamed before it is closed: the lock on the temporary file ends at the close.
    if (!syncFile(file.handle) || std::rename(file.temporaryName.data(), file.name.data()) != 0) {
        failOutput(file, errno);
    }
    ::close(file.handle);
    file.handle = -1;
    syncFolderOf(file.name.data());
}

}  // namespace voxlith
