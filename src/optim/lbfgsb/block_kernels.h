// Long vectors in blocks that stay in the first-level cache: products of blocks with many columns, and sums of columns.
// What is read from memory once is used for all that is wanted of it.
//
// Orders of summation are fixed, whatever the instruction set: a block is summed in eight lanes, element i in lane
// i mod 8, the lanes are added in one tree, and blocks are added in ascending order; an element receives columns in
// ascending order, one addition per column.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace voxlith {

constexpr std::size_t blockLength = 512;

// Vectors that a column can be multiplied by at once.
constexpr std::size_t vectorsAtOnce = 4;

// The same block of up to four vectors.
struct VectorBlock {
    std::array<const double*, vectorsAtOnce> vector{};
    std::size_t count = 0;
    std::size_t length = 0;  // at most blockLength, and a multiple of 8 except in the last block of the vectors
};

// Columns side by side: column c begins at first + c * stride.
struct ColumnBlock {
    const double* first = nullptr;
    std::size_t stride = 0;
    std::size_t count = 0;
};

struct BlockKernels {
    // products[vectorsAtOnce * c + v] += column c ' vector v.
    void (*addProducts)(const ColumnBlock& columns, const VectorBlock& vectors, double* products);

    // out[i] += sum over c of factor[c] * column c [i], i < length.
    void (*addColumns)(const ColumnBlock& columns, const double* factor, std::size_t length, double* out);
};

// For the widest instruction set.
const BlockKernels& blockKernels();

// a'b of two vectors of the same length, of any length.
double longProduct(std::span<const double> a, std::span<const double> b);

// The same of one block.
double blockProduct(const double* a, const double* b, std::size_t length);

// Prefetches the block after this one: a pass reads more vectors side by side than the hardware prefetcher follows.
template <class Value>
inline void prefetchNextBlock(const Value* block, std::size_t length) {
    constexpr std::size_t lineLength = 64 / sizeof(Value);
    for (std::size_t i = 0; i < length; i += lineLength) {
        __builtin_prefetch(block + blockLength + i);
    }
}

}  // namespace voxlith
