// The line search of the PLIS engine: from a first step far too short it extends the bracket until the slope has
// flattened, and reduces it where the value has not come down enough.
#pragma once

#include "optim/plis/plis.h"

namespace voxlith::plis {

// What becomes of a search after a trial step; a positive end is a good one. The numbers are those of searchStatus.
enum SearchEnd : std::int32_t {
    endVoidBracket = -3,  // its lower end isn't below its upper end
    endNoDescent = -2,    // the slope at its lower end points up
    endTooManySteps = -1,
    endSmallestStep = 0,  // not even the smallest step brings the value down
    endAccepted = 4,
    endLargestStep = 7,  // accepted at the largest step, or at a value without limit below
    searchGoesOn = 100,
};

// Sets the first step and the bracket of a search whose fo, po, stepMin and stepMax are set.
void beginSearch(PlisState& search);

// Judges step search.r with value f and slope search.p; if the search goes on, search.r is the next step.
SearchEnd judgeStep(double f, PlisState& search);

}  // namespace voxlith::plis
