// Differences between neighbouring cells: their weighted sums of squares for the objective, and the sums of differences
// that the gradient takes for their derivative.
//
// Throughout, `model` and `out` are (k, i, j, model type), weights are (k, i, j), and the weight of a pair is that of
// its first cell. A value is x/W, or x when `depthWeight` is empty; `depthWeight` (k, i, j) serves all model types of
// the call. Pairs along y and x are taken down to nzl, pairs along z over all of nz.
#pragma once

#include <span>

#include "files/mesh_geometry.h"

namespace voxlith {

// Sum over the pairs of w ((v1 - v2)/distance)^2, the distance being half the sum of the two widths.
double roughnessY(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtN);
double roughnessX(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtE);
double roughnessZ(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                  std::span<const float> wtZ);

// Adds w (v1 - v2)/distance to the first cell of every pair and takes it from the second. The difference is divided by
// the distance once and not by W again: this is not the derivative of the roughness where widths or weights differ from
// 1, and stays so, since step lengths and models of earlier versions rest on it.
void addDifferencesY(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtN, std::span<double> out);
void addDifferencesX(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtE, std::span<double> out);
void addDifferencesZ(const MeshGeometry& mesh, std::span<const double> model, std::span<const float> depthWeight,
                     std::span<const float> wtZ, std::span<double> out);

}  // namespace voxlith
