// Sensitivity files through the stages of a run: headers, scan, tail, rows, products.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith::fuzzing {

// What is tried with a file once it has been read.
struct MtxTrial {
    bool fromDisk = false;  // products with rows from disk
    std::span<const std::uint8_t> first;
    std::span<const std::uint8_t> second;  // a second file of a joint run, when not empty
};

void runMtxTrial(const MtxTrial& trial);

// A trial as its bytes say: a byte of choices, perhaps the length of the first file in two bytes, then the files.
// `prefix` is put before a file that does not begin with it.
void runMtxInput(std::span<const std::uint8_t> input, std::span<const std::uint8_t> prefix);

}  // namespace voxlith::fuzzing
