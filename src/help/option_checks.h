// Checks of the values of options, with messages as the programs in Python have them: what was expected, what was
// found.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace voxlith {

// One of these words.
CLI::Validator oneOf(const std::vector<std::string>& words);

// A whole number from `least` to `most`.
CLI::Validator wholeNumber(long least, long most);

}  // namespace voxlith
