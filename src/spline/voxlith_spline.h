/* Interpolating cubic splines and splines under tension: the routines that VoxLith exports under upper-case names.
 *
 * Usable from C and C++; link with voxlith_spline. Every argument is an address, so that Fortran programs can call the
 * routines as well. Nothing is allocated, nothing is printed, and no pointer is kept. All numbers are IEEE doubles and
 * 32-bit integers, and every index that is passed or returned counts from 1.
 *
 * Searches start where the last one ended: one saved index is shared by INTERV, CUBVAL and CUBINT, one
 * belongs to RINTERV and one to TCUBVAL. A saved index makes sweeps over nearby points fast and never changes a
 * result; tables of any length may be used in turn. Each thread has saved indices of its own.
 *
 * Knots and grids must be sorted as documented. If they are not, or contain a NaN, results are undefined, but the
 * routines end and stay inside the arrays.
 *
 * Cubic method: C. de Boor, A Practical Guide to Splines, Springer 1978, chapter IV.
 * Tension method: A. K. Cline, Scalar- and planar-valued curve fitting using splines under tension, Comm. ACM 17
 * (1974), 218-220.
 */
#ifndef VOXLITH_SPLINE_H
#define VOXLITH_SPLINE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Finds the interval of a grid that contains x.
 *
 * grid[gridSize] increases. The result in left and rangeFlag:
 *   x below the first entry                         left 1,         rangeFlag -1
 *   entry left at most x, x below entry left + 1    left,           rangeFlag 0
 *   x at or above the last entry                    left gridSize,  rangeFlag 1
 * A NaN is neither below nor above and gets left 1, rangeFlag 0 (-1 where gridSize is 1).
 * gridSize below 1 gives left 1, rangeFlag -1 and reads nothing. */
void INTERV(const double* grid, const int32_t* gridSize, const double* x, int32_t* left, int32_t* rangeFlag);

/* The same for a grid that decreases:
 *   x at or above the first entry                   left 1,         rangeFlag -1
 *   entry left above x, entry left + 1 at most x    left,           rangeFlag 0
 *   x below the last entry                          left gridSize,  rangeFlag 1
 * A NaN gets left gridSize - 1, rangeFlag 0 (left 1, rangeFlag 1 where gridSize is 1).
 * gridSize below 1 gives left 1, rangeFlag -1 and reads nothing. */
void RINTERV(const double* grid, const int32_t* gridSize, const double* x, int32_t* left, int32_t* rangeFlag);

/* Fits a cubic spline.
 *
 * knot[n] strictly increases. c[4 * n] holds c1, c2, c3, c4 of knot 1, then those of knot 2, and so on.
 * On entry all c1 hold the data. On return, with h = x - knot i, the spline after knot i is
 *   c1 + h (c2 + h (c3 / 2 + h c4 / 6)),
 * so c1 to c4 are the value and the first, second and third derivative at knot i. c3 and c4 of the last knot are left
 * as scratch.
 *
 * startCondition, endCondition: 0 or less: no boundary data (not-a-knot: the third derivative is continuous at the
 * neighbour of the end knot); 1: the first derivative is given in c2 of the end knot; 2 or more: the second derivative
 * is given there.
 *
 * n below 2 leaves c unchanged. Equal knots give infinite or NaN coefficients; there is no error code. */
void CUBSPL(const int32_t* n, const double* knot, double* c, const int32_t* startCondition,
            const int32_t* endCondition);

/* Value at x of the spline that CUBSPL left in knot[n], c[4 * n].
 *
 * Outside the knots the first or last datum is returned: the extension is constant. NaN if x is a NaN or n is below 1.
 */
double CUBVAL(const int32_t* n, const double* knot, const double* c, const double* x);

/* Integral from a to b of the spline that CUBSPL left in knot[n], c[4 * n].
 *
 * Unlike CUBVAL it extends the first and the last polynomial beyond the knots. a is to be at most b: with reversed
 * limits in different intervals the whole intervals between them are left out, and the result is not the negative of
 * the integral from b to a. NaN if a or b is a NaN or n is below 2. */
double CUBINT(const int32_t* n, const double* knot, const double* c, const double* a, const double* b);

/* Fits a spline under tension.
 *
 * x[n] strictly increases. c[3 * n] holds c1, c2, c3 of knot 1, then those of knot 2, and so on. On entry all c1 hold
 * the data. On return c2 holds the second derivative of the fit at the knots, c3 of knot 1 the normalised tension
 * |tension| (n - 1) / (x[n] - x[1]), the other c3 are left as scratch.
 *
 * slopeSwitch: 0: the slopes at both ends are those given; 1: startSlope is given, the slope at the end is computed
 * from the last three points; 2: the slope at the start is computed, endSlope is given; 3: both are computed. Any
 * other value acts like 0. A slope that is computed is not read.
 *
 * tension 0 gives the cubic spline; about 1 is mild, 50 nearly a polygon. Its sign does not matter.
 *
 * status: 0: good. 1: n is below 2, nothing else is written. 2: the knots do not strictly increase. If this is
 * found between the first and the last knot, or next to an end where the slope is computed, c is unchanged; otherwise
 * the table is partly filled. Where the normalised tension times the length of an interval exceeds 709 (the
 * logarithm of the largest double) the fit is NaN, with status 0. */
void TCUBSPL(const int32_t* n, const double* x, double* c, const double* startSlope, const double* endSlope,
             const int32_t* slopeSwitch, const double* tension, int32_t* status);

/* Value at t of the fit that TCUBSPL left in x[n], c[3 * n].
 *
 * Outside the knots the end intervals are extended, until the normalised tension times the distance from a knot exceeds
 * 709 and the value is infinite or NaN. NaN if t is a NaN or n is below 2.
 *
 * The value is computed from s(a) = sinh(a)/a - 1 in rational approximations, a the normalised tension times a
 * distance. Largest errors of s, relative to s, as measured against long double functions: 1.9e-9 for a to 2.2, 2.8e-9
 * to 3.9, 2.5e-8 to 5.1, 2.2e-8 to 6.1, 1e-15 above. TCUBSPL uses s with errors of 1.9e-9 to 2.2 and 1e-15 above, and
 * cosh(a) - 1 with errors of 8.7e-10 to 2.2 and 1e-15 above. */
double TCUBVAL(const int32_t* n, const double* x, const double* c, const double* t);

#ifdef __cplusplus
}
#endif

#endif
