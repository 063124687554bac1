// The linear systems of the Newton steps, by preconditioned conjugate gradients over the free cells:
//
//   (H + D) s = r,   H = J'J / N + mu R + ...  half the Hessian of phi (Gauss-Newton for amplitude data),  D diagonal
//
// The preconditioner is a multigrid cycle of the norm and a part of the diagonal of the data, see
// run/convergence/multigrid.h.
#pragma once

#include <cstdint>
#include <span>

#include "inversion/inversion_problem.h"
#include "run/convergence/accuracy_rule.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

// The data term of a system: the whole, at two products for each application, or what work.subspace has of it.
enum class DataTerm : std::uint8_t { whole, known };

struct SolveLimits {
    double tolerance = 0.1;  // of the residual, in the norm of the preconditioner, over that at the start
    std::int32_t mostSteps = 60;
    DataTerm data = DataTerm::whole;
};

// Where phi is quadratic: a step that keeps within the bounds is solved on until phi is as near its minimum as
// `accuracy` wants.
struct SolveGoal {
    AccuracyRule accuracy{};
    double objective = 0;  // phi at the model; 0 where only SolveLimits count
};

struct SolveResult {
    double predictedDecrease = 0;  // of phi by the step
    double residualNorm = 0;       // of the right side, in the norm of the preconditioner
    double inverseCurvature = 1;   // largest of the last steps: of H^-1, in the norm of the preconditioner
    std::int32_t steps = 0;
    bool stopped = false;  // by a signal, see run/stop_signal.h: the step is of no use
};

// work.product = H work.direction, in all cells.
void applyHessian(const InversionProblem& problem, NewtonWork& work, DataTerm data);

// work.preconditioned = preconditioner times work.residual, as solveForStep has set it up last.
void precondition(const InversionProblem& problem, NewtonWork& work);

// The square of work.residual in the norm of the preconditioner for the present free cells.
double preconditionedSquare(const InversionProblem& problem, NewtonWork& work, DataTerm data);

// work.step = an approximate solution for the right side work.residual, which becomes what is left of it.
// `extraDiagonal` is D by cell, or empty for none.
SolveResult solveForStep(const InversionProblem& problem, NewtonWork& work, const SolveLimits& limits,
                         const SolveGoal& goal, std::span<const double> extraDiagonal);

}  // namespace voxlith
