// The objective that the Newton steps minimise, with its exact gradient, and the arrays that they share.
//
//   phi(x) = phi_d(x) + mu phi_m(x) + beta phi_x(x)      l <= x <= u, fixed cells unchanged
//   g = half the gradient of phi:  J' r / N + mu R (x - reference) + ...,   r = scaled residuals
//
// phi_d: run/convergence/data_operator.h; phi_m: inversion/regularisation.h; phi_x: run/convergence/cross_gradient.h.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "inversion/inversion_problem.h"
#include "inversion/objective.h"
#include "run/convergence/cross_gradient.h"
#include "run/convergence/data_operator.h"
#include "run/convergence/data_subspace.h"
#include "run/convergence/multigrid.h"

namespace voxlith {

// Work arrays; nothing in them lasts from one step to the next except the bounds, `dataDiagonal` and `normDiagonal`,
// which prepareNewton and setComponentScales compute, and `dataGradient`.
struct NewtonWork {
    DataOperator data;
    CrossGradient cross;                             // beta phi_x in phi, g and H; none by default
    std::vector<double> lower, upper;                // bounds by cell, infinite where there are none
    std::vector<double> dataDiagonal, normDiagonal;  // estimates of diag(J'J)/N, diag(R)
    std::vector<double> gradient, step, residual, direction, preconditioned, product, scaled, trial;
    std::vector<double> dataGradient;  // J' r / N, of obs.predData and the component scales while `hasDataGradient`
    bool hasDataGradient = false;
    std::vector<double> startModel;  // before a step that can be given up
    std::vector<double> dataVector;  // nData by component
    std::vector<double> dataStep;    // nData by component: residuals after a step
    DataSubspace subspace;           // in use where its capacity is not 0
    std::vector<double> blockSums;   // of inner products
    std::vector<std::uint8_t> isFree;
    std::vector<Multigrid> grids;  // by model type
};

// phi at a model.
struct ScaledObjective {
    ObjectiveTerms terms;
    double misfit = 0;     // phi_d with the component scales, which terms.misfit does not have
    double objective = 0;  // phi with `misfit`
    double cross = 0;      // beta phi_x
};

// arrays.model up to its length.
std::span<double> modelOf(const InversionProblem& problem);

// Sizes all arrays and computes bounds and diagonals. Brings arrays.model within its bounds; no-data values become 0.
// Throws RunError, see makeDataOperator.
NewtonWork prepareNewton(const InversionProblem& problem);

// Takes the scales of the components, and computes `dataDiagonal` with them: a preconditioner for other scales is none.
void setComponentScales(const InversionProblem& problem, std::span<const double> scales, NewtonWork& work);

// phi at `model`, with obs.predData and the derivative of the data taken there.
ScaledObjective evaluateObjective(const InversionProblem& problem, NewtonWork& work, std::span<const double> model);

// work.gradient = g at `model`, where evaluateObjective was called last. Takes products only the first time there.
void evaluateGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> model);

// work.gradient = g at `model` from its scaled residuals; dataGradient with it. False, and nothing done, when
// work.subspace is full.
bool takeGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> residual,
                  std::span<const double> model);

// out += mu R (vector - reference), or mu R vector for a Hessian product; all model types.
void addNormOfTypes(const InversionProblem& problem, NewtonWork& work, GradientMode mode,
                    std::span<const double> vector, std::span<double> out);

// Half of what a change of cell n alone adds to phi, divided by its square: an estimate of diag(H).
double diagonalOf(const InversionProblem& problem, const NewtonWork& work, std::size_t n);

// a'b, summed in blocks of fixed length.
double blockedProduct(std::span<const double> a, std::span<const double> b, std::span<double> blockSums);

}  // namespace voxlith
