// What one column of cells adds to the model norms and to their gradient. A column is read once for all terms, together
// with its neighbours at i + 1 and j + 1, so that a pass over the columns reads every array once.
//
// Orders of summation are fixed: norms are summed cell by cell down the columns, and a cell of the gradient receives
// its terms in the order y, x, z, reference. The results are the same bytes with all instruction sets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace voxlith {

// Cells of a column that are processed together, in arrays that stay in the first-level cache.
constexpr std::size_t columnBlock = 128;

struct ModelNorms {
    double reference = 0;
    double y = 0, x = 0, z = 0;
};

// One column of the model with the arrays that belong to it, from its first cell. Null: no neighbour on that side, no
// depth weights, no reference, no differences along z.
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
    std::size_t height = 0, used = 0;         // cells; those from the top with lateral pairs and a reference term
};

// Input, state and output of the gradient of a column.
struct ColumnGradient {
    // Pair gradients of a block between the previous column in x and this one; replaced by those with the next one.
    std::array<double, columnBlock> alongX{};
    bool firstRow = false;  // otherwise `out` holds the pair gradients along y that the previous row has left there
    double multiplier = 0, nData = 1;
    const double* adjoint = nullptr;  // arrays of the column, from its first cell
    const std::int32_t* fixedCell = nullptr;
    const float* referenceWeight = nullptr;  // depth weight of the reference term; null with the column's
    double* out = nullptr;                   // of the block, from its first cell
    double* outNextY = nullptr;              // receives the pair gradients along y of this row; null in the last row
};

struct ColumnKernels {
    // Adds the norms of one column.
    void (*addNorms)(const ModelColumn& column, ModelNorms& norms);

    // out = multiplier * (sum of gradients) + adjoint / nData, 0 for fixed cells, for the block of the column that
    // begins with cell `first`: columnBlock cells at most.
    void (*addGradient)(const ModelColumn& column, std::size_t first, ColumnGradient& gradient);
};

// For the widest instruction set.
const ColumnKernels& columnKernels();

}  // namespace voxlith
