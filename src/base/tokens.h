// Words and blanks in text buffers. Line buffers and file names hold 256 characters and count as padded with blanks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace voxlith {

constexpr std::size_t lineWidth = 256;
constexpr std::size_t tokenWidth = 32;

// Takes the first word off `line` into `token` (cut at 32 characters). Words end at a blank, comma or tab, of which one
// is consumed; leading blanks alone are skipped, so that a comma or tab standing first gives a blank token. A blank
// line stays as it is.
void nextToken(std::string& line, std::string& token);

// Blanks everything from the first "!" on.
void removeComment(std::string& line);

std::string_view trimRight(std::string_view text);
std::string_view trim(std::string_view text);
bool isBlank(std::string_view text);

// The word null in one of the two spellings that count, "null" and "NULL": as the whole text (trailing blanks ignored),
// or in the first four columns.
bool isNullWord(std::string_view text);
bool startsWithNull(std::string_view text);

// The name of a file as it is opened: cut at 256 characters, then without leading and trailing blanks.
std::string fileNameOf(std::string_view text);

// True when `name` can be opened for reading and is a regular file or a symbolic link to one.
bool fileExists(const std::string& name);

}  // namespace voxlith
