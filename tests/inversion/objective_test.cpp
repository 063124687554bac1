#include "inversion/objective.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;

// The value of a cell as the objective sees it: always over the first file's weight.
double valueAt(const SmallProblem& small, std::size_t k, std::size_t i, std::size_t j, std::size_t type) {
    const double x = small.arrays.model[small.at(k, i, j, type)];
    return small.options.fold ? x / static_cast<double>(small.sensitivity.depthWeight[small.at(k, i, j)]) : x;
}

double square(double x) {
    return x * x;
}

// The terms by plain nested loops, straight from their definition.
ObjectiveTerms termsByLoops(const SmallProblem& small) {
    const MeshGeometry& mesh = small.mesh;
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto nz = static_cast<std::size_t>(mesh.nz), nzl = static_cast<std::size_t>(mesh.nzl);
    ObjectiveTerms terms;
    for (std::size_t t = 0; t < static_cast<std::size_t>(small.options.nModelTypes); ++t) {
        for (std::size_t j = 0; j < ny; ++j) {
            for (std::size_t i = 0; i < nx; ++i) {
                for (std::size_t k = 0; k < nz; ++k) {
                    const std::size_t cell = small.at(k, i, j);
                    const double reference = small.arrays.refModel[small.at(k, i, j, t)];
                    const double weight =
                        small.options.fold ? static_cast<double>(small.sensitivity.depthWeight[cell]) : 1.0;
                    const double v = valueAt(small, k, i, j, t);
                    if (k < nzl && reference > dummyValue) {
                        terms.refNorm += static_cast<double>(small.weights.wtS[cell]) *
                                         square((small.arrays.model[small.at(k, i, j, t)] - reference) / weight);
                    }
                    if (k < nzl && j + 1 < ny) {
                        terms.smoothY += static_cast<double>(small.weights.wtN[cell]) *
                                         square((v - valueAt(small, k, i, j + 1, t)) /
                                                ((mesh.yWidth[j] + mesh.yWidth[j + 1]) * 0.5));
                    }
                    if (k < nzl && i + 1 < nx) {
                        terms.smoothX += static_cast<double>(small.weights.wtE[cell]) *
                                         square((v - valueAt(small, k, i + 1, j, t)) /
                                                ((mesh.xWidth[i] + mesh.xWidth[i + 1]) * 0.5));
                    }
                    if (k + 1 < nz && hasVerticalTerms(small.options.inversionStyle)) {
                        terms.smoothZ += static_cast<double>(small.weights.wtZ[cell]) *
                                         square((v - valueAt(small, k + 1, i, j, t)) /
                                                ((mesh.zWidth[k] + mesh.zWidth[k + 1]) * 0.5));
                    }
                }
            }
        }
    }
    terms.smoothNorm = terms.smoothY + terms.smoothX + terms.smoothZ;
    return terms;
}

void expectClose(double got, double want) {
    EXPECT_NEAR(got, want, 1e-12 * std::abs(want));
}

void expectSameTerms(SmallProblem& small) {
    SCOPED_TRACE("seed " + std::to_string(small.options.seed));
    const ObjectiveTerms got = calcObjective(small.problem(), {}, small.arrays.model);
    const ObjectiveTerms want = termsByLoops(small);
    expectClose(got.refNorm, want.refNorm);
    expectClose(got.smoothY, want.smoothY);
    expectClose(got.smoothX, want.smoothX);
    expectClose(got.smoothZ, want.smoothZ);
    EXPECT_EQ(got.smoothNorm, got.smoothZ + got.smoothY + got.smoothX);
    EXPECT_EQ(got.barrierNorm, 0.0);
}

TEST(Objective, TermsAreThoseOfPlainLoops) {
    unsigned seed = 0;
    for (const std::int32_t style : {0, 1, 2, 3, 4}) {
        for (const bool fold : {true, false}) {
            for (const std::int32_t types : {1, 2}) {
                SmallOptions options;
                options.inversionStyle = InversionStyle{style};
                options.fold = fold;
                options.nModelTypes = options.nMtx = options.nDataTypes = types;
                options.seed = ++seed;
                expectSameTerms(*makeSmallProblem(options));
            }
        }
    }
}

TEST(Objective, OnlyTheCoveredLayersCountLaterally) {
    SmallOptions options;
    options.inversionStyle = InversionStyle::surfaceAndApparentDensity;
    options.cellsZXY = {6, 3, 4};
    options.paddedZXY = {4, 4, 4};
    const auto small = makeSmallProblem(options);
    ASSERT_EQ(small->mesh.nzl, 4);
    expectSameTerms(*small);
    const ObjectiveTerms before = calcObjective(small->problem(), {}, small->arrays.model);
    for (std::size_t n = 0; n < small->modelSize(); ++n) {
        if (n % 6 >= 4) {
            small->arrays.model[n] = 1000.0 + static_cast<double>(n);
        }
    }
    const ObjectiveTerms after = calcObjective(small->problem(), {}, small->arrays.model);
    EXPECT_EQ(before.refNorm, after.refNorm);
    EXPECT_EQ(before.smoothX, after.smoothX);
    EXPECT_EQ(before.smoothY, after.smoothY);
    EXPECT_EQ(after.smoothZ, 0.0);
    EXPECT_GT(after.smoothX, 0.0);
}

TEST(Objective, VerticalPairsRunDownTheWholeColumn) {
    const auto small = makeSmallProblem();
    small->mesh.nzl = 2;
    const double before = calcObjective(small->problem(), {}, small->arrays.model).smoothZ;
    small->arrays.model[small->at(3, 0, 0)] += 5.0;
    EXPECT_NE(calcObjective(small->problem(), {}, small->arrays.model).smoothZ, before);
}

TEST(Objective, CellWithoutReferenceStaysInTheSmoothness) {
    const auto small = makeSmallProblem();
    const std::size_t cell = small->at(1, 1, 2);
    small->arrays.refModel[cell] = dummyValue;
    const ObjectiveTerms before = calcObjective(small->problem(), {}, small->arrays.model);
    small->arrays.model[cell] += 1.0;
    const ObjectiveTerms after = calcObjective(small->problem(), {}, small->arrays.model);
    EXPECT_EQ(before.refNorm, after.refNorm);
    EXPECT_NE(before.smoothY, after.smoothY);
    EXPECT_NE(before.smoothX, after.smoothX);
    EXPECT_NE(before.smoothZ, after.smoothZ);
    // A value just above the dummy is a reference like any other.
    small->arrays.refModel[cell] = std::nextafter(dummyValue, 0.0);
    EXPECT_GT(calcObjective(small->problem(), {}, small->arrays.model).refNorm, 1e60);
}

TEST(Objective, AllDataMaskedLeavesAValidObjective) {
    const auto small = makeSmallProblem();
    for (std::size_t station = 0; station < 12; ++station) {
        small->maskDatum(0, station);
    }
    const ObjectiveTerms terms = calcObjective(small->problem(), {}, small->arrays.model);
    EXPECT_EQ(terms.misfit, 0.0);
    EXPECT_TRUE(std::isfinite(reportedTotal(terms, 0.5)));
    EXPECT_GT(reportedTotal(terms, 0.5), 0.0);
}

TEST(Objective, MisfitDividesByAllStationsAndNotByComponents) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 2;
    const auto small = makeSmallProblem(options);
    small->maskDatum(0, 3);
    const ObjectiveTerms terms = calcObjective(small->problem(), {}, small->arrays.model);
    double sum = 0.0;
    for (std::size_t n = 0; n < small->dataSize(); ++n) {
        if (isValid(small->obs.obsData[n])) {
            sum += square(small->obs.predData[n] - small->obs.obsData[n]);
        }
    }
    expectClose(terms.misfit, sum / 12.0);
}

TEST(Objective, OneCellAcrossHasNoPairs) {
    for (const bool alongY : {true, false}) {
        SmallOptions options;
        options.cellsZXY = alongY ? std::array<std::int32_t, 3>{4, 3, 1} : std::array<std::int32_t, 3>{4, 1, 3};
        options.paddedZXY = alongY ? std::array<std::int32_t, 3>{4, 4, 1} : std::array<std::int32_t, 3>{4, 1, 4};
        const auto small = makeSmallProblem(options);
        const ObjectiveTerms terms = calcObjective(small->problem(), {}, small->arrays.model);
        EXPECT_EQ(terms.smoothY == 0.0, alongY);
        EXPECT_EQ(terms.smoothX == 0.0, !alongY);
        EXPECT_GT(terms.smoothZ, 0.0);
    }
}

TEST(Objective, SecondModelTypeUsesTheFirstFilesWeight) {
    SmallOptions options;
    options.nModelTypes = options.nMtx = options.nDataTypes = 2;
    const auto small = makeSmallProblem(options);
    const ObjectiveTerms before = calcObjective(small->problem(), {}, small->arrays.model);
    for (std::size_t n = 0; n < small->cells(); ++n) {
        small->sensitivity.depthWeight[small->cells() + n] *= 3.0F;
    }
    const ObjectiveTerms after = calcObjective(small->problem(), {}, small->arrays.model);
    EXPECT_EQ(before.refNorm, after.refNorm);
    EXPECT_EQ(before.smoothNorm, after.smoothNorm);
}

TEST(Objective, TheTwoSumsDifferInTheBarrier) {
    ObjectiveTerms terms;
    terms.misfit = 2.0;
    terms.refNorm = 3.0;
    terms.smoothNorm = 5.0;
    terms.barrierNorm = 7.0;
    EXPECT_EQ(optimiserObjective(terms, {0.25, 1.0}, 0.5), 2.0 + 0.25 * 7.0 + 4.0);
    EXPECT_EQ(reportedTotal(terms, 0.5), 2.0 + 7.0 + 4.0);
}

TEST(Objective, BarrierEntersTheOptimisersSumSquared) {
    SmallOptions options;
    options.positivity = Positivity::strictlyPositive;
    const auto small = makeSmallProblem(options);
    const Barrier barrier{0.2, 2.0}, doubled{0.4, 2.0};
    const ObjectiveTerms once = calcObjective(small->problem(), barrier, small->arrays.model);
    const ObjectiveTerms twice = calcObjective(small->problem(), doubled, small->arrays.model);
    ASSERT_GT(once.barrierNorm, 0.0);
    expectClose(twice.barrierNorm, 2.0 * once.barrierNorm);
    const double without = once.misfit + 0.5 * (once.refNorm + once.smoothNorm);
    EXPECT_NEAR(optimiserObjective(twice, doubled, 0.5) - without,
                4.0 * (optimiserObjective(once, barrier, 0.5) - without), 1e-12 * without);
}

TEST(Objective, TimesItself) {
    const auto small = makeSmallProblem();
    for (int n = 0; n < 200; ++n) {
        calcObjective(small->problem(), {}, small->arrays.model);
    }
    EXPECT_GT(small->timers.objectiveInside, 0.0);
    EXPECT_LT(small->timers.objectiveInside, 60.0);
    EXPECT_EQ(small->timers.calcObjective, 0.0);
}

}  // namespace
}  // namespace voxlith
