// A text file that grows line by line and can be followed while it grows: the log and the progress tables. Each line is
// one system write, so that a run that is killed leaves at most its last line incomplete. Its writer holds a lock on
// it, which ends with the process: two runs cannot mix their lines.
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

// Closes what `file` had open and opens `name`, replacing an earlier file or continuing it (an existing file is then
// required; zero bytes at its end are cut off, and a last line without its line end gets one first). A symbolic link is
// replaced, not followed, and cannot be continued (ELOOP). False when that fails, with errno: EWOULDBLOCK when another
// process has the file open for writing; it is then unchanged.
bool openLineFile(LineFile& file, std::string_view name, LineFileMode mode);

bool isOpen(const LineFile& file);

// Appends `line` and a line end in one system write. Throws RunError (file and cause) when it cannot be written whole.
void writeLine(LineFile& file, std::string_view line);

// Waits until the lines are on the disk. Nothing happens while closed. Throws RunError.
void syncLineFile(LineFile& file);

// Throws RunError when the system reports at the close that something was not written. Nothing happens while closed.
void closeLineFile(LineFile& file);

}  // namespace voxlith
