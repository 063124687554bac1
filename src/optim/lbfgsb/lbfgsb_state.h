// What the L-BFGS-B engine keeps between two calls: its scalars by name, and their layout in the caller's arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/line_search.h"
#include "optim/task_word.h"
#include "optim/vector_kernels.h"

namespace voxlith {

// The caller's arrays, parts of OptimiserState.
struct LbfgsbSavedArrays {
    TaskWord& csave;
    std::span<bool, 4> lsave;
    std::span<std::int32_t, 44> isave;
    std::span<double, 30> dsave;
};

// The scalars of a run. Names in brackets are those of Zhu et al. (1997).
struct LbfgsbState {
    // Limited memory
    double theta = 1.0;            // scale of the initial matrix
    std::int32_t corrections = 0;  // pairs stored [col]
    std::int32_t oldest = 0;       // column of the oldest pair, from 0
    std::int32_t updateCount = 0;  // updates since "START" or the last refresh

    // Iteration
    BoxKind box;
    double previousValue = 0.0;  // f at the last iterate
    double tolerance = 0.0;      // factr * epsmch
    double gradientNorm = 0.0;   // of the projected gradient; above pgtol it may be that of a part
    std::int32_t iteration = 0;  // finished iterations
    std::int32_t freeCount = 0;  // free variables at the Cauchy point
    std::int32_t refusal = 0;    // not 0: the last "START" was refused, with this one of the error texts

    // Line search along direction d
    LineSearchState search;
    double step = 0.0;
    double largestStep = 0.0;
    double directionSquared = 0.0;           // d'd
    double slope = 0.0, slopeAtStart = 0.0;  // g'd
    std::int32_t searchEvaluations = 0;

    // Counts for information; no result depends on them
    std::int32_t evaluations = 0;
    std::int32_t intervals = 0;  // segments of the Cauchy search in this iteration
    std::int32_t skippedUpdates = 0;
    bool stepReachedBound = false;  // the subspace step was truncated at a bound
};

LbfgsbState loadState(const LbfgsbSavedArrays& arrays);
void storeState(const LbfgsbState& state, const LbfgsbSavedArrays& arrays);

// The workspace, parts of the caller's arrays. yy is in the layout but not used.
struct LbfgsbWorkspace {
    std::span<double> s, y;           // m columns of n: steps and changes of the gradient [ws, wy]
    SmallMatrix sDotY, sDotS;         // inner products of all pairs, oldest first [sy, ss]
    SmallMatrix middleFactor;         // Cholesky factor of theta S'S + L D^-1 L' [wt]
    SmallMatrix subspaceFactor;       // factors of the subspace matrix, order 2m [wn]
    SmallMatrix subspaceTable;        // its inner products, order 2m [snd]
    std::span<double> z, r, d, t;     // n each
    std::span<double> products;       // 8m [wa]
    std::span<double> p, c;           // 2m each [sg and sgo, yg and ygo]
    std::span<std::int32_t> uniform;  // n: of each block, whether its variables have one code and none is fixed [index]
    std::span<std::int32_t> status;   // n: VariableStatus [iwhere]
    std::span<std::int32_t> order;    // n: variables of the breakpoints [indx2]
};

// Divides `wa` and `iwa`, which must be long enough, for n > 0 variables and m > 0 corrections.
LbfgsbWorkspace layOutWorkspace(std::int32_t n, std::int32_t m, std::span<double> wa, std::span<std::int32_t> iwa);

// Stores n, m and the layout: elements 1 to 3 the sizes m n, m^2 and 4 m^2, elements 4 to 20 the first elements of the
// parts of `wa` in their order, all from 1. Numbers beyond 32 bits are stored as the largest integer; the layout
// follows from n and m in any case.
void storeLayout(std::int32_t n, std::int32_t m, std::span<std::int32_t, 44> isave);

// True if the layout in isave is that of n and m.
bool layoutIsOf(std::int32_t n, std::int32_t m, std::span<const std::int32_t, 44> isave);

}  // namespace voxlith
