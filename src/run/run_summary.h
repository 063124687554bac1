// What voxlith-run shows of a run beside its iterations: sizes and memory at the start, iterations and time at the end.
#pragma once

#include <cstdint>
#include <string>

#include "driver/run_state.h"

namespace voxlith {

// "  NAME:   VALUE" with the values below each other, and a line end.
std::string summaryRow(const char* name, const std::string& value);

// "1 cell", "2 cells".
std::string countText(std::int64_t number, const char* one);

// "0.12 s", "1:02:03".
std::string timeText(double seconds);

// "120 MB", "12 GB".
std::string memoryText(double megabytes);

// Rows with data, model and sensitivities. The inputs have been read.
std::string describeSizes(const RunState& run);

// Before the first iteration.
std::string describeStart(const RunState& run);

// After the results have been written.
std::string describeEnd(std::int32_t iterations, double seconds);

}  // namespace voxlith
