// Cubic interpolating spline: fit, value and integral. The routines are described in voxlith_spline.h.
//
// CUBSPL solves the tridiagonal system of the slopes at the knots by elimination without pivoting (C. de Boor,
// A Practical Guide to Splines, Springer 1978, chapter IV).
#include <cstddef>
#include <limits>
#include <span>

#include "spline/interval_search.h"
#include "spline/voxlith_spline.h"

namespace voxlith {
namespace {

// The caller's table, four entries per knot. During the solve c2 holds the right-hand sides and then the slopes, and
// the two upper slots serve as scratch: c3 holds the step to the previous knot (for knot 0 the coefficient right of the
// pivot), c4 the divided difference to the previous knot until elimination replaces it by the pivot.
struct CubicTable {
    double* entries;

    double& c1(std::size_t i) const { return entries[4 * i]; }
    double& c2(std::size_t i) const { return entries[4 * i + 1]; }
    double& c3(std::size_t i) const { return entries[4 * i + 2]; }
    double& c4(std::size_t i) const { return entries[4 * i + 3]; }
};

// The cubic of one interval; h is counted from its left knot.
struct CubicSegment {
    double c1, c2, c3, c4;

    double value(double h) const { return ((c4 * h / 3.0 + c3) * h / 2.0 + c2) * h + c1; }
    double integral(double h) const { return (((c4 * h / 4.0 + c3) * h / 3.0 + c2) * h / 2.0 + c1) * h; }
};

CubicSegment segmentAt(const double* c, std::size_t i) {
    return {c[4 * i], c[4 * i + 1], c[4 * i + 2], c[4 * i + 3]};
}

void differences(std::size_t n, const double* knot, const CubicTable& c) {
    for (std::size_t m = 1; m < n; ++m) {
        c.c3(m) = knot[m] - knot[m - 1];
        c.c4(m) = (c.c1(m) - c.c1(m - 1)) / c.c3(m);
    }
}

void firstRow(std::size_t n, const CubicTable& c, std::int32_t startCondition) {
    if (startCondition == 1) {
        c.c4(0) = 1.0;
        c.c3(0) = 0.0;
    } else if (startCondition > 1) {
        c.c4(0) = 2.0;
        c.c3(0) = 1.0;
        c.c2(0) = 3.0 * c.c4(1) - c.c3(1) / 2.0 * c.c2(0);
    } else if (n == 2) {
        c.c4(0) = 1.0;
        c.c3(0) = 1.0;
        c.c2(0) = 2.0 * c.c4(1);
    } else {
        c.c4(0) = c.c3(2);
        c.c3(0) = c.c3(1) + c.c3(2);
        c.c2(0) = ((c.c3(1) + 2.0 * c.c3(0)) * c.c4(1) * c.c3(2) + c.c3(1) * c.c3(1) * c.c4(2)) / c.c3(0);
    }
}

void eliminate(std::size_t n, const CubicTable& c) {
    for (std::size_t m = 1; m + 1 < n; ++m) {
        const double factor = -c.c3(m + 1) / c.c4(m - 1);
        c.c2(m) = factor * c.c2(m - 1) + 3.0 * (c.c3(m) * c.c4(m + 1) + c.c3(m + 1) * c.c4(m));
        c.c4(m) = factor * c.c3(m - 1) + 2.0 * (c.c3(m) + c.c3(m + 1));
    }
}

// Sets up the row of the last knot and solves for the slope there.
void lastRow(std::size_t n, const CubicTable& c, std::int32_t startCondition, std::int32_t endCondition) {
    const std::size_t last = n - 1;
    const bool startIsFree = startCondition < 1;
    if (endCondition == 1) {
        return;
    }
    double factor = -1.0 / c.c4(last - 1);
    if (endCondition > 1) {
        c.c2(last) = 3.0 * c.c4(last) + c.c3(last) / 2.0 * c.c2(last);
        c.c4(last) = 2.0;
    } else if (n == 2 && startIsFree) {
        c.c2(last) = c.c4(last);
        return;
    } else if (n == 2 || (n == 3 && startIsFree)) {
        c.c2(last) = 2.0 * c.c4(last);
        c.c4(last) = 1.0;
    } else {
        const double step = c.c3(last);
        const double previousStep = c.c3(last - 1);
        const double bothSteps = previousStep + step;
        const double previousDifference = (c.c1(last - 1) - c.c1(last - 2)) / previousStep;
        c.c2(last) =
            ((step + 2.0 * bothSteps) * c.c4(last) * previousStep + step * step * previousDifference) / bothSteps;
        factor = -bothSteps / c.c4(last - 1);
        c.c4(last) = previousStep;
    }
    c.c4(last) = factor * c.c3(last - 1) + c.c4(last);
    c.c2(last) = (factor * c.c2(last - 1) + c.c2(last)) / c.c4(last);
}

void backSubstitute(std::size_t n, const CubicTable& c) {
    for (std::size_t j = n - 1; j-- > 0;) {
        c.c2(j) = (c.c2(j) - c.c3(j) * c.c2(j + 1)) / c.c4(j);
    }
}

// Second and third derivatives from values and slopes.
void higherDerivatives(std::size_t n, const CubicTable& c) {
    for (std::size_t i = 1; i < n; ++i) {
        const double step = c.c3(i);
        const double difference = (c.c1(i) - c.c1(i - 1)) / step;
        const double excess = c.c2(i - 1) + c.c2(i) - 2.0 * difference;
        c.c3(i - 1) = 2.0 * (difference - c.c2(i - 1) - excess) / step;
        c.c4(i - 1) = (excess / step) * (6.0 / step);
    }
}

// Index from 0 of the interval for x, also beyond the knots: the search leaves out the last knot.
std::size_t segmentIndex(const double* knot, std::int32_t n, double x) {
    return static_cast<std::size_t>(locate(countedSpan(knot, n - 1), x).left) - 1;
}

}  // namespace
}  // namespace voxlith

extern "C" void CUBSPL(const std::int32_t* n, const double* knot, double* c, const std::int32_t* startCondition,
                       const std::int32_t* endCondition) {
    if (*n < 2) {
        return;
    }
    const auto count = static_cast<std::size_t>(*n);
    const voxlith::CubicTable table{c};
    voxlith::differences(count, knot, table);
    voxlith::firstRow(count, table, *startCondition);
    voxlith::eliminate(count, table);
    voxlith::lastRow(count, table, *startCondition, *endCondition);
    voxlith::backSubstitute(count, table);
    voxlith::higherDerivatives(count, table);
}

extern "C" double CUBVAL(const std::int32_t* n, const double* knot, const double* c, const double* x) {
    if (*n < 1) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const auto last = static_cast<std::size_t>(*n) - 1;
    if (*x <= knot[0]) {
        return c[0];
    }
    if (*x >= knot[last]) {
        return c[4 * last];
    }
    if (*n < 2) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const std::size_t i = voxlith::segmentIndex(knot, *n, *x);
    return voxlith::segmentAt(c, i).value(*x - knot[i]);
}

extern "C" double CUBINT(const std::int32_t* n, const double* knot, const double* c, const double* a, const double* b) {
    if (*n < 2) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const std::size_t first = voxlith::segmentIndex(knot, *n, *a);
    const std::size_t last = voxlith::segmentIndex(knot, *n, *b);
    double sum = voxlith::segmentAt(c, last).integral(*b - knot[last]);
    sum -= voxlith::segmentAt(c, first).integral(*a - knot[first]);
    for (std::size_t m = first; m < last; ++m) {
        sum += voxlith::segmentAt(c, m).integral(knot[m + 1] - knot[m]);
    }
    return sum;
}
