// A binary heap of the breakpoints of the Cauchy search: times and their variables in two arrays, least time first. Not
// std::make_heap: the arrays are two parts of the workspace, and the order of equal times must not depend on the
// library. A NaN may be anywhere in the heap; every index stays within it.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith {

// Orders the first `count` entries as a heap.
void makeHeap(std::span<double> times, std::span<std::int32_t> variables, std::size_t count);

// Moves the least of `count` > 0 entries to entry count - 1; the others are a heap of count - 1 entries.
void popLeast(std::span<double> times, std::span<std::int32_t> variables, std::size_t count);

}  // namespace voxlith
