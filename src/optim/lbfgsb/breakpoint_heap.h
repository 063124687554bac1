// A binary heap of the breakpoints of the Cauchy search: times and the variables that belong to them, least time first.
// Numbers that are no numbers may stand anywhere in the heap; no index goes astray by them.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith {

// Orders the first `count` entries as a heap.
void makeHeap(std::span<double> times, std::span<std::int32_t> variables, std::size_t count);

// Takes the least of `count` > 0 entries from the heap and puts it into entry count - 1; the rest is a heap of count
// - 1.
void popLeast(std::span<double> times, std::span<std::int32_t> variables, std::size_t count);

}  // namespace voxlith
