#include "spline/hyperbolic_terms.h"

#include <cmath>

namespace voxlith {
namespace {

// Limits of the ranges of hyperbolicTerms. Like the coefficients they are single-precision numbers.
constexpr double rationalLimit = 2.2F;
constexpr double secondLimit = 3.9F;
constexpr double thirdLimit = 5.1F;
constexpr double fourthLimit = 6.1F;

// u (1 + u (p5 + u (p4 + u (p3 + u (p2 + u p1))))) / (q3 + u (q2 + u q1)), u the square of the argument. Forms of four
// terms have p1 to p4 instead of p2 to p5 and no leading term.
struct RationalForm {
    double p1, p2, p3, p4, p5, q1, q2, q3;

    double value(double u) const {
        const double numerator = u * (1.0 + u * (p5 + u * (p4 + u * (p3 + u * (p2 + u * p1)))));
        return numerator / (q3 + u * (q2 + u * q1));
    }
};

constexpr RationalForm sinhForm{.p1 = 0.0,
                                .p2 = 2.2758166906555743e-08,
                                .p3 = 6.121898422861705e-06,
                                .p4 = 0.0007153147598728538,
                                .p5 = 0.03980882838368416,
                                .q1 = 0.0002063826977973804,
                                .q2 = -0.06114702671766281,
                                .q3 = 6.0};
constexpr RationalForm coshForm{.p1 = 5.522006185643136e-10,
                                .p2 = 1.8166691972965054e-07,
                                .p3 = 2.705401311686728e-05,
                                .p4 = 0.002062707208096981,
                                .p5 = 0.07444372028112411,
                                .q1 = 5.14609637320973e-05,
                                .q2 = -0.01777922548353672,
                                .q3 = 2.0};
constexpr RationalForm quarticForm{.p1 = 0.0,
                                   .p2 = 6.64418786655574e-09,
                                   .p3 = 2.1827454474987462e-06,
                                   .p4 = 0.0003248510474804789,
                                   .p5 = 0.024451514706015587,
                                   .q1 = 0.0006161658093333244,
                                   .q2 = -0.21316364407539368,
                                   .q3 = 24.0};
constexpr RationalForm sinhFormTo39{.p1 = 1.2909415203488095e-10,
                                    .p2 = 4.737318093361864e-08,
                                    .p3 = 8.492134838888887e-06,
                                    .p4 = 0.000833264784887433,
                                    .p5 = 0.04250241443514824,
                                    .q1 = 0.00010600851237541065,
                                    .q2 = -0.04498551785945892,
                                    .q3 = 6.0};
constexpr RationalForm sinhFormTo51{.p1 = 1.551939410315839e-10,
                                    .p2 = 5.1152944990917604e-08,
                                    .p3 = 8.84775636222912e-06,
                                    .p4 = 0.0008504476281814277,
                                    .p5 = 0.0428888164460659,
                                    .q1 = 9.331288310931996e-05,
                                    .q2 = -0.04266775771975517,
                                    .q3 = 6.000001430511475};
constexpr RationalForm sinhFormTo61{.p1 = 1.8807062851511347e-10,
                                    .p2 = 5.457928153873581e-08,
                                    .p3 = 9.201195098285098e-06,
                                    .p4 = 0.0008665593923069537,
                                    .p5 = 0.043253522366285324,
                                    .q1 = 8.24891758384183e-05,
                                    .q2 = -0.040493883192539215,
                                    .q3 = 6.000050067901611};

double sinhTermByExp(double a) {
    const double e = std::exp(a);
    return (e - 1.0 / e) / (2.0 * a) - 1.0;
}

// sinh(a)/a - 1 alone: its rational forms extend to larger a than where a second term is computed with it.
double sinhTermAlone(double a) {
    if (a > fourthLimit) {
        return sinhTermByExp(a);
    }
    const double u = a * a;
    if (a > thirdLimit) {
        return sinhFormTo61.value(u);
    }
    if (a > secondLimit) {
        return sinhFormTo51.value(u);
    }
    return a > rationalLimit ? sinhFormTo39.value(u) : sinhForm.value(u);
}

// (cosh(a) - 1 - a^2/2)/a^2
double quarticTerm(double a) {
    const double u = a * a;
    if (a > rationalLimit) {
        const double e = std::exp(a);
        return ((e + 1.0 / e - u) / 2.0 - 1.0) / u;
    }
    return quarticForm.value(u);
}

double coshMinusOne(double a) {
    if (a > rationalLimit) {
        const double e = std::exp(a);
        return (e + 1.0 / e) / 2.0 - 1.0;
    }
    return coshForm.value(a * a);
}

}  // namespace

void hyperbolicTerms(double& sinhTerm, double& coshTerm, double x, std::int32_t termSwitch) {
    const double a = std::fabs(x);
    if (termSwitch < 0) {
        sinhTerm = sinhTermAlone(a);
    }
    if (termSwitch == 0 || termSwitch == 3) {
        sinhTerm = a > rationalLimit ? sinhTermByExp(a) : sinhForm.value(a * a);
    }
    if (termSwitch == 0 || termSwitch == 1) {
        coshTerm = coshMinusOne(a);
    }
    if (termSwitch == 2 || termSwitch == 3) {
        coshTerm = quarticTerm(a);
    }
}

}  // namespace voxlith
