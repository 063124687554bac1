// A text file opened for reading, read in large blocks, or a text in memory that is read the same way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace voxlith {

struct TextInput {
    TextInput() = default;
    ~TextInput();
    TextInput(const TextInput&) = delete;
    TextInput& operator=(const TextInput&) = delete;

    std::string name;             // for messages
    int handle = -1;              // file descriptor; -1 for a text in memory or when closed
    std::vector<char> block;      // read-ahead of the file
    std::string_view ahead;       // the characters not yet consumed: of `block`, or of the text in memory
    std::string_view wholeText;   // the text in memory from its beginning
    bool ended = false;           // nothing follows `ahead`
    std::int64_t lineNumber = 1;  // of the line in which `ahead` begins
};

// False when the file is not there, cannot be opened, or is no regular file or a symbolic link to one; errno has
// the reason.
bool openTextInput(TextInput& input, const std::string& name);
void openTextInMemory(TextInput& input, std::string_view text, std::string_view name = "text");
void rewindTextInput(TextInput& input);
void closeTextInput(TextInput& input);

// True when no character is left. Throws RunError when the file cannot be read.
bool atEnd(TextInput& input);

// Reads the next line, without its line end and trailing carriage returns, cut at `width` characters. False at the end
// of the text; a last line without a line end still counts as a line. A line of any length costs memory for `width`
// only.
bool readLine(TextInput& input, std::string& line, std::size_t width = 256);

// Makes at least one more character available in `ahead`, if there is one; keeps what is there. False at the end.
bool fillAhead(TextInput& input);

}  // namespace voxlith
