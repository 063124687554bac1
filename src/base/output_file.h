// A text or binary file that is read as a whole later. It is written under a temporary name in the same folder and
// renamed when it is complete and on the disk, so that its own name always has the last complete version or nothing,
// also after a power failure. Nothing is allocated. This is the one place that knows how whole files are written;
// base/staged_files.h replaces files that are written often.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace voxlith {

struct OutputFile {
    OutputFile() = default;
    ~OutputFile();  // an unfinished file is removed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int handle = -1;
    std::array<char, 1024> name{};
    std::array<char, 1064> temporaryName{};
    std::size_t used = 0;
    bool kept = false;  // unfinished, it stays under its temporary name, to be continued by a later process
    // Several pages at each write; small enough for a short stack.
    std::array<char, 32768> buffer;
};

// Throws RunError (file and cause) when the file cannot be created.
void openOutputFile(OutputFile& file, std::string_view name);

// Space for `count` (at most 16384) further characters in the buffer; write there, then call commitOutput with the
// number of characters used. Throws RunError when the buffer cannot be written out.
char* reserveOutput(OutputFile& file, std::size_t count);
void commitOutput(OutputFile& file, std::size_t count);

void appendOutput(OutputFile& file, std::string_view text);
void appendOutputLine(OutputFile& file, std::string_view line);

// Writes out what is left in the buffer. Throws RunError; the temporary file is then gone.
void flushOutput(OutputFile& file);

// Writes out what is left, waits until it is on the disk, renames to the final name, and waits until that name is on
// the disk. Throws RunError; the earlier version then stays.
void finishOutputFile(OutputFile& file);

}  // namespace voxlith
