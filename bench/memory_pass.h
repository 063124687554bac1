// Plain passes over memory: the least time that the machine needs for so many bytes.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith {

// Reads everything once; the result depends on every word.
std::uint64_t readingPass(std::span<const std::int32_t> words);

// Reads and writes everything once: changes the sign of each value.
void readAndWritePass(std::span<double> values);

}  // namespace voxlith
