// The PLIS engine: minimises f(x) with l <= x <= u by a limited-memory variable metric method with simple bounds. The
// inverse Hessian is lowRank lowRank' + shift I; lowRank has at most m columns and is changed by shifted rank-1 or
// rank-2 updates (Vlcek and Luksan, Shifted limited-memory variable metric methods for large-scale unconstrained
// optimization, J. Comput. Appl. Math. 186, 2006). The engine evaluates nothing itself: it runs in reverse
// communication.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith {

// What the engine keeps between two calls besides `wa`. Plain data, all of it set by state -1: restoring a copy of it,
// of `wa` and of the arguments between any two calls changes no bit of the result.
struct PlisState {
    // The matrix.
    std::int32_t method = 2;        // 1: rank-1, 2: rank-2 update of the full matrix
    std::int32_t columnsInUse = 0;  // columns of lowRank in use
    double shift = 1.0;             // shift parameter of the update
    std::int32_t updateStatus = 0;  // 0: the last update changed the matrix; 1: it did not

    // Bounds.
    std::int32_t boundSwitch = 0;  // 0: no bound code is read; 2: bounds in use
    std::int32_t newlyFixed = 0;   // bounds that the last accepted search reached

    // Restarts.
    std::int32_t restartRequest = 0;        // above 0: start the matrix anew before the next direction
    std::int32_t restartCount = 0;          // restarts done
    std::int64_t lastRestartIteration = 0;  // iteration of the last restart

    // Counters.
    std::int32_t iterationCount = 0;
    std::int32_t valueCount = 0;     // function values requested
    std::int32_t gradientCount = 0;  // gradients requested
    std::int32_t stepPasses = 0;     // step tests passed in a row
    std::int32_t valuePasses = 0;    // value tests passed in a row

    // The direction and the line search along it. One end of the bracket is a step, with value and slope there.
    std::int32_t directionStatus = 0;     // 0: the last direction descended; 1: it did not
    std::int32_t searchStatus = 2;        // end of the last search: above 0 success, else failure
    std::int32_t reductionCount = 0;      // reductions of the step so far; below 0: extensions
    std::int32_t reducing = 0;            // 0: the bracket is being extended; 1: it is being reduced
    double stepMin = 0.0, stepMax = 0.0;  // limits of the step
    double fo = 0.0, po = 0.0;            // value and slope at step 0
    double r = 0.0, p = 0.0;              // step, in units of the direction, and slope there
    double rLower = 0.0, fLower = 0.0, pLower = 0.0;
    double rUpper = 0.0, fUpper = 0.0, pUpper = 0.0;
    double largestStep = 0.0;  // largest relative change of x in the last accepted search
};

// One step of the engine.
//   method  1: rank-1, 2: rank-2 update; 0 or less: 2. Read by state -1 alone
//   n, m    number of variables; most columns of lowRank
//   nb      above 0: bounds are in use; else no bound code is read. Read by state -1 alone
//   x[n]    the variables; within their bounds at every return
//   l[n], u[n], nbd[n]  bounds and their codes: 0 none, 1 lower, 2 upper, 3 and 4 both, 5 and 6 fixed. Changed: a
//   negative
//           code marks a bound that is active at present, -5 a fixed variable; state -1 makes negative codes positive
//           first, and fixes variables with code 5 or 6, or with code 3 or 4 and l >= u: their bounds become x, their
//           code 5
//   f, g[n] value and gradient at x; f is overwritten by state -1, both by a failed search, with those of the last good
//           point
//   wa      workspace of at least (m+4)n + 2m: s[n], xo[n], go[n], shiftedStep[n], lowRank[n x m] column by column,
//           gradProjection[m], stepProjection[m]. Nothing else may write to it between the calls of a run
//   state   in: -1 start afresh; 0 f and g at the start point are known, or continue with the next iteration; 3 f and g
//           at the new x are known. Out: -1 or 3 evaluate f and g at x and call again with that state; 0 an iteration
//           is finished, or the run, see stopCode
//   stopCode  at state 0: 0 call again with state 0; else the run is over:
//           1 step test, 2 value test passed twice in a row; 3 f has reached -1e60; 4 gradient test;
//           11, 12, 13 limit of iterations, function values, gradients; -10 two restarts in a row;
//           -6 too many steps in a line search, -7 no descent at the lower end of its bracket, -8 its bracket is void
// Throws std::invalid_argument if an array is shorter than n and m require. Values and gradients that are infinite or
// NaN end a search or the run; x stays finite.
void plisStep(int method, int n, int m, int nb, std::span<double> x, std::span<double> l, std::span<double> u,
              std::span<std::int32_t> nbd, double& f, std::span<double> g, std::span<double> wa, int& state,
              int& stopCode, PlisState& saved);

}  // namespace voxlith
