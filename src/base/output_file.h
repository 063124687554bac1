// A text or binary file that is read as a whole later. It is written to a temporary name in the same folder and renamed
// when it is complete, so that its own name always has either the last complete version or nothing. Nothing is
// allocated. This is the one place that knows how whole files reach the disk.
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
    // Many pages at each write.
    std::array<char, 262144> buffer;
};

// Throws RunError (file and cause) when the file cannot be created.
void openOutputFile(OutputFile& file, std::string_view name);

// Announces the length of the file, so that the system can allocate its blocks at once. Best effort: longer and shorter
// files come out right.
void expectOutput(OutputFile& file, std::size_t bytes);

// Space for `count` (at most 16384) further characters in the buffer; write there, then call commitOutput with the
// number of characters used. Throws RunError when the buffer cannot be written out.
char* reserveOutput(OutputFile& file, std::size_t count);
void commitOutput(OutputFile& file, std::size_t count);

void appendOutput(OutputFile& file, std::string_view text);
void appendOutputLine(OutputFile& file, std::string_view line);

// Writes out what is left, closes, and renames to the final name. Throws RunError; the earlier version then stays.
void finishOutputFile(OutputFile& file);

}  // namespace voxlith
