// Long vectors in pieces that stay in the nearest cache: products of pieces with many columns, and sums of columns.
// What is read from memory once is used for all that is wanted of it.
//
// Orders of summation are fixed, whatever instructions the machine has: a piece is summed in eight lanes, element i in
// lane i mod 8, the lanes are added in one tree, and pieces are added in ascending order; an element receives columns
// in ascending order, one addition a column.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "optim/instruction_set.h"

namespace voxlith {

constexpr std::size_t pieceLength = 512;

// Vectors that a column can be multiplied by at once.
constexpr std::size_t vectorsAtOnce = 4;

// The same piece of up to four vectors.
struct PieceOfVectors {
    std::array<const double*, vectorsAtOnce> vector{};
    std::size_t count = 0;
    std::size_t length = 0;  // at most pieceLength, and a multiple of 8 but for the last piece of the vectors
};

// Columns side by side: column c begins at first + c * stride.
struct PieceOfColumns {
    const double* first = nullptr;
    std::size_t stride = 0;
    std::size_t count = 0;
};

// products[vectorsAtOnce * c + v] += column c ' vector v.
void addPieceProducts(const PieceOfColumns& columns, const PieceOfVectors& vectors, double* products,
                      InstructionSet instructions);

// out[i] += sum over c of factor[c] * column c [i], i < length.
void addPieceColumns(const PieceOfColumns& columns, const double* factor, std::size_t length, double* out,
                     InstructionSet instructions);

// a'b of two vectors of the same length, of any length.
double longProduct(std::span<const double> a, std::span<const double> b, InstructionSet instructions);

// Calls for the piece behind this one ahead of its use: a pass reads so many vectors side by side that the processor
// would not follow them all by itself.
template <class Value>
inline void callForNextPiece(const Value* piece, std::size_t length) {
    constexpr std::size_t lineLength = 64 / sizeof(Value);
    for (std::size_t i = 0; i < length; i += lineLength)
        __builtin_prefetch(piece + pieceLength + i);
}

}  // namespace voxlith
