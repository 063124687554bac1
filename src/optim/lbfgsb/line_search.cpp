#include "optim/lbfgsb/line_search.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace voxlith {

namespace {

// Limits of a step as long as no minimiser is bracketed: the trial step plus this multiple of its distance from the
// best step.
constexpr double leastExtrapolation = 1.1;
constexpr double largestExtrapolation = 4.0;
constexpr double requiredShrinkage = 0.66;

// The common terms of the cubic that interpolates two values and two slopes: theta and gamma of the paper.
struct CubicTerms {
    double theta;
    double gamma;
};

CubicTerms cubicTerms(const TrialPoint& from, const TrialPoint& to) {
    const double theta = 3.0 * (from.value - to.value) / (to.step - from.step) + from.slope + to.slope;
    const double scale = std::max({std::abs(theta), std::abs(from.slope), std::abs(to.slope)});
    const double ratio = theta / scale;
    // Below 0 by rounding, or where the cubic has no minimiser.
    const double radicand = std::max(0.0, ratio * ratio - (from.slope / scale) * (to.slope / scale));
    return {theta, scale * std::sqrt(radicand)};
}

// Minimiser of the cubic through `near` and `far`, as a step from `near`; `near` is the better conditioned end.
double cubicMinimiser(const TrialPoint& near, const TrialPoint& far) {
    CubicTerms cubic = cubicTerms(near, far);
    if (far.step < near.step) {
        cubic.gamma = -cubic.gamma;
    }
    const double numerator = (cubic.gamma - near.slope) + cubic.theta;
    const double denominator = ((cubic.gamma - near.slope) + cubic.gamma) + far.slope;
    return near.step + numerator / denominator * (far.step - near.step);
}

// Minimiser of the parabola with the slopes of both points.
double secantMinimiser(const TrialPoint& trial, const TrialPoint& best) {
    return trial.step + trial.slope / (trial.slope - best.slope) * (best.step - trial.step);
}

// Case 1: the trial value is higher, so a minimiser is between. The cubic step if it is closer to the best point than
// the parabola through both values and the slope at the best point, else the mean of both.
double stepAtHigherValue(const TrialPoint& best, const TrialPoint& trial) {
    const double cubic = cubicMinimiser(best, trial);
    const double length = trial.step - best.step;
    const double parabola = best.step + best.slope / ((best.value - trial.value) / length + best.slope) / 2.0 * length;
    if (std::abs(cubic - best.step) < std::abs(parabola - best.step)) {
        return cubic;
    }
    return cubic + (parabola - cubic) / 2.0;
}

// Case 2: a lower value and slopes of opposite sign, so a minimiser is between: the one of the cubic and the secant
// step that is farther from the trial point.
double stepAtOppositeSlope(const TrialPoint& best, const TrialPoint& trial) {
    const double cubic = cubicMinimiser(trial, best);
    const double secant = secantMinimiser(trial, best);
    return std::abs(cubic - trial.step) > std::abs(secant - trial.step) ? cubic : secant;
}

// The cubic step of case 3 is used only if the cubic tends to infinity in the direction of the step, or if its
// minimiser is beyond the trial point; otherwise the limit of the step is.
double cubicBeyondTrial(const TrialPoint& best, const TrialPoint& trial, double lowest, double highest) {
    CubicTerms cubic = cubicTerms(best, trial);
    if (trial.step > best.step) {
        cubic.gamma = -cubic.gamma;
    }
    const double numerator = (cubic.gamma - trial.slope) + cubic.theta;
    const double denominator = (cubic.gamma + (best.slope - trial.slope)) + cubic.gamma;
    const double ratio = numerator / denominator;
    if (ratio < 0.0 && cubic.gamma != 0.0) {
        return trial.step + ratio * (best.step - trial.step);
    }
    return trial.step > best.step ? highest : lowest;
}

// Case 3: a lower value, slopes of the same sign, and the slope has become flatter.
double stepAtFlatterSlope(const TrialPoint& best, const TrialPoint& other, const TrialPoint& trial, bool bracketed,
                          double lowest, double highest) {
    const double cubic = cubicBeyondTrial(best, trial, lowest, highest);
    const double secant = secantMinimiser(trial, best);
    const bool cubicIsCloser = std::abs(cubic - trial.step) < std::abs(secant - trial.step);
    const bool cubicIsFarther = std::abs(cubic - trial.step) > std::abs(secant - trial.step);
    if (!bracketed) {
        return std::max(lowest, std::min(highest, cubicIsFarther ? cubic : secant));
    }
    const double step = cubicIsCloser ? cubic : secant;
    const double limit = trial.step + requiredShrinkage * (other.step - trial.step);
    return trial.step > best.step ? std::min(limit, step) : std::max(limit, step);
}

// Case 4: a lower value, slopes of the same sign, and the slope has not become flatter.
double stepAtSteeperSlope(const TrialPoint& best, const TrialPoint& other, const TrialPoint& trial, bool bracketed,
                          double lowest, double highest) {
    if (bracketed) {
        return cubicMinimiser(trial, other);
    }
    return trial.step > best.step ? highest : lowest;
}

bool endsSearch(const LineSearchLimits& limits, const TrialPoint& trial, double decreasedValue, double decreasedSlope,
                LineSearchState& state) {
    const bool decreased = trial.value <= decreasedValue;
    std::string_view ending;
    if (state.bracketed && (trial.step <= state.lowest || trial.step >= state.highest)) {
        ending = "WARNING: ROUNDING ERRORS PREVENT PROGRESS";
    }
    if (state.bracketed && state.highest - state.lowest <= limits.intervalWidth * state.highest) {
        ending = "WARNING: XTOL TEST SATISFIED";
    }
    if (trial.step == limits.largestStep && decreased && trial.slope <= decreasedSlope) {
        ending = "WARNING: STP = STPMAX";
    }
    if (trial.step == limits.smallestStep && (!decreased || trial.slope >= decreasedSlope)) {
        ending = "WARNING: STP = STPMIN";
    }
    if (decreased && std::abs(trial.slope) <= limits.curvature * -state.start.slope) {
        ending = "CONVERGENCE";
    }
    if (ending.empty()) {
        return false;
    }
    setTask(state.request, ending);
    return true;
}

// Adds `change` times the step to the value, and `change` to the slope.
void tilt(TrialPoint& point, double change) {
    point.value += point.step * change;
    point.slope += change;
}

void keepStepWithinLimits(const LineSearchLimits& limits, TrialPoint& trial, LineSearchState& state) {
    if (state.bracketed) {
        if (std::abs(state.other.step - state.best.step) >= requiredShrinkage * state.previousWidth) {
            trial.step = state.best.step + 0.5 * (state.other.step - state.best.step);
        }
        state.previousWidth = state.width;
        state.width = std::abs(state.other.step - state.best.step);
        state.lowest = std::min(state.best.step, state.other.step);
        state.highest = std::max(state.best.step, state.other.step);
    } else {
        state.lowest = trial.step + leastExtrapolation * (trial.step - state.best.step);
        state.highest = trial.step + largestExtrapolation * (trial.step - state.best.step);
    }
    trial.step = std::min(std::max(trial.step, limits.smallestStep), limits.largestStep);
    const bool noSpace = trial.step <= state.lowest || trial.step >= state.highest ||
                         state.highest - state.lowest <= limits.intervalWidth * state.highest;
    if (state.bracketed && noSpace) {
        trial.step = state.best.step;
    }
}

}  // namespace

void safeguardedStep(TrialPoint& best, TrialPoint& other, TrialPoint& trial, bool& bracketed, double lowest,
                     double highest) {
    const bool higher = trial.value > best.value;
    const bool oppositeSlopes = trial.slope * (best.slope / std::abs(best.slope)) < 0.0;
    double next = 0.0;
    if (higher) {
        next = stepAtHigherValue(best, trial);
        bracketed = true;
    } else if (oppositeSlopes) {
        next = stepAtOppositeSlope(best, trial);
        bracketed = true;
    } else if (std::abs(trial.slope) < std::abs(best.slope)) {
        next = stepAtFlatterSlope(best, other, trial, bracketed, lowest, highest);
    } else {
        next = stepAtSteeperSlope(best, other, trial, bracketed, lowest, highest);
    }
    // The interval of uncertainty (paper, section 2, updating algorithm).
    if (higher) {
        other = trial;
    } else {
        if (oppositeSlopes) {
            other = best;
        }
        best = trial;
    }
    trial.step = next;
}

void beginSearch(double value, double slope, double firstStep, const LineSearchLimits& limits, LineSearchState& state) {
    assert(limits.smallestStep <= limits.largestStep);
    state = {};
    if (!(firstStep >= limits.smallestStep)) {
        setTask(state.request, "ERROR: STP .LT. STPMIN");
    } else if (!(firstStep <= limits.largestStep)) {
        setTask(state.request, "ERROR: STP .GT. STPMAX");
    } else if (!(slope < 0.0)) {
        setTask(state.request, "ERROR: INITIAL G .GE. ZERO");
    } else {
        state.start = {0.0, value, slope};
        state.best = state.start;
        state.other = state.start;
        state.width = limits.largestStep - limits.smallestStep;
        state.previousWidth = 2.0 * state.width;
        state.highest = firstStep + largestExtrapolation * firstStep;
        setTask(state.request, "FG");
    }
}

void searchStep(const LineSearchLimits& limits, TrialPoint& trial, LineSearchState& state) {
    const double decreasedSlope = limits.sufficientDecrease * state.start.slope;
    const double decreasedValue = state.start.value + trial.step * decreasedSlope;
    const double stageSlope = std::min(limits.sufficientDecrease, limits.curvature) * state.start.slope;
    if (state.stage == 1 && trial.value <= decreasedValue && trial.slope >= stageSlope) {
        state.stage = 2;
    }
    if (endsSearch(limits, trial, decreasedValue, decreasedSlope, state)) {
        return;
    }
    // Stage 1 works with psi(step) = phi(step) - phi(0) - mu phi'(0) step while the decrease is not sufficient yet. The
    // constant phi(0) cancels in all differences.
    const bool useAuxiliary = state.stage == 1 && trial.value <= state.best.value && trial.value > decreasedValue;
    if (useAuxiliary) {
        tilt(state.best, -decreasedSlope);
        tilt(state.other, -decreasedSlope);
        tilt(trial, -decreasedSlope);
    }
    safeguardedStep(state.best, state.other, trial, state.bracketed, state.lowest, state.highest);
    if (useAuxiliary) {
        tilt(state.best, decreasedSlope);
        tilt(state.other, decreasedSlope);
    }
    keepStepWithinLimits(limits, trial, state);
    setTask(state.request, "FG");
}

}  // namespace voxlith
