#include "run/convergence/accuracy_rule.h"

#include <algorithm>
#include <cmath>

namespace voxlith {

double accuracyAt(const AccuracyRule& rule, double misfit) {
    if (!(rule.target > 0.0)) {
        return rule.finalAccuracy;
    }
    const double distance = std::abs(std::log(misfit / rule.target));
    if (distance > std::log(4.0)) {
        return 2.0e-2;
    }
    if (distance > std::log(1.3)) {
        return 3.0e-3;
    }
    return distance > 2.0 * std::log1p(rule.tolerance) ? std::max(5.0e-4, rule.finalAccuracy) : rule.finalAccuracy;
}

}  // namespace voxlith
