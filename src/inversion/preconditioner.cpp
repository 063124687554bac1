#include "inversion/preconditioner.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace voxlith {

namespace {

float overSquare(float weight, std::span<const float> depthWeight, std::size_t cell) {
    if (depthWeight.empty())
        return weight;
    return weight / (depthWeight[cell] * depthWeight[cell]);
}

void addPairs(const MeshGeometry& mesh, std::span<const float> weight, std::span<const float> depthWeight,
              std::size_t alongZ, std::size_t alongX, std::size_t alongY, std::span<float> regDiag) {
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto nz = static_cast<std::size_t>(mesh.nz);
    const std::size_t stride = mesh.cell(alongZ, alongX, alongY);
    for (std::size_t j = 0; j + alongY < ny; ++j)
        for (std::size_t i = 0; i + alongX < nx; ++i)
            for (std::size_t k = 0; k + alongZ < nz; ++k) {
                const std::size_t first = mesh.cell(k, i, j);
                const float term = overSquare(weight[first], depthWeight, first);
                regDiag[first] += term;
                regDiag[first + stride] += term;
            }
}

}  // namespace

void buildRegularisationDiagonal(const MeshGeometry& mesh, const SmoothnessWeights& weights,
                                 const Sensitivity& sensitivity, std::span<float> regDiag) {
    std::fill(regDiag.begin(), regDiag.end(), 0.0F);
    for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        const auto depthWeight =
            sensitivity.foldDepthWeight ? sensitivity.depthWeightOf(file) : std::span<const float>{};
        for (std::size_t n = 0; n < regDiag.size(); ++n)
            regDiag[n] += overSquare(weights.wtS[n], depthWeight, n);
        addPairs(mesh, weights.wtN, depthWeight, 0, 0, 1, regDiag);
        addPairs(mesh, weights.wtE, depthWeight, 0, 1, 0, regDiag);
        addPairs(mesh, weights.wtZ, depthWeight, 1, 0, 0, regDiag);
    }
}

void buildPreconditioner(const Sensitivity& sensitivity, double multiplier, std::span<const float> regDiag,
                         std::span<float> precond) {
    for (std::size_t n = 0; n < precond.size(); ++n) {
        double diagonal = multiplier * static_cast<double>(regDiag[n]);
        if (sensitivity.foldDepthWeight) {
            const auto depthWeight = static_cast<double>(sensitivity.depthWeight[n]);
            diagonal *= depthWeight * depthWeight;
        }
        precond[n] = static_cast<float>(1.0 / std::sqrt(diagonal + sensitivity.gtgdiag[n]));
    }
}

}  // namespace voxlith
