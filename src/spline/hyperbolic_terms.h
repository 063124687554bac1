// Hyperbolic functions without their leading terms, for splines under tension: differences that lose no digits near 0.
#pragma once

#include <cstdint>

namespace voxlith {

// Terms of the hyperbolic functions of a = |x| that keep their digits for small a:
//   s = sinh(a)/a - 1,  c = cosh(a) - 1,  q = (cosh(a) - 1 - a^2/2)/a^2.
//
//   termSwitch   sinhTerm   coshTerm
//   below 0      s          unchanged
//   0            s          c
//   1            unchanged  c
//   2            unchanged  q
//   3            s          q
//   above 3      unchanged  unchanged
//
// Rational forms serve small a, e^a the others. The coefficients and the limits of the ranges are single-precision
// numbers, which bounds the accuracy. Largest errors, relative to the value itself, as measured by
// tests/spline/hyperbolic_terms_test.cpp against long double functions:
//
//   range of a   s, termSwitch below 0   s, termSwitch 0 and 3   c         q
//   0 to 2.2     1.9e-9                  1.9e-9                  8.7e-10   6.6e-10
//   2.2 to 3.9   2.8e-9                  1e-15                   1e-15     2e-15
//   3.9 to 5.1   2.5e-8                  1e-15                   1e-15     1e-15
//   5.1 to 6.1   2.2e-8                  1e-15                   1e-15     1e-15
//   above 6.1    1e-15                   1e-15                   1e-15     1e-15
//
// Above 709 e^a overflows and the results are infinite. An infinite x or a NaN gives NaN in s and q.
void hyperbolicTerms(double& sinhTerm, double& coshTerm, double x, std::int32_t termSwitch);

}  // namespace voxlith
