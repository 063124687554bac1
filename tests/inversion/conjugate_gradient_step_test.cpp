#include "inversion/conjugate_gradient_step.h"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>

#include "inversion/gradient.h"
#include "inversion/objective.h"
#include "inversion/preconditioner.h"
#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

struct Solved {
    ConjugateGradientResult result;
    std::string screen;
    Vector step;
};

Solved solve(SmallProblem& small, const ConjugateGradientLimits& limits = {}, const Barrier& barrier = {}) {
    buildPreconditioner(small.problem());
    calcObjective(small.problem(), barrier, small.arrays.model);
    Solved solved;
    solved.step.assign(small.modelSize(), 0.0);
    testing::internal::CaptureStdout();
    solved.result = conjugateGradientStep(small.problem(), barrier, small.arrays.model, limits, solved.step);
    solved.screen = testing::internal::GetCapturedStdout();
    return solved;
}

Vector gradientAt(SmallProblem& small, const Vector& model) {
    Vector out(model.size());
    calcObjective(small.problem(), {}, model);
    calcGradient(GradientMode::gradient, small.problem(), {}, model, out);
    return out;
}

double norm(const Vector& values) {
    double sum = 0.0;
    for (const double value : values) {
        sum += value * value;
    }
    return std::sqrt(sum);
}

SmallOptions smallSystem(unsigned seed, std::int32_t types = 1) {
    SmallOptions options;
    options.cellsZXY = {2, 2, 3};
    options.paddedZXY = {2, 2, 4};
    options.fold = false;
    options.nModelTypes = types;
    options.seed = seed;
    return options;
}

// The reference data enter the Hessian product too, so that they are left out where the step is to be the exact one.
void withoutReferenceData(SmallProblem& small) {
    std::fill(small.obs.refData.begin(), small.obs.refData.end(), 0.0);
}

TEST(ConjugateGradientStep, StepLeadsToTheMinimumOfAQuadraticObjective) {
    for (unsigned seed = 1; seed < 6; ++seed) {
        for (const std::int32_t types : {1, 2}) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            const auto small = makeSmallProblem(smallSystem(seed, types));
            withoutReferenceData(*small);
            const double before = norm(gradientAt(*small, small->arrays.model));
            const Solved solved = solve(*small, {1e-12, 100});
            EXPECT_LT(solved.result.iterations, 60);
            Vector moved = small->arrays.model;
            for (std::size_t n = 0; n < moved.size(); ++n) {
                moved[n] += solved.step[n];
            }
            EXPECT_LT(norm(gradientAt(*small, moved)), 1e-9 * before);
        }
    }
}

TEST(ConjugateGradientStep, StopsAtTheToleranceOrTheLimit) {
    const auto small = makeSmallProblem(smallSystem(3));
    withoutReferenceData(*small);
    const Solved plain = solve(*small);
    EXPECT_LT(plain.result.relativeResidual, static_cast<double>(0.001F));
    EXPECT_LT(plain.result.iterations, 20);
    EXPECT_GT(plain.result.iterations, 1);
    const Solved oneLess = solve(*small, {static_cast<double>(0.001F), plain.result.iterations - 1});
    EXPECT_EQ(oneLess.result.iterations, plain.result.iterations - 1);
    EXPECT_GE(oneLess.result.relativeResidual, static_cast<double>(0.001F));
    EXPECT_EQ(solve(*small, {0.0, 7}).result.iterations, 7);
}

// The stopping value sets the preconditioned residual of the end against the right-hand side as it is.
TEST(ConjugateGradientStep, StoppingValueIsTheMixedOne) {
    const auto small = makeSmallProblem(smallSystem(4));
    withoutReferenceData(*small);
    const Vector gradient = gradientAt(*small, small->arrays.model);
    const Solved solved = solve(*small, {0.0, 1});
    const auto& residual = small->arrays.conjugateGradient.residual;
    double rz = 0.0;
    for (std::size_t n = 0; n < residual.size() && n < small->modelSize(); ++n) {
        rz += residual[n] * residual[n] * static_cast<double>(small->arrays.precond[n % small->cells()]);
    }
    EXPECT_NEAR(solved.result.relativeResidual, std::sqrt(rz) / norm(gradient), 1e-12);
}

TEST(ConjugateGradientStep, ReportsItsStepsOnTheScreenAlone) {
    const auto small = makeSmallProblem(smallSystem(5));
    EXPECT_EQ(solve(*small, {0.0, 3}).screen.substr(0, 16), " nCGiter:      3");
    EXPECT_TRUE(std::regex_match(solve(*small).screen, std::regex(" nCGiter: [ 0-9]{6} {6}0\\.[0-9]{4}\n")));
}

TEST(ConjugateGradientStep, ZeroGradientRunsToTheLimit) {
    const auto small = makeSmallProblem(smallSystem(6));
    std::fill(small->bounds.fixedCell.begin(), small->bounds.fixedCell.end(), 1);
    const Solved solved = solve(*small);
    EXPECT_EQ(solved.result.iterations, 20);
    EXPECT_TRUE(std::isnan(solved.result.relativeResidual));
}

TEST(ConjugateGradientStep, FixedCellsDoNotMove) {
    const auto small = makeSmallProblem(smallSystem(7));
    small->bounds.fixedCell[4] = 1;
    const Solved solved = solve(*small);
    EXPECT_EQ(solved.step[4], 0.0);
    EXPECT_NE(solved.step[5], 0.0);
}

// The Hessian product of a zero step divides by zero as soon as there is a barrier.
TEST(ConjugateGradientStep, WithTheBarrierTheStepIsNotANumber) {
    SmallOptions options = smallSystem(8);
    options.positivity = Positivity::strictlyPositive;
    const auto small = makeSmallProblem(options);
    for (double& value : small->arrays.model) {
        value = std::abs(value) + 0.01;
    }
    const Solved solved = solve(*small, {}, {0.2, 5.0});
    EXPECT_EQ(solved.result.iterations, 20);
    for (const double value : solved.step) {
        EXPECT_TRUE(std::isnan(value));
    }
}

}  // namespace
}  // namespace voxlith
