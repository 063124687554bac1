// Files of real64 numbers as they are in memory (little-endian), by which voxlith-tools hands over what text would make
// slow or inexact. They live only as long as a command.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace voxlith {

// All numbers of the file: `count` finite ones. Throws RunError for any other content.
std::vector<double> readReals(const std::string& fileName, std::size_t count);

}  // namespace voxlith
