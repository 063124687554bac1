// The one call by which the inversion loop minimises its objective, in reverse communication: the loop passes model,
// objective and gradient, and `task` says what to do next. The engine is L-BFGS-B or PLIS.
#pragma once

#include <cstdint>
#include <span>

#include "optim/plis/plis.h"
#include "optim/task_word.h"

namespace voxlith {

// Everything that an engine keeps between two calls besides `wa` and `iwa`. Plain data: restoring a copy of state, `wa`
// and `iwa` between any two calls changes no bit of the result.
struct OptimiserState {
    TaskWord csave{};          // request word between L-BFGS-B and its line search
    bool lsave[4]{};           // flags of L-BFGS-B
    std::int32_t isave[44]{};  // counters of L-BFGS-B
    double dsave[30]{};        // reals of L-BFGS-B; the last one is the caller's
    PlisState plis{};          // all of PLIS
};

// Length of `wa` and `iwa` that n variables and m stored corrections need.
constexpr std::int64_t optimiserRealWorkspace(std::int64_t n, std::int64_t m) {
    return (2 * m + 4) * n + 12 * m * m + 12 * m;
}
constexpr std::int64_t optimiserIntegerWorkspace(std::int64_t n) {
    return 3 * n;
}

// Whether the engine of the method is PLIS.
constexpr bool usesPlis(int inversionMethod) {
    return inversionMethod == 1 || inversionMethod == 2;
}

// One step of the optimiser.
//   inversionMethod  1 and 2: PLIS with the rank-1 or rank-2 update; every other value: L-BFGS-B
//   iteration        the caller's counter, read by neither engine
//   n, m             number of variables; number of corrections that the engine remembers
//   x[n]             the variables; changed
//   l[n], u[n]       bounds; changed by PLIS only
//   nb               number of fixed variables (PLIS only); with 0 PLIS reads no bound code
//   nbd[n]           bound codes 0 none, 1 lower, 2 upper, 3 both, 5 fixed by equal bounds; changed by PLIS only
//   fixedFlag[n]     not 0: the variable is fixed (L-BFGS-B only)
//   maxStep[n]       above 0: largest change of the variable in the first search after "START" (L-BFGS-B only)
//   f, g[n]          objective and gradient at x; after a failed search those of the last good point
//   factr, pgtol     tolerances on the relative reduction of f, in units of the rounding error, and on the projected
//                    gradient (L-BFGS-B only)
//   wa, iwa          workspace, see optimiserRealWorkspace and optimiserIntegerWorkspace
//   task             in: "START", or the word of the last call; out: begins with "FG": evaluate f and g at x and call
//                    again; "NEW_X": an iteration is finished, call again; anything else: stop
//   iprint           -1: nothing is printed; there are no other levels
// Throws std::invalid_argument if an array is shorter than n and m require. Failures of the method itself are reported
// in `task` ("ERROR: ...", "ABNORMAL_TERMINATION_IN_LNSRCH").
void optimiserStep(int inversionMethod, int iteration, int n, int m, std::span<double> x, std::span<double> l,
                   std::span<double> u, int nb, std::span<std::int32_t> nbd, std::span<const std::int32_t> fixedFlag,
                   std::span<const double> maxStep, double& f, std::span<double> g, double factr, double pgtol,
                   std::span<double> wa, std::span<std::int32_t> iwa, TaskWord& task, int iprint,
                   OptimiserState& state);

}  // namespace voxlith
