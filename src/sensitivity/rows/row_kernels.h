// The sparse loops over one raw row: of a file that is read from disk, or of a store not yet arranged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/instruction_set.h"

namespace voxlith {

// Sum of coefValue * padded(coefIndex) over the n coefficients of a row, in real64: in eight lanes, coefficient p in
// lane p mod 8, added in one tree; 0 for an empty row. coefIndex counts from 1, coefValue holds the bits of real32.
// The same bytes whatever the instructions.
double rowTimesPadded(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, const double* padded,
                      InstructionSet instructions);

// padded(coefIndex) += coefValue * factor for every coefficient, in the order of the row.
void addRowTransposed(const std::int32_t* coefIndex, const std::int32_t* coefValue, std::size_t n, double factor,
                      double* padded, InstructionSet instructions);

// Whether all indices are from 1 to `positions`.
bool indicesInside(const std::int32_t* coefIndex, std::size_t n, std::uint32_t positions, InstructionSet instructions);

}  // namespace voxlith
