// Structural coupling of two properties: their gradients are to be parallel wherever both change.
//
//   phi_x = sum over cells  V_c / V  L^4  | grad a x grad b |^2        L = 10^4 m, as in the smoothness of the model
//   norm
//
// The objective becomes phi_d + mu phi_m + beta phi_x. Gradients are forward differences between cell centres, 0 across
// pairs whose weight in the model norm is 0 and at the far end of an axis. With t = grad a x grad b a change of a
// changes t by grad da x grad b, so half the gradient by a is D'(w grad b x t), by b D'(w t x grad a), and the
// Gauss-Newton Hessian has the change of t in place of t. phi_x is not convex in both properties together.
//
//   L. A. Gallardo and M. A. Meju, Characterization of heterogeneous near-surface materials by joint 2D inversion of dc
//   resistivity and seismic data, Geophysical Research Letters 30, 2003, 1658.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "inversion/inversion_problem.h"

namespace voxlith {

// Which properties, from 1: model types of a run with several of them; else the parts of the mesh along y between
// planes without weights, as properties side by side in one model are.
struct CrossGradientSettings {
    double weight = 0;  // beta; 0: no coupling
    std::int32_t first = 1, second = 2;
};

using VectorField = std::array<std::vector<double>, 3>;  // along z, x and y, by cell of a property

struct CrossGradient {
    double weight = 0;
    std::size_t firstCell = 0, secondCell = 0;  // of the properties in the model
    std::size_t nz = 0, nx = 0, ny = 0;
    std::array<std::vector<double>, 3> inverseDistance;  // between the centres along z, x and y
    std::vector<double> cellWeight;                      // V_c / V L^4
    std::array<std::vector<std::uint8_t>, 3> linked;     // of both properties, by cell and its next along z, x and y
    std::array<std::vector<float>, 2> depthWeight;       // variable = depth weight times property; empty for none
    VectorField gradientA, gradientB;                    // at the point of linearisation
    std::array<VectorField, 3> work;
    std::vector<double> values;

    bool isUsed() const { return weight > 0; }
};

// First cell along y of each part of the mesh between planes across which all weights are 0, and ny: the properties of
// a stacked model.
std::vector<std::size_t> partsAlongY(const InversionProblem& problem);

// Throws RunError when the run does not have the properties, or they are not alike.
CrossGradient makeCrossGradient(const InversionProblem& problem, const CrossGradientSettings& settings);

// phi_x at a model, (k, i, j, model type), 0 without coupling. Changes work memory alone.
double crossGradientNorm(CrossGradient& cross, std::span<const double> model);

// Keeps the gradients at `model`, and adds weight times half the gradient of phi_x there.
void addCrossGradient(CrossGradient& cross, std::span<const double> model, std::span<double> gradient);

// out += weight times half the Gauss-Newton Hessian, where addCrossGradient was called last, times `direction`.
void addCrossHessian(CrossGradient& cross, std::span<const double> direction, std::span<double> out);

}  // namespace voxlith
