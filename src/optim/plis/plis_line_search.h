// The line search of the PLIS engine: from a first step that is far too short it extends the bracket until the slope
// has flattened, and reduces it where the value has not decreased enough.
#pragma once

#include "optim/plis/plis.h"

namespace voxlith::plis {

// Result of a search after a trial step; positive for success. The numbers are those of searchStatus.
enum SearchEnd : std::int32_t {
    endVoidBracket = -3,  // its lower end is not below its upper end
    endNoDescent = -2,    // the slope at its lower end points up
    endTooManySteps = -1,
    endSmallestStep = 0,  // not even the smallest step decreases the value
    endAccepted = 4,
    endLargestStep = 7,  // accepted at the largest step, or at a value below valueFloor
    searchContinues = 100,
};

// Sets the first step and the bracket of a search whose fo, po, stepMin and stepMax are set.
void beginSearch(PlisState& search);

// Evaluates step search.r with value f and slope search.p; if the search continues, search.r becomes the next step.
SearchEnd evaluateStep(double f, PlisState& search);

}  // namespace voxlith::plis
