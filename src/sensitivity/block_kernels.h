// The two sparse loops of the products over rows in working form.
//
// Orders of summation are fixed, whatever instructions the machine has: a row is summed in eight lanes, position p of
// its list in lane p mod 8, and the lanes are added in one tree; a position receives the rows in ascending order, one
// addition a row.
#pragma once

#include <cstdint>
#include <span>

#include "optim/instruction_set.h"
#include "sensitivity/working_rows.h"

namespace voxlith {

// compact[i] = padded[positionsInUse[i]], and 0 in the spare place.
void gatherInUse(const WorkingRows& rows, std::span<const double> padded, std::span<double> compact);

// padded[positionsInUse[i]] = compact[i]; all other positions stay as they are.
void scatterInUse(const WorkingRows& rows, std::span<const double> compact, std::span<double> padded);

// out[r] = sum over row r of value * compact(place). `words` is the whole store.
void rowsTimesCompact(const WorkingRows& rows, std::span<const std::int32_t> words, std::span<const double> compact,
                      std::span<double> out, InstructionSet instructions);

// compact(place) += value * factor[r] for every coefficient of every row r.
void addRowsToCompact(const WorkingRows& rows, std::span<const std::int32_t> words, std::span<const double> factor,
                      std::span<double> compact, InstructionSet instructions);

}  // namespace voxlith
