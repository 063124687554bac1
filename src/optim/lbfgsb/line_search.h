// Line search with guaranteed sufficient decrease, in reverse communication (J. J. More and D. J. Thuente, Line search
// algorithms with guaranteed sufficient decrease, ACM TOMS 20, 1994). phi(step) = f(x + step d), and its slope phi' is
// g'd.
#pragma once

#include <cstdint>

#include "optim/task_word.h"

namespace voxlith {

// phi and its slope at one step.
struct TrialPoint {
    double step = 0.0;
    double value = 0.0;
    double slope = 0.0;
};

// Tolerances and limits of a search.
struct LineSearchLimits {
    double sufficientDecrease = 1.0e-3;  // mu of the paper: phi <= phi(0) + mu step phi'(0)
    double curvature = 0.9;              // eta of the paper: |phi'| <= eta |phi'(0)|
    double intervalWidth = 0.1;          // relative width at which the search stops with its best step
    double smallestStep = 0.0;
    double largestStep = 0.0;
};

// What a search keeps between two calls.
struct LineSearchState {
    TaskWord request{};      // see searchStep
    bool bracketed = false;  // best and other enclose a minimiser
    std::int32_t stage = 1;  // 1: the auxiliary function psi guides the step; 2: phi does
    TrialPoint start;        // step 0
    TrialPoint best;         // the end point of the interval with the least value, stx of the paper
    TrialPoint other;        // the other end point, sty of the paper
    double lowest = 0.0;     // limits of the next step
    double highest = 0.0;
    double width = 0.0;          // of the interval in the last step
    double previousWidth = 0.0;  // and in the step before
};

// Begins a search at step 0 with `value` and `slope`; `firstStep` is the first step to try. Afterwards state.request is
// "FG", or "ERROR: ..." if the step is outside its limits or the slope is not below 0.
void beginSearch(double value, double slope, double firstStep, const LineSearchLimits& limits, LineSearchState& state);

// Processes phi and its slope at `trial.step`. Afterwards state.request is
//   "FG"           evaluate at trial.step, which has changed, and call again;
//   "CONVERGENCE"  trial.step satisfies both conditions;
//   "WARNING: ..." no better step than trial.step can be found.
void searchStep(const LineSearchLimits& limits, TrialPoint& trial, LineSearchState& state);

// Section 4 of the paper: the safeguarded step from the end points `best` and `other` and the trial point, and the
// updated interval. `trial.step` becomes the next step, within lowest and highest as long as no minimiser is bracketed.
void safeguardedStep(TrialPoint& best, TrialPoint& other, TrialPoint& trial, bool& bracketed, double lowest,
                     double highest);

}  // namespace voxlith
