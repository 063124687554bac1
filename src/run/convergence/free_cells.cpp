#include "run/convergence/free_cells.h"

namespace voxlith {

std::size_t findFreeCells(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    std::size_t count = 0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        const bool held = (model[n] <= work.lower[n] && work.gradient[n] > 0.0) ||
                          (model[n] >= work.upper[n] && work.gradient[n] < 0.0);
        const bool determined = problem.bounds.fixedCell[n] == 0 && diagonalOf(problem, work, n) > 0.0;
        work.isFree[n] = determined && !held ? 1 : 0;
        count += work.isFree[n];
    }
    return count;
}

void takeNegativeGradient(NewtonWork& work) {
    for (std::size_t n = 0; n < work.residual.size(); ++n) {
        work.residual[n] = work.isFree[n] != 0 ? -work.gradient[n] : 0.0;
    }
}

}  // namespace voxlith
