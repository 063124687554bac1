// Products with the blocked rows of one file, A, and with their transpose: y = A c and c += A'r, where c is the compact
// array of the used columns.
//
// Both take a range, so that threads can share a product: y by rows, c by bands. Orders of summation depend on the
// layout of the rows alone, not on ranges or on the instruction set. A row is summed in eight lanes, an entry of a
// block in the lane of its index in the block, bands and blocks ascending; then the lanes are added in one tree. A
// column receives the groups in the order of the list, one addition per group, after the rows of a
// group have been added up, ascending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// compact[i] = padded[usedColumns[i]]. These three are shared by all workers, too.
void gatherUsed(const BlockedRows& rows, std::span<const double> padded, std::span<double> compact);

// padded[usedColumns[i]] = compact[i]. The other positions become 0 below `cleared`, and stay as they are from there
// on.
void scatterUsed(const BlockedRows& rows, std::span<const double> compact, std::size_t cleared,
                 std::span<double> padded);

// True if no value is infinite or NaN.
bool allFinite(std::span<const double> values);

// out[r] = sum over row r of value * compact(column), 0 for a row without coefficients, for the rows firstRow up to
// endRow; both are multiples of tileRows, or the end of the rows. `words` is the whole store; `finite` is allFinite of
// the used columns of `compact`.
void multiply(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
              bool finite, std::size_t firstRow, std::size_t endRow, std::span<double> out);

// compact(column) += value * factor[r] for every coefficient of every row r whose column is in the bands firstBand up
// to endBand. `finite` is allFinite(factor).
void multiplyTransposed(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                        bool finite, std::size_t firstBand, std::size_t endBand, std::span<double> compact);

// The same by all workers: y by tiles, c by bands, in shares of equal length as stored.
void multiplyShared(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
                    bool finite, std::span<double> out);
void multiplyTransposedShared(const BlockedRows& rows, std::span<const std::int32_t> words,
                              std::span<const double> factor, bool finite, std::span<double> compact);

// The second by all workers of all ranks: chunk by chunk of the bands, each rank adds its rows to what the ranks before
// have added. All get the whole of c.
void multiplyTransposedAlongRanks(const BlockedRows& rows, std::span<const std::int32_t> words,
                                  std::span<const double> factor, bool finite, std::span<double> compact);

struct BlockedRowKernels {
    // Adds the products of groups in blocks to the lanes of their rows; the eight lanes of row `firstRow` come first.
    void (*multiplyGroups)(std::span<const RowGroup> groups, const std::int32_t* words, const double* compact,
                           std::size_t firstRow, double* rowLanes);

    // Adds the transposed products of groups in blocks to the compact array; `factor` begins with the file's first row.
    void (*addGroups)(std::span<const RowGroup> groups, const std::int32_t* words, const double* factor,
                      double* compact);
};

}  // namespace voxlith
