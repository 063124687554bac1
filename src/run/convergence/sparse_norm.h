// Sparse model norms by iteratively reweighted least squares. The quadratic norm of the next solution approximates
//
//   sum of w |v|^p,   v: value of a cell less its reference, or difference of two neighbours
//
// as each w v^2 becomes w v^2 ((v0/e)^2 + 1)^(p/2 - 1), v0 being v in the last model. For p = 0 that counts the v above
// e, for p = 1 it sums magnitudes, for p = 2 nothing changes. Depth weights, alphas and weighting files stay in w. e
// falls from the largest value to a share of it: a small e at once would end in a poor local minimum.
//
//   compact: p = 0 for values, 0.7 for differences     blocky: p = 1 for both, the only convex choice
//
// All model types share the weights, v^2/e^2 being summed over them: their bodies are drawn to the same cells.
//
//   B. J. Last and K. Kubik, Compact gravity inversion, Geophysics 48, 1983. O. Portniaguine and M. S. Zhdanov,
//   Focusing geophysical inversion images, Geophysics 64, 1999. D. Fournier and D. W. Oldenburg, Inversion using
//   spatially variable mixed lp norms, Geophysical Journal International 218, 2019.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

#include "formats/weight_file.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

enum class ModelNorm : std::int32_t { smooth, compact, blocky };

std::string_view nameOf(ModelNorm norm);

// p of the reference term and of the differences.
struct SparsePowers {
    double reference = 2, difference = 2;
};
SparsePowers powersOf(ModelNorm norm);

// Plain data for a checkpoint. The factors follow from it and the model of the last reweighting.
struct SparseState {
    std::array<double, maxFiles> threshold{}, lastThreshold{};  // e by model type, now and at the end
    std::int32_t round = 0;                                     // reweightings so far
    double change = 0;                          // of the model in the last round, over its largest value
    double target = 0;                          // phi_d to keep
    double lastMultiplier = 0, lastMisfit = 0;  // of the solution before; 0 for none
    std::int32_t adjustments = 0;               // of trade-off or factors in this round
    bool settled = false;                       // the last round hardly changed the model
    bool lastWeights = false;                   // they stay as they are
};
static_assert(std::is_trivially_copyable_v<SparseState>);

// Thresholds from the model, first its largest value. `target` is phi_d to keep. False where there is nothing to
// concentrate: no model, or no misfit.
bool beginSparseNorm(const InversionProblem& problem, double target, SparseState& state);

// weights = original times the factors at `model` (inversion variable, all model types).
void reweight(const InversionProblem& problem, const SparsePowers& powers, const SparseState& state,
              const SmoothnessWeights& original, std::span<const double> model, SmoothnessWeights& weights);

// How near the RMS misfit has to be to what it was, and whether another change for that is due in this round.
double misfitTolerance(const SparseState& state);
bool mayAdjust(const SparseState& state);

// Of a solution (predicted decrease over phi) before the next reweighting. Mostly one Newton step is enough: other
// weights change more than another step would. The last weights are solved well.
double sparseAccuracy(const SparseState& state);

// The trade-off that keeps the misfit: true after a change of `multiplier`, false where `misfit` is near enough.
bool adjustTradeoff(SparseState& state, double misfit, double& multiplier);

// Compares the model with that of the last reweighting. True: another round with lower thresholds; false when the model
// no longer changes at the last ones (state.settled), or after the largest number of rounds: the weights are the last.
bool finishRound(const InversionProblem& problem, std::span<const double> sparseModel, SparseState& state);

}  // namespace voxlith
