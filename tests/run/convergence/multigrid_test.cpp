#include "run/convergence/multigrid.h"

#include <gtest/gtest.h>

#include <cmath>

#include "run/convergence/norm_operator.h"
#include "support/dot.h"
#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

// A mesh of `side` cells each way with widths that differ, a tenth of the cells fixed, and a small diagonal.
struct GridProblem {
    SmallProblem small;
    std::vector<std::uint8_t> isFree;
    Vector diagonal;
    Multigrid grid;

    static SmallOptions optionsOf(std::int32_t side) {
        SmallOptions options;
        options.cellsZXY = {side, side, side};
        options.paddedZXY = {side, side, side};
        options.nData = 2;
        return options;
    }
    explicit GridProblem(std::int32_t side) : small(optionsOf(side)), grid(makeMultigrid(small.mesh, true)) {
        std::mt19937 random(3);
        std::uniform_real_distribution<double> uniform(0.0, 1.0);
        for (std::size_t n = 0; n < small.cells(); ++n) {
            isFree.push_back(uniform(random) < 0.9 ? 1 : 0);
            diagonal.push_back(1e-4 * uniform(random));
            small.weights.wtS[n] *= 1e-4F;
        }
        updateMultigrid(small.problem().regularisation(), 2.0, small.arrays.refModel, diagonal, isFree, grid);
    }
    Vector precondition(const Vector& residual) {
        Vector out(residual.size());
        applyMultigrid(small.problem().regularisation(), residual, grid, out);
        return out;
    }
    Vector multiply(const Vector& vector) {
        Vector out(vector.size(), 0.0), scaled(vector.size());
        addNormProduct(small.problem().regularisation(), GradientMode::hessianProduct, vector, small.arrays.refModel,
                       2.0, scaled, out);
        for (std::size_t n = 0; n < out.size(); ++n) {
            out[n] = isFree[n] != 0 ? out[n] + diagonal[n] * vector[n] : 0.0;
        }
        return out;
    }
    Vector randomFree(unsigned seed) {
        std::mt19937 random(seed);
        Vector vector = randomVector(small.cells(), random);
        for (std::size_t n = 0; n < vector.size(); ++n) {
            vector[n] *= isFree[n];
        }
        return vector;
    }
};

TEST(Multigrid, IsSymmetricAndPositive) {
    GridProblem problem(7);
    const Vector a = problem.randomFree(1), b = problem.randomFree(2);
    const Vector ma = problem.precondition(a), mb = problem.precondition(b);
    EXPECT_NEAR(dot(a, mb), dot(b, ma), 1e-12 * std::sqrt(dot(a, ma) * dot(b, mb)));
    EXPECT_GT(dot(a, ma), 0.0);
    for (std::size_t n = 0; n < ma.size(); ++n) {
        EXPECT_TRUE(problem.isFree[n] != 0 || ma[n] == 0.0);
    }
}

// Steps of conjugate gradients to a residual of 1e-8.
int stepsToSolve(GridProblem& problem) {
    Vector x(problem.small.cells(), 0.0), r = problem.randomFree(4), z = problem.precondition(r), p = z;
    double rz = dot(r, z);
    const double end = 1e-16 * rz;
    int steps = 0;
    for (; rz > end && steps < 100; ++steps) {
        const Vector ap = problem.multiply(p);
        const double length = rz / dot(p, ap);
        for (std::size_t n = 0; n < x.size(); ++n) {
            x[n] += length * p[n];
            r[n] -= length * ap[n];
        }
        z = problem.precondition(r);
        const double rzNew = dot(r, z);
        for (std::size_t n = 0; n < p.size(); ++n) {
            p[n] = z[n] + rzNew / rz * p[n];
        }
        rz = rzNew;
    }
    return steps;
}

TEST(Multigrid, NeedsHardlyMoreStepsOnFinerMeshes) {
    GridProblem coarse(8), fine(32);
    const int stepsCoarse = stepsToSolve(coarse), stepsFine = stepsToSolve(fine);
    RecordProperty("stepsFine", stepsFine);
    EXPECT_LE(stepsCoarse, 15);
    EXPECT_LE(stepsFine, 20);
}

}  // namespace
}  // namespace voxlith
