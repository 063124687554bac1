// The two passes over the rows of the sensitivity files: first their counts, then the coefficients into the store.
#pragma once

#include <cstddef>

#include "sensitivity/sensitivity.h"

namespace voxlith {

// First pass over file `file` (from 0), in order of the files: fills its part of store.rowOffset, which has its size,
// and the counts. Throws RunError on damage.
void countRows(Sensitivity& sensitivity, std::size_t file);

// With several ranks, after all rows are counted: gives each rank whole slabs of rows, in shares of equal coefficients,
// and leaves the other rows empty. Nothing happens with one rank.
void keepOwnRows(Sensitivity& sensitivity);

// Second pass: all rows of all files that are this rank's into the store, for which reserveRows has reserved the
// memory; closes the files. Throws RunError on damage.
void loadRows(Sensitivity& sensitivity);

}  // namespace voxlith
