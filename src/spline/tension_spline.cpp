#include "spline/tension_spline.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

#include "spline/hyperbolic_terms.h"
#include "spline/interval_search.h"
#include "spline/voxlith_spline.h"

namespace voxlith {
namespace {

// Changes speed only; one per thread.
thread_local std::int32_t savedTensionIndex = 1;

// sinh(|x|)/|x| - 1 from the forms of finer ranges
double sinhTermOf(double x) {
    double sinhTerm = 0.0;
    double unused = 0.0;
    hyperbolicTerms(sinhTerm, unused, x, -1);
    return sinhTerm;
}

double coshTermOf(double x) {
    double unused = 0.0;
    double coshTerm = 0.0;
    hyperbolicTerms(unused, coshTerm, x, 1);
    return coshTerm;
}

// The caller's table, three entries per knot: value, second derivative, elimination factor.
struct TensionTable {
    double* entries;

    double& c1(std::size_t i) const { return entries[3 * i]; }
    double& c2(std::size_t i) const { return entries[3 * i + 1]; }
    double& c3(std::size_t i) const { return entries[3 * i + 2]; }
};

// Three knots (two if n is 2) and the values there, counted inwards from the end where the slope is computed.
struct EndPoints {
    double del1, del2;
    double value0, value1, value2;
};

EndPoints startPoints(std::span<const double> x, const TensionTable& c) {
    const double del1 = x[1] - x[0];
    if (x.size() == 2) {
        return {del1, 2.0 * del1, c.c1(0), c.c1(1), 0.0};
    }
    return {del1, x[2] - x[0], c.c1(0), c.c1(1), c.c1(2)};
}

EndPoints endPoints(std::span<const double> x, const TensionTable& c) {
    const std::size_t last = x.size() - 1;
    const double del1 = x[last] - x[last - 1];
    if (x.size() == 2) {
        return {del1, 2.0 * del1, c.c1(last), c.c1(last - 1), 0.0};
    }
    return {del1, x[last] - x[last - 2], c.c1(last), c.c1(last - 1), c.c1(last - 2)};
}

bool increasing(const EndPoints& points) {
    return points.del1 > 0.0 && points.del1 < points.del2;
}

// direction: 1 at the start, -1 at the end.
double slopeFrom(const EndPoints& points, double direction, double tension, std::size_t n) {
    double c1 = 0.0;
    double c2 = 0.0;
    double c3 = 0.0;
    endSlopeCoefficients(direction * points.del1, direction * points.del2, tension, c1, c2, c3, n == 2 ? 2 : 3);
    const double slope = c1 * points.value0 + c2 * points.value1;
    return n == 2 ? slope : slope + c3 * points.value2;
}

// Solves for the second derivatives in c2. False, with the table partly filled, where knots do not increase.
bool solveSecondDerivatives(std::span<const double> x, const TensionTable& c, double startSlope, double endSlope,
                            double tension) {
    const std::size_t last = x.size() - 1;
    double difference = startSlope;
    double diag = 0.0;
    double sdiag = 0.0;
    double previousC2 = 0.0;
    double previousC3 = 0.0;
    for (std::size_t i = 0; i < last; ++i) {
        const double step = x[i + 1] - x[i];
        if (!(step > 0.0)) {
            return false;
        }
        const double nextDifference = (c.c1(i + 1) - c.c1(i)) / step;
        double nextDiag = 0.0;
        double nextSdiag = 0.0;
        tensionTerms(nextDiag, nextSdiag, tension, step);
        const double pivot = diag + nextDiag - sdiag * previousC3;
        c.c2(i) = (nextDifference - difference - sdiag * previousC2) / pivot;
        c.c3(i) = nextSdiag / pivot;
        previousC2 = c.c2(i);
        previousC3 = c.c3(i);
        difference = nextDifference;
        diag = nextDiag;
        sdiag = nextSdiag;
    }
    c.c2(last) = (endSlope - difference - sdiag * previousC2) / (diag - sdiag * previousC3);
    for (std::size_t i = last; i-- > 0;) {
        c.c2(i) -= c.c3(i) * c.c2(i + 1);
    }
    return true;
}

// Bisects the intervals lower to upper, counted from 1.
std::int32_t bisectSegments(const double* x, double t, std::int32_t lower, std::int32_t upper) {
    while (lower < upper) {
        const std::int32_t middle = lower + (upper - lower) / 2;
        if (x[middle - 1] > t) {
            upper = middle;
        } else if (t > x[middle]) {
            lower = middle + 1;
        } else {
            return middle;
        }
    }
    return lower;
}

std::int32_t searchSegment(const double* x, std::int32_t n, double t, std::int32_t start) {
    if (start >= n) {
        start = n / 2;
    }
    if (x[start - 1] > t) {
        return t <= x[1] ? 1 : bisectSegments(x, t, 2, start);
    }
    if (x[start] >= t) {
        return start;
    }
    return t >= x[n - 2] ? n - 1 : bisectSegments(x, t, start + 1, n - 1);
}

}  // namespace

double normalisedTension(double tension, std::int32_t n, double length) {
    // Compatibility: the count passes through single precision.
    const double intervals = static_cast<float>(n - 1);
    return std::fabs(tension) * intervals / length;
}

void tensionTerms(double& diag, double& sdiag, double tension, double del) {
    if (tension == 0.0) {
        diag = del / 3.0;
        sdiag = del / 6.0;
        return;
    }
    double sinhTerm = 0.0;
    double coshTerm = 0.0;
    hyperbolicTerms(sinhTerm, coshTerm, tension * del, 0);
    const double denominator = tension * (tension * del) * (1.0 + sinhTerm);
    diag = (coshTerm - sinhTerm) / denominator;
    sdiag = sinhTerm / denominator;
}

void endSlopeCoefficients(double del1, double del2, double tension, double& c1, double& c2, double& c3,
                          std::int32_t n) {
    if (n == 2) {
        c1 = -1.0 / del1;
        c2 = -c1;
        return;
    }
    if (tension == 0.0) {
        const double del = del2 - del1;
        c1 = -(del1 + del2) / (del1 * del2);
        c2 = del2 / (del1 * del);
        c3 = -del1 / (del2 * del);
        return;
    }
    const double cosh1 = coshTermOf(tension * del1);
    const double cosh2 = coshTermOf(tension * del2);
    const double plus = tension * (del2 + del1) / 2.0;
    const double minus = tension * (del2 - del1) / 2.0;
    const double sinhPlus = 1.0 + sinhTermOf(plus);
    const double sinhMinus = 1.0 + sinhTermOf(minus);
    const double denominator = cosh1 * (del2 - del1) - 2.0 * del1 * plus * minus * sinhPlus * sinhMinus;
    c1 = 2.0 * plus * minus * sinhPlus * sinhMinus / denominator;
    c2 = -cosh2 / denominator;
    c3 = cosh1 / denominator;
}

}  // namespace voxlith

extern "C" void TCUBSPL(const std::int32_t* n, const double* x, double* c, const double* startSlope,
                        const double* endSlope, const std::int32_t* slopeSwitch, const double* tension,
                        std::int32_t* status) {
    if (*n < 2) {
        *status = 1;
        return;
    }
    *status = 2;
    const std::span<const double> knots = voxlith::countedSpan(x, *n);
    const voxlith::TensionTable table{c};
    if (!(knots.front() < knots.back())) {
        return;
    }
    const double normalised = voxlith::normalisedTension(*tension, *n, knots.back() - knots.front());
    const bool computeStart = *slopeSwitch == 2 || *slopeSwitch == 3;
    const bool computeEnd = *slopeSwitch == 1 || *slopeSwitch == 3;
    const voxlith::EndPoints atStart = voxlith::startPoints(knots, table);
    const voxlith::EndPoints atEnd = voxlith::endPoints(knots, table);
    if ((computeStart && !voxlith::increasing(atStart)) || (computeEnd && !voxlith::increasing(atEnd))) {
        return;
    }
    const double slope1 = computeStart ? voxlith::slopeFrom(atStart, 1.0, normalised, knots.size()) : *startSlope;
    const double slopeN = computeEnd ? voxlith::slopeFrom(atEnd, -1.0, normalised, knots.size()) : *endSlope;
    if (!voxlith::solveSecondDerivatives(knots, table, slope1, slopeN, normalised)) {
        return;
    }
    table.c3(0) = normalised;
    *status = 0;
}

extern "C" double TCUBVAL(const std::int32_t* n, const double* x, const double* c, const double* t) {
    if (*n < 2 || std::isnan(*t)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    std::int32_t interval = std::min(voxlith::searchSegment(x, *n, *t, voxlith::savedTensionIndex), *n - 1);
    // At a knot the intervals on both sides apply, and may differ in the last bit. Using the one that ends there makes
    // the value independent of earlier calls.
    if (interval > 1 && *t == x[interval - 1]) {
        --interval;
    }
    voxlith::savedTensionIndex = interval;
    const auto i = static_cast<std::size_t>(interval) - 1;
    const double* left = c + 3 * i;
    const double* right = left + 3;
    const double del1 = *t - x[i];
    const double del2 = x[i + 1] - *t;
    const double step = x[i + 1] - x[i];
    const double sum = (right[0] * del1 + left[0] * del2) / step;
    const double tension = c[2];
    if (tension == 0.0) {
        return sum - del1 * del2 * (right[1] * (del1 + step) + left[1] * (del2 + step)) / (6.0 * step);
    }
    const double stepTerm = voxlith::sinhTermOf(tension * step);
    const double term1 = voxlith::sinhTermOf(tension * del1);
    const double term2 = voxlith::sinhTermOf(tension * del2);
    return sum + (right[1] * del1 * (term1 - stepTerm) + left[1] * del2 * (term2 - stepTerm)) /
                     (tension * step * tension * (1.0 + stepTerm));
}
