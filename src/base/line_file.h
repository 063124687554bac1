// A text file that grows line by line and can be followed while it grows: the log and the progress tables. Each line is
// one system write, so that a run that is killed leaves at most its last line incomplete.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace voxlith {

struct LineFile {
    LineFile() = default;
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    int handle = -1;               // file descriptor; -1 while closed
    std::array<char, 256> name{};  // for messages, zero terminated
};

enum class LineFileMode { create, append };

// Opens `name`, replacing an earlier file or continuing it (an existing file is then required; a last line without
// its line end gets one first). False when that fails, with errno.
bool openLineFile(LineFile& file, std::string_view name, LineFileMode mode);

bool isOpen(const LineFile& file);

// Appends `line` and a line end in one system write. Throws RunError (file and cause) when it cannot be written whole.
void writeLine(LineFile& file, std::string_view line);

// Starts writing to the disk what the system has cached. Never fails a run.
void flushLineFile(LineFile& file);

// Throws RunError when the system reports at the close that something was not written. Nothing happens while closed.
void closeLineFile(LineFile& file);

}  // namespace voxlith
