/* A client in plain C: the straight line through (0, 1) and (2, 5) has the integral 6 from 0 to 2. */
#include <stdio.h>

#include "voxlith_spline.h"

int main(void) {
    const int32_t n = 2, condition = 0;
    const double knot[2] = {0.0, 2.0}, a = 0.0, b = 2.0;
    double c[8] = {1.0, 0.0, 0.0, 0.0, 5.0, 0.0, 0.0, 0.0};
    CUBSPL(&n, knot, c, &condition, &condition);
    const double integral = CUBINT(&n, knot, c, &a, &b);
    printf("integral %g\n", integral);
    return integral == 6.0 ? 0 : 1;
}
