#include "inversion/preconditioner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;

// The same in real64, by pairs found by comparing all cells of the mesh.
std::vector<double> diagonalByPairs(const SmallProblem& small) {
    const MeshGeometry& mesh = small.mesh;
    std::vector<double> diagonal(small.cells(), 0.0);
    for (std::size_t file = 0; file < static_cast<std::size_t>(small.options.nMtx); ++file) {
        const auto term = [&](const std::vector<float>& weight, std::size_t cell) {
            const double depthWeight =
                small.options.fold ? static_cast<double>(small.sensitivity.depthWeightOf(file)[cell]) : 1.0;
            return static_cast<double>(weight[cell]) / (depthWeight * depthWeight);
        };
        for (std::size_t j = 0; j < static_cast<std::size_t>(mesh.ny); ++j) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(mesh.nx); ++i) {
                for (std::size_t k = 0; k < static_cast<std::size_t>(mesh.nz); ++k) {
                    const std::size_t first = mesh.cellIndex(k, i, j);
                    diagonal[first] += term(small.weights.wtS, first);
                    const auto pair = [&](bool exists, std::size_t second, const std::vector<float>& weight) {
                        if (!exists) {
                            return;
                        }
                        diagonal[first] += term(weight, first);
                        diagonal[second] += term(weight, first);
                    };
                    pair(j + 1 < static_cast<std::size_t>(mesh.ny), mesh.cellIndex(k, i, j + 1), small.weights.wtN);
                    pair(i + 1 < static_cast<std::size_t>(mesh.nx), mesh.cellIndex(k, i + 1, j), small.weights.wtE);
                    pair(k + 1 < static_cast<std::size_t>(mesh.nz), mesh.cellIndex(k + 1, i, j), small.weights.wtZ);
                }
            }
        }
    }
    return diagonal;
}

TEST(Preconditioner, CountsAllPairsOfAllFilesWhateverTheStyle) {
    unsigned seed = 0;
    for (const std::int32_t style : {0, 1, 3}) {
        for (const bool fold : {true, false}) {
            for (const std::int32_t files : {1, 3}) {
                SmallOptions options;
                options.inversionStyle = InversionStyle{style};
                options.fold = fold;
                options.nMtx = files;
                options.seed = ++seed;
                SCOPED_TRACE("seed " + std::to_string(seed));
                const auto small = makeSmallProblem(options);
                small->mesh.nzl = 2;  // does not matter here
                auto& regDiag = small->arrays.regDiag;
                std::fill(regDiag.begin(), regDiag.end(), 1e9F);
                buildPreconditioner(small->problem());
                const std::vector<double> want = diagonalByPairs(*small);
                for (std::size_t n = 0; n < want.size(); ++n) {
                    EXPECT_NEAR(static_cast<double>(regDiag[n]), want[n], 3e-6 * want[n]);
                }
            }
        }
    }
}

TEST(Preconditioner, DiagonalIsSummedInSinglePrecision) {
    SmallOptions options;
    options.cellsZXY = {2, 1, 1};
    options.paddedZXY = {2, 1, 1};
    const auto small = makeSmallProblem(options);
    small->weights.wtS = {1.0F, 1.0F};
    small->weights.wtZ = {1e-8F, 0.0F};
    small->sensitivity.depthWeight = {1.0F, 3.0F};
    const std::vector<float>& regDiag = small->arrays.regDiag;
    buildPreconditioner(small->problem());
    EXPECT_EQ(regDiag[0], 1.0F);
    EXPECT_EQ(regDiag[1], 1.0F / 9.0F + 1e-8F);
}

TEST(Preconditioner, SingleLayerNeverReadsTheVerticalWeight) {
    SmallOptions options;
    options.cellsZXY = {1, 4, 5};
    options.paddedZXY = {1, 4, 8};
    const auto small = makeSmallProblem(options);
    std::fill(small->weights.wtZ.begin(), small->weights.wtZ.end(), std::numeric_limits<float>::quiet_NaN());
    auto& regDiag = small->arrays.regDiag;
    buildPreconditioner(small->problem());
    const std::vector<double> want = diagonalByPairs(*small);
    for (std::size_t n = 0; n < want.size(); ++n) {
        EXPECT_NEAR(static_cast<double>(regDiag[n]), want[n], 3e-6 * want[n]);
    }
}

TEST(Preconditioner, IsTheInverseRootOfTheWholeDiagonal) {
    SmallOptions options;
    options.nMtx = 2;
    for (const bool fold : {true, false}) {
        options.fold = fold;
        options.multiplier = 0.7;
        const auto small = makeSmallProblem(options);
        const auto& regDiag = small->arrays.regDiag;
        const auto& precond = small->arrays.precond;
        buildPreconditioner(small->problem());
        for (std::size_t n = 0; n < precond.size(); ++n) {
            const double w = fold ? static_cast<double>(small->sensitivity.depthWeight[n]) : 1.0;
            const double diagonal = 0.7 * static_cast<double>(regDiag[n]) * (w * w) + small->sensitivity.gtgdiag[n];
            EXPECT_FLOAT_EQ(precond[n], static_cast<float>(1.0 / std::sqrt(diagonal)));
        }
    }
}

TEST(Preconditioner, CellWithoutAnyTermIsInfinite) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->sensitivity.gtgdiag[7] = 0.0;
    const auto& precond = small->arrays.precond;
    buildPreconditioner(small->problem());
    EXPECT_TRUE(std::isinf(precond[7]));
    EXPECT_TRUE(std::isfinite(precond[6]));
}

}  // namespace
}  // namespace voxlith
