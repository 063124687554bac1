// What voxlith-run says when a converged run ends: the rule that ended it, how far the objective can be from its
// minimum, the misfit of each component, and why a target was not reached.
#pragma once

#include "run/convergence/converged_mode.h"

namespace voxlith {

// On the screen and in the log. work.gradient holds at the model. For a target that was not reached it runs further
// solutions, without bounds and for single components, to find the reason; the model stays as it is.
void reportConvergedEnd(ConvergedMode& mode, InversionLoop& loop);

}  // namespace voxlith
