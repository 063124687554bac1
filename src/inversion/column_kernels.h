// What one column of cells adds to the model norms and to their derivative. A column is looked at once for all terms,
// with its neighbours to the next i and the next j, so that a pass over the columns reads every array once.
//
// Sums have one order each, cell by cell down the columns, and a cell of the derivative receives its parts in the order
// y, x, z, reference; the results are the same bytes with all instruction sets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "simd/instruction_set.h"

namespace voxlith {

// Cells of a column are worked on so many at a time, in arrays that stay in the nearest cache.
constexpr std::size_t columnBlock = 128;

struct ModelNorms {
    double reference = 0;
    double y = 0, x = 0, z = 0;
};

// One column of the model with what belongs to it. Null: no neighbour on that side, no depth weights, no reference, no
// differences along z.
struct ModelColumn {
    const double* model = nullptr;
    const double* nextX = nullptr;
    const double* nextY = nullptr;
    const double* reference = nullptr;
    const float* depthWeight = nullptr;
    const float* depthWeightNextX = nullptr;
    const float* depthWeightNextY = nullptr;
    const float* wtS = nullptr;
    const float* wtE = nullptr;  // of the pairs along x
    const float* wtN = nullptr;  // of the pairs along y
    const float* wtZ = nullptr;
    const double* zWidth = nullptr;
    double distanceX = 1.0, distanceY = 1.0;  // distances from the neighbours
    std::size_t height = 0, used = 0;         // cells, and those of them that have lateral pairs and a reference term
};

void addColumnNorms(const ModelColumn& column, InstructionSet instructions, ModelNorms& norms);

// What the derivative of a block of a column goes on from and leaves behind.
struct ColumnGradient {
    std::array<double, columnBlock>
        alongX{};           // gradients between the column before in x and this one; replaced by the next
    bool firstRow = false;  // else `out` holds what the row before has left in it
    double multiplier = 0, nData = 1;
    const double* adjoint = nullptr;  // arrays of the column, from its first cell
    const std::int32_t* fixedCell = nullptr;
    const float* referenceWeight = nullptr;  // depth weight of the gradient of the reference; null with the column's
    double* out = nullptr;
    double* outNextY = nullptr;  // receives the gradient of this row; null in the last one
};

// out = multiplier * (sum of gradients) + adjoint / nData, 0 for fixed cells, for cells `first` to `first` +
// columnBlock of the column at most.
void addColumnGradient(const ModelColumn& column, std::size_t first, InstructionSet instructions,
                       ColumnGradient& gradient);

}  // namespace voxlith
