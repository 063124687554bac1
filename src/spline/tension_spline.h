// Spline under tension: the parts of TCUBSPL, which is described with TCUBVAL in voxlith_spline.h.
//
// Method: A. K. Cline, Scalar- and planar-valued curve fitting using splines under tension, Comm. ACM 17 (1974),
// 218-220.
#pragma once

#include <cstdint>

namespace voxlith {

// |tension| times the number of intervals between n knots over the length from the first to the last.
double normalisedTension(double tension, std::int32_t n, double length);

// Entries that an interval of length del adds to the tridiagonal system of the second derivatives: diag to the diagonal
// of both its knots, sdiag to the off-diagonal. tension is the normalised one; with 0 they are those of the cubic
// spline.
void tensionTerms(double& diag, double& sdiag, double tension, double del);

// Coefficients with which the values at an end knot and at distances del1 and del2 from it give the slope there. At the
// far end del1 and del2 are negative; |del1| is below |del2|, neither is 0.
//
// Exact for straight lines, and with n above 2 for parabolas (tension 0) or for cosh(tension d), d the distance from
// the end knot. With n = 2 only two values are used and c3 is unchanged.
void endSlopeCoefficients(double del1, double del2, double tension, double& c1, double& c2, double& c3, std::int32_t n);

}  // namespace voxlith
