// The large arrays of a run: allocated once, in groups, at fixed points of the pass over the first sensitivity file,
// and kept to the end. Each group adds to a tally of planned bytes.
//
// Compatibility: the tally keeps its formulas, whatever the arrays really take.
#pragma once

#include "driver/run_state.h"

namespace voxlith {

// As soon as nData is known.
void allocateObsArrays(RunState& run);

// When the mesh size is known. The tally starts anew: what the observed arrays added is not reported.
void allocateMeshArrays(RunState& run);

// Before the nodes of a record form are read.
void allocateTopography(RunState& run);

// When the depth weight of the first file has been read. The tally starts anew once more.
void allocateModelArrays(RunState& run);

// After all files have been scanned: space for all rows, or, when it is refused, for one row (idisk 1). A joint run of
// exactly two files ends instead.
void allocateCoefStore(RunState& run);

}  // namespace voxlith
