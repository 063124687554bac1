// A text or binary file that a later run or a person reads whole. It is written beside its name and renamed when it is
// complete, so that under its own name there is always either the last complete version or none. Nothing is allocated.
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
    std::array<char, 1040> temporaryName{};
    std::size_t used = 0;
    // Large enough that the system takes whole runs of pages at each writing.
    std::array<char, 262144> buffer;
};

// Throws RunError (file and cause) when the file cannot be created.
void openOutputFile(OutputFile& file, std::string_view name);

// Tells how long the file will be, so that the system finds the room for it at once. A hint: longer and shorter files
// come out right, and so do files where the system knows nothing of the kind.
void expectOutput(OutputFile& file, std::size_t bytes);

// Room for `count` (at most 16384) further characters in the buffer; write there, then call commitOutput with the
// number of characters used. Throws RunError when the buffer cannot be written out.
char* reserveOutput(OutputFile& file, std::size_t count);
void commitOutput(OutputFile& file, std::size_t count);

void appendOutput(OutputFile& file, std::string_view text);
void appendOutputLine(OutputFile& file, std::string_view line);

// Writes out what is left, closes, and renames to the final name. Throws RunError; the earlier version then stays.
void finishOutputFile(OutputFile& file);

}  // namespace voxlith
