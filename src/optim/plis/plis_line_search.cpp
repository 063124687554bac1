#include "optim/plis/plis_line_search.h"

#include <algorithm>
#include <cmath>

#include "optim/plis/plis_constants.h"

namespace voxlith::plis {

namespace {

// The value has decreased enough; or its change is down to the rounding error, and the slope has flattened.
bool isLowEnough(double f, const PlisState& search) {
    const double change = f - search.fo;
    const double slope = std::abs(search.p);
    const double startSlope = std::abs(search.po);
    const double size = std::abs(search.fo);
    return change <= decreaseTol * search.r * search.po || (size * 1.0e-11 <= -change && slope <= 0.01 * startSlope) ||
           (slope <= 0.5 * startSlope && std::abs(change) <= 2.0e-13 * size);
}

// Makes step r an end of the bracket.
void updateBracket(double f, bool lowEnough, PlisState& search) {
    if (search.reducing == 0) {
        search.rLower = search.rUpper;
        search.fLower = search.fUpper;
        search.pLower = search.pUpper;
        if (!lowEnough) {
            search.reducing = 1;
            search.reductionCount = 0;
        }
    }
    search.rUpper = search.r;
    search.fUpper = f;
    search.pUpper = search.p;
}

// The minimiser interpolated between the ends of the bracket, as t with the step rLower + (rUpper - rLower)/t: by the
// cubic (4), the secant of the slopes (3), the quadratic through the values (2). False if there is none.
bool interpolate(int rule, const PlisState& search, double& t) {
    const double q = search.pUpper / search.pLower;
    const double e = (search.fUpper - search.fLower) / ((search.rUpper - search.rLower) * search.pLower);
    if (rule == 3) {
        t = 1.0 - q;
        return true;
    }
    if (rule == 2) {
        t = 2.0 * (1.0 - e);
        return true;
    }
    const double w = 2.0 - 3.0 * e + q;
    const double discriminant = w * w - 3.0 * (1.0 - 2.0 * e + q);
    if (discriminant < 0.0) {
        return false;
    }
    t = std::sqrt(discriminant) + w;
    return true;
}

double extendedStep(int firstRule, const PlisState& search) {
    double next = 4.0 * search.rUpper;
    for (int rule = firstRule; rule > 1; --rule) {
        double t = 0.0;
        if (interpolate(rule, search, t) && t > 0.0 && t < 1.0) {
            next = search.rLower + (search.rUpper - search.rLower) / t;
            next = std::clamp(next, 1.1 * search.rUpper, 1000.0 * search.rUpper);
            break;
        }
    }
    return std::min(next, search.stepMax);
}

double reducedStep(int firstRule, const PlisState& search) {
    const double width = search.rUpper - search.rLower;
    for (int rule = firstRule; rule > 1; --rule) {
        double t = 0.0;
        if (interpolate(rule, search, t) && t > 1.0) {
            const double least = search.rLower + (search.rLower == 0.0 ? 0.01 : 0.1) * width;
            return std::min(std::max(search.rLower + width / t, least), search.rLower + 0.9 * width);
        }
    }
    return 0.5 * (search.rLower + search.rUpper);
}

}  // namespace

void beginSearch(PlisState& search) {
    search.r = std::min(std::max(firstStep, search.stepMin), search.stepMax);
    search.reducing = 0;
    search.reductionCount = 0;
    search.rLower = search.rUpper = 0.0;
    search.fLower = search.fUpper = search.fo;
    search.pLower = search.pUpper = search.po;
}

SearchEnd evaluateStep(double f, PlisState& search) {
    if (f <= valueFloor) {
        return endLargestStep;
    }
    const bool lowEnough = isLowEnough(f, search);
    const double flatSlope = slopeTol * search.po;
    if (search.r <= search.stepMin && search.iterationCount != search.lastRestartIteration && !lowEnough) {
        return endSmallestStep;
    }
    if (search.r >= search.stepMax && lowEnough && search.p < flatSlope) {
        return endLargestStep;
    }
    if (lowEnough && (search.p >= flatSlope || search.reducing != 0)) {
        return endAccepted;
    }
    if (std::abs(search.reductionCount) >= maxReductions) {
        return endTooManySteps;
    }
    updateBracket(f, lowEnough, search);
    if (!(search.pLower < 0.0)) {
        return endNoDescent;
    }
    if (!(search.rLower < search.rUpper)) {
        return endVoidBracket;
    }
    const int firstRule = f >= valueCeiling ? 1 : 4;
    if (search.reducing == 0) {
        search.r = extendedStep(firstRule, search);
        --search.reductionCount;
    } else {
        search.r = reducedStep(firstRule, search);
        ++search.reductionCount;
    }
    return searchContinues;
}

}  // namespace voxlith::plis
