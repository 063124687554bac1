// The two sparse loops of the products over compressed rows that lie in memory.
//
// Orders of summation are fixed, so that every form of these loops gives the same bytes: a row is summed over its
// positions from left to right into one accumulator; a padded position receives the rows in ascending order, one
// addition a row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace voxlith {

// Rows r = 0, 1, ... occupy the places rowOffset[r] - 1 to rowOffset[r + 1] - 2 of both arrays; coefIndex counts the
// padded positions from 1, and all indices lie inside the padded array.
struct SparseRows {
    std::span<const std::int64_t> rowOffset;  // one more than rows
    const std::int32_t* coefIndex = nullptr;
    const float* coefValue = nullptr;
};

// out[r] = sum of coefValue * padded(coefIndex) over row r, in real64; 0 for an empty row.
void rowsTimesPadded(const SparseRows& rows, std::span<const double> padded, std::span<double> out);

// padded(coefIndex) += coefValue * factor[r] for every coefficient of every row r.
void addRowsTransposed(const SparseRows& rows, std::span<const double> factor, std::span<double> padded);

// The same for one row of n coefficients.
double rowTimesPadded(const std::int32_t* coefIndex, const float* coefValue, std::size_t n, const double* padded);
void addRowTransposed(const std::int32_t* coefIndex, const float* coefValue, std::size_t n, double factor,
                      double* padded);

}  // namespace voxlith
