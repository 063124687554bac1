// Errors and warnings of the program, each as one line that a terminal can show.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

namespace voxlith {

// Control characters, which names and files may hold, as \n, \t or \x1b.
std::string escaped(std::string_view text);

// "voxlith-tools: warning: TEXT" on standard error.
void warn(std::string_view text);

// What is wrong with the command line; an unknown option is named with the known one that is nearest to it.
std::string describeParseError(const CLI::ParseError& error, const CLI::App& tools);

}  // namespace voxlith
