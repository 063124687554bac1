// The two sparse loops of the products over rows in working form.
//
// Orders of summation are fixed, whatever instructions the machine has. A row is summed in eight lanes, a place of a
// block in the lane where it stands, bands and blocks in ascending order; then the lanes are added in one tree. A
// position receives the runs in the order in which they lie in memory, one addition a run; the rows of a run are added
// up in ascending order before.
#pragma once

#include <cstdint>
#include <span>

#include "sensitivity/rows/blocked_rows.h"
#include "simd/instruction_set.h"

namespace voxlith {

// compact[i] = padded[usedColumns[i]].
void gatherUsed(const BlockedRows& rows, std::span<const double> padded, std::span<double> compact);

// padded[usedColumns[i]] = compact[i]; all other positions stay as they are.
void scatterUsed(const BlockedRows& rows, std::span<const double> compact, std::span<double> padded);

// out[r] = sum over row r of value * compact(place), 0 for a row without coefficients. `words` is the whole store.
void multiply(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
              std::span<double> out, InstructionSet instructions);

// compact(place) += value * factor[r] for every coefficient of every row r.
void multiplyTransposed(const BlockedRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                        std::span<double> compact, InstructionSet instructions);

}  // namespace voxlith
