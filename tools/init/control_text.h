// The text of a control file with its comments.
#pragma once

#include <string>
#include <vector>

#include "init/init_choices.h"

namespace voxlith {

constexpr std::size_t longestMtxLine = 240;  // room for names on the line of the sensitivity files

// Twelve lines with a comment each, product definitions for several files, and behind them, where the program reads no
// more, the reasons for the values.
std::string controlText(const InitChoices& choices, const std::string& dataFile,
                        const std::vector<std::string>& mtxFiles);

}  // namespace voxlith
