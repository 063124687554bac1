// The help of a program or subcommand: usage, options, what follows them. Manual pages and completions are made from
// this text, so all programs, those in Python included, lay it out alike.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace voxlith {

// Gives the program, and the subcommands added later, this layout and its `-h, --help`.
void useHelpLayout(CLI::App& program);

// The help of one program or subcommand. An option shows its type name, which has no colon, as placeholder;
// one without a description or group is hidden.
std::string helpText(const CLI::App& command);

}  // namespace voxlith
