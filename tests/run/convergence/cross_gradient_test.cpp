#include "run/convergence/cross_gradient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "base/messages.h"
#include "run/convergence/newton_step.h"
#include "support/dot.h"
#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

SmallOptions twoTypes(unsigned seed, bool fold) {
    SmallOptions options;
    options.seed = seed;
    options.fold = fold;
    options.nDataTypes = options.nMtx = options.nModelTypes = 2;
    return options;
}

SmallOptions oneType(unsigned seed) {
    SmallOptions options;
    options.seed = seed;
    options.cellsZXY = {4, 5, 6};
    options.paddedZXY = {4, 8, 8};
    return options;
}

// Two properties side by side along y in one model.
struct SideBySide : SmallProblem {
    explicit SideBySide(unsigned seed) : SmallProblem(oneType(seed)) {
        for (std::size_t j = 0; j < 3; ++j) {
            mesh.yWidth[3 + j] = mesh.yWidth[j];
        }
        const std::size_t plane = cells() / 6;
        std::fill_n(weights.wtN.begin() + static_cast<std::ptrdiff_t>(2 * plane), plane, 0.0F);
    }
};

// A weight that makes the term as large as the rest of the objective.
CrossGradientSettings balanced(SmallProblem& small) {
    CrossGradientSettings settings{1.0, 1, 2};
    CrossGradient cross = makeCrossGradient(small.problem(), settings);
    NewtonWork work = prepareNewton(small.problem());
    settings.weight = evaluateObjective(small.problem(), work, small.arrays.model).objective /
                      crossGradientNorm(cross, small.arrays.model);
    return settings;
}

// phi(x + e p) - phi(x) - 2 e g.p falls with e^2.
void expectSecondOrder(SmallProblem& small) {
    NewtonWork work = prepareNewton(small.problem());
    work.cross = makeCrossGradient(small.problem(), balanced(small));
    std::mt19937 random(7);
    const Vector model = small.arrays.model, p = randomVector(model.size(), random);
    const double start = evaluateObjective(small.problem(), work, model).objective;
    evaluateGradient(small.problem(), work, model);
    const double slope = 2.0 * dot(work.gradient, p);
    double previous = 0.0;
    for (const double e : {1e-2, 1e-3, 1e-4}) {
        Vector moved = model;
        for (std::size_t n = 0; n < moved.size(); ++n) {
            moved[n] += e * p[n];
        }
        const double error = std::abs(evaluateObjective(small.problem(), work, moved).objective - start - e * slope);
        if (previous > 0.0 && error > 1e-10 * start) {
            EXPECT_NEAR(previous / error, 100.0, 15.0) << "step " << e;
        }
        previous = error;
    }
    EXPECT_LT(previous, 1e-5 * start);
}

TEST(CrossGradient, GradientIsExact) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        for (const bool fold : {true, false}) {
            SmallProblem small(twoTypes(seed, fold));
            expectSecondOrder(small);
        }
        SideBySide stacked(seed);
        expectSecondOrder(stacked);
    }
}

// Where the gradients are parallel the neglected part is 0, and phi_x grows by the quadratic form of the Hessian.
TEST(CrossGradient, HessianIsExactForParallelGradients) {
    SmallProblem small(twoTypes(4, true));
    const std::size_t cells = small.cells();
    Vector model = small.arrays.model;
    for (std::size_t n = 0; n < cells; ++n) {
        model[cells + n] = -2.5 * model[n];
    }
    CrossGradient cross = makeCrossGradient(small.problem(), {3.0, 1, 2});
    EXPECT_NEAR(crossGradientNorm(cross, model), 0.0, 1e-12 * crossGradientNorm(cross, small.arrays.model));
    Vector gradient(model.size(), 0.0), product(model.size(), 0.0), moved = model;
    std::mt19937 random(5);
    const Vector p = randomVector(model.size(), random);
    addCrossGradient(cross, model, gradient);
    addCrossHessian(cross, p, product);
    constexpr double e = 1e-5;
    for (std::size_t n = 0; n < moved.size(); ++n) {
        moved[n] += e * p[n];
    }
    const double grown = 3.0 * crossGradientNorm(cross, moved) / (e * e);
    EXPECT_NEAR(grown, dot(p, product), 1e-3 * grown);
}

TEST(CrossGradient, HessianIsSymmetric) {
    SideBySide small(2);
    CrossGradient cross = makeCrossGradient(small.problem(), {1.0, 2, 1});
    std::mt19937 random(6);
    const Vector a = randomVector(small.cells(), random), b = randomVector(small.cells(), random);
    Vector gradient(a.size(), 0.0), ha(a.size(), 0.0), hb(a.size(), 0.0);
    addCrossGradient(cross, small.arrays.model, gradient);
    addCrossHessian(cross, a, ha);
    addCrossHessian(cross, b, hb);
    EXPECT_NEAR(dot(a, hb), dot(b, ha), 1e-12 * std::sqrt(dot(a, ha) * dot(b, hb)));
    EXPECT_GT(dot(a, ha), 0.0);
}

// a = x, b = y on a mesh in physical units: the cross product is 1 in all cells with both differences.
TEST(CrossGradient, HasTheUnitOfTheSmoothness) {
    SmallOptions options = twoTypes(1, false);
    options.cellsZXY = {2, 4, 5};
    options.paddedZXY = {2, 4, 8};
    SmallProblem small(options);
    std::fill(small.weights.wtE.begin(), small.weights.wtE.end(), 1.0F);
    std::fill(small.weights.wtN.begin(), small.weights.wtN.end(), 1.0F);
    Vector model(2 * small.cells(), 0.0);
    double x = 0, y = 0, volume = 0, whole = 0;
    for (std::size_t j = 0; j < 5; ++j, y += small.mesh.yWidth[j - 1]) {
        x = 0;
        for (std::size_t i = 0; i < 4; ++i, x += small.mesh.xWidth[i - 1]) {
            for (std::size_t k = 0; k < 2; ++k) {
                const std::size_t n = small.mesh.cellIndex(k, i, j);
                model[n] = x + 0.5 * small.mesh.xWidth[i];
                model[small.cells() + n] = y + 0.5 * small.mesh.yWidth[j];
                const double v = small.mesh.zWidth[k] * small.mesh.xWidth[i] * small.mesh.yWidth[j];
                whole += v;
                volume += i < 3 && j < 4 ? v : 0.0;
            }
        }
    }
    if (!small.problem().foldedWeight(0).empty()) {
        for (std::size_t n = 0; n < model.size(); ++n) {
            model[n] *= static_cast<double>(small.problem().foldedWeight(0)[n % small.cells()]);
        }
    }
    CrossGradient cross = makeCrossGradient(small.problem(), {1.0, 1, 2});
    EXPECT_NEAR(crossGradientNorm(cross, model), 1e16 * volume / whole, 1e6 * volume / whole * 1e4);
}

TEST(CrossGradient, OtherRunsAreRefused) {
    SmallProblem one{SmallOptions{}}, two(twoTypes(1, true));
    SideBySide stacked(1);
    EXPECT_FALSE(makeCrossGradient(one.problem(), {}).isUsed());
    EXPECT_THROW(makeCrossGradient(one.problem(), {1.0, 1, 2}), RunError);
    EXPECT_THROW(makeCrossGradient(two.problem(), {1.0, 1, 3}), RunError);
    EXPECT_THROW(makeCrossGradient(two.problem(), {1.0, 2, 2}), RunError);
    EXPECT_THROW(makeCrossGradient(stacked.problem(), {1.0, 3, 1}), RunError);
    stacked.mesh.yWidth[4] *= 1.5;
    EXPECT_THROW(makeCrossGradient(stacked.problem(), {1.0, 1, 2}), RunError);
}

}  // namespace
}  // namespace voxlith
