#include "base/text_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/system_write.h"

namespace voxlith {

namespace {

constexpr std::size_t firstBlockSize = 4096;  // enough for most small files
constexpr std::size_t blockSize = 131072;

void resetPosition(TextInput& input) {
    input.ended = false;
    input.lineNumber = 1;
}

// The caller has counted the line ends among the characters.
void consume(TextInput& input, std::size_t count) {
    input.ahead.remove_prefix(count);
}

}  // namespace

TextInput::~TextInput() {
    closeTextInput(*this);
}

bool openTextInput(TextInput& input, const std::string& name) {
    closeTextInput(input);
    // Pipes and devices may never end, and data files are read twice. Without O_NONBLOCK, opening a named pipe without
    // a writer would block.
    const int handle = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle < 0) {
        return false;
    }
    struct stat state {};
    int cause = 0;
    if (::fstat(handle, &state) != 0) {
        cause = errno;
    } else if (S_ISDIR(state.st_mode)) {
        cause = EISDIR;
    } else if (!S_ISREG(state.st_mode)) {
        cause = ESPIPE;
    }
    if (cause != 0) {
        ::close(handle);
        errno = cause;
        return false;
    }
    input.handle = handle;
    input.name = name;
    resetPosition(input);
    return true;
}

void openTextInMemory(TextInput& input, std::string_view text, std::string_view name) {
    closeTextInput(input);
    input.name = name;
    input.wholeText = text;
    input.ahead = text;
    resetPosition(input);
    input.ended = true;
}

void rewindTextInput(TextInput& input) {
    resetPosition(input);
    if (input.handle < 0) {
        input.ahead = input.wholeText;
        input.ended = true;
        return;
    }
    input.ahead = {};
    if (::lseek(input.handle, 0, SEEK_SET) < 0) {
        throwSystemError(input.name, "cannot be read again", errno);
    }
}

void closeTextInput(TextInput& input) {
    if (input.handle >= 0) {
        ::close(input.handle);
        input.handle = -1;
    }
    input.ahead = {};
    input.wholeText = {};
    input.ended = true;
}

bool atEnd(TextInput& input) {
    return input.ahead.empty() && !fillAhead(input);
}

bool readLine(TextInput& input, std::string& line, std::size_t width) {
    line.clear();
    if (atEnd(input)) {
        return false;
    }
    do {
        const std::size_t lineEnd = input.ahead.find('\n');
        const std::string_view part = input.ahead.substr(0, lineEnd);
        line.append(part.substr(0, std::min(part.size(), width - line.size())));
        if (lineEnd != std::string_view::npos) {
            consume(input, lineEnd + 1);
            ++input.lineNumber;
            break;
        }
        consume(input, part.size());
    } while (fillAhead(input));
    while (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return true;
}

bool fillAhead(TextInput& input) {
    if (input.ended || input.handle < 0) {
        return false;
    }
    const std::size_t kept = input.ahead.size();
    if (kept > 0) {
        std::memmove(input.block.data(), input.ahead.data(), kept);
    }
    const std::size_t wanted = std::clamp(8 * input.block.size(), firstBlockSize, blockSize);
    if (input.block.size() < std::max(wanted, kept + wanted / 2)) {
        input.block.resize(std::max(wanted, 2 * kept));
    }
    ssize_t got = 0;
    do {
        got = ::read(input.handle, input.block.data() + kept, input.block.size() - kept);
    } while (got < 0 && errno == EINTR);
    const int cause = errno;
    input.ahead = {input.block.data(), kept + static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
    if (got < 0) {
        throwSystemError(input.name, "cannot be read", cause);
    }
    input.ended = got == 0;
    return got > 0;
}

}  // namespace voxlith
