#include "optim/optimiser_step.h"

#include <cstddef>
#include <type_traits>

#include "optim/lbfgsb/lbfgsb.h"

namespace voxlith {

static_assert(std::is_trivially_copyable_v<OptimiserState>);

namespace {

// States of PLIS with a task word of their own; all others are state 0.
constexpr int plisStart = -1;
constexpr int plisSearch = 3;

int plisStateOf(const TaskWord& task) {
    if (taskIs(task, "START")) {
        return plisStart;
    }
    return taskIs(task, "FG_LN") ? plisSearch : 0;
}

std::string_view wordOfPlis(int state, int stopCode) {
    if (state == plisStart) {
        return "FG_START";
    }
    if (state == plisSearch) {
        return "FG_LN";
    }
    if (stopCode == 0) {
        return "NEW_X";
    }
    return stopCode > 0 ? "CONVERGED" : "ERROR";
}

}  // namespace

void optimiserStep(int inversionMethod, int /*iteration*/, int n, int m, std::span<double> x, std::span<double> l,
                   std::span<double> u, int nb, std::span<std::int32_t> nbd, std::span<const std::int32_t> fixedFlag,
                   std::span<const double> maxStep, double& f, std::span<double> g, double factr, double pgtol,
                   std::span<double> wa, std::span<std::int32_t> iwa, TaskWord& task, int /*iprint*/,
                   OptimiserState& state) {
    if (usesPlis(inversionMethod)) {
        int plisState = plisStateOf(task);
        int stopCode = 0;
        plisStep(inversionMethod, n, m, nb, x, l, u, nbd, f, g, wa, plisState, stopCode, state.plis);
        setTask(task, wordOfPlis(plisState, stopCode));
        return;
    }
    const BoxProblem problem{n, m, l, u, nbd, fixedFlag, maxStep};
    const LbfgsbSavedArrays saved{state.csave, state.lsave, state.isave, state.dsave};
    lbfgsbStep(problem, x, f, g, factr, pgtol, wa, iwa, task, saved);
}

}  // namespace voxlith
