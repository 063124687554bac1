// Tokens and spaces in text buffers. Lines and file names have at most 256 characters; trailing spaces do not count.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace voxlith {

constexpr std::size_t lineWidth = 256;
constexpr std::size_t tokenWidth = 32;

// Moves the first token of `line` to `token` (cut at 32 characters). Tokens end at a space, comma or tab, of which one
// is consumed; leading spaces are skipped, so that a leading comma or tab gives an empty token. A blank line is not
// changed.
void nextToken(std::string& line, std::string& token);

// Removes everything from the first "!" on.
void removeComment(std::string& line);

std::string_view trimRight(std::string_view text);
std::string_view trim(std::string_view text);
bool isBlank(std::string_view text);

// "null" or "NULL", not other spellings: as the whole text (trailing spaces ignored),
// or in the first four columns.
bool isNullWord(std::string_view text);
bool startsWithNull(std::string_view text);

// The name of a file as it is opened: cut at 256 characters, then without leading and trailing spaces.
std::string fileNameOf(std::string_view text);

// True when `name` can be opened for reading and is a regular file or a symbolic link to one.
bool fileExists(const std::string& name);

}  // namespace voxlith
