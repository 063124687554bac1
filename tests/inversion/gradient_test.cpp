#include "inversion/gradient.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "inversion/data_gradient.h"
#include "inversion/objective.h"
#include "support/dot.h"
#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::makeSmallProblem;
using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

Vector gradientAt(SmallProblem& small, const Vector& model, const Barrier& barrier = {}) {
    Vector out(model.size(), std::numeric_limits<double>::quiet_NaN());
    calcObjective(small.problem(), barrier, model);
    calcGradient(GradientMode::gradient, small.problem(), barrier, model, out);
    return out;
}

Vector hessianTimes(SmallProblem& small, const Vector& direction, const Barrier& barrier = {}) {
    Vector out(direction.size(), std::numeric_limits<double>::quiet_NaN());
    calcGradient(GradientMode::hessianProduct, small.problem(), barrier, direction, out);
    return out;
}

double totalAt(SmallProblem& small, const Vector& model) {
    return optimiserObjective(calcObjective(small.problem(), {}, model), {}, small.options.multiplier);
}

Vector along(const Vector& model, double step, const Vector& direction) {
    Vector moved = model;
    for (std::size_t n = 0; n < moved.size(); ++n) {
        moved[n] += step * direction[n];
    }
    return moved;
}

// f(x + e p) - f(x) - 2 e g.p falls with e^2: over five decades its ratio to e^2 stays put until rounding takes over.
void expectSecondOrder(SmallProblem& small, double tolerance) {
    SCOPED_TRACE("seed " + std::to_string(small.options.seed));
    std::mt19937 random(small.options.seed + 100);
    const Vector model = small.arrays.model;
    const Vector direction = randomVector(model.size(), random);
    const double start = totalAt(small, model);
    const double slope = 2.0 * dot(gradientAt(small, model), direction);
    ASSERT_GT(std::abs(slope), 1e-3);
    double previous = 0.0;
    for (double step = 1e-1; step > 5e-5; step *= 0.1) {
        const double forward = totalAt(small, along(model, step, direction));
        const double ratio = (forward - start - step * slope) / (step * step);
        EXPECT_GT(std::abs(ratio), 1e-3);
        if (previous != 0.0) {
            const double rounding = 1e-15 * start / (step * step);
            EXPECT_NEAR(ratio, previous, tolerance * std::abs(previous) + 20.0 * rounding) << "step " << step;
        }
        previous = ratio;
    }
}

TEST(Gradient, DataPartIsHalfTheDerivative) {
    unsigned seed = 0;
    for (const bool fold : {true, false}) {
        for (const std::int32_t types : {1, 2, 3}) {
            SmallOptions options;
            options.multiplier = 0.0;
            options.unitWidths = true;
            options.fold = fold;
            options.nModelTypes = options.nMtx = options.nDataTypes = types;
            options.seed = ++seed;
            const auto small = makeSmallProblem(options);
            if (!fold) {  // the forward product weighs with file 1, the adjoint with its own file
                for (std::size_t n = 0; n < small->sensitivity.depthWeight.size(); ++n) {
                    small->sensitivity.depthWeight[n] = small->sensitivity.depthWeight[n % small->cells()];
                }
            }
            small->maskDatum(0, 4);
            expectSecondOrder(*small, 1e-6);
        }
    }
}

TEST(Gradient, AmplitudePartIsHalfTheDerivative) {
    SmallOptions options;
    options.multiplier = 0.0;
    options.amplitude = true;
    for (unsigned seed = 1; seed < 5; ++seed) {
        options.seed = seed;
        const auto small = makeSmallProblem(options);
        for (double& reference : small->obs.refData) {
            reference = dummyValue;
        }
        expectSecondOrder(*small, 0.3);
    }
}

TEST(Gradient, OfUnitWidthsAndUnfoldedWeightsIsHalfTheDerivativeOfAllTerms) {
    SmallOptions options;
    options.unitWidths = true;
    options.fold = false;
    for (const std::int32_t types : {1, 2}) {
        options.nModelTypes = types;
        const auto small = makeSmallProblem(options);
        expectSecondOrder(*small, 1e-6);
    }
}

TEST(Gradient, WithoutMultiplierIsTheDataPartAlone) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    const Vector plain = gradientAt(*small, small->arrays.model);
    for (float& weight : small->weights.wtS) {
        weight *= 100.0F;
    }
    for (double& reference : small->arrays.refModel) {
        reference += 10.0;
    }
    EXPECT_EQ(gradientAt(*small, small->arrays.model), plain);
    for (std::size_t n = 0; n < plain.size(); ++n) {
        EXPECT_EQ(plain[n], small->arrays.adjointSum[n] / 12.0);
    }
}

// The model parts by nested loops: differences divided once by the distance and not by W again. The differences take
// the W of the first file, the reference part that of the model type.
Vector modelPartByLoops(const SmallProblem& small, const Vector& x, bool withReference) {
    const MeshGeometry& mesh = small.mesh;
    Vector out(x.size(), 0.0);
    const auto last = static_cast<std::size_t>(small.options.nMtx) - 1;
    for (std::size_t t = 0; t < static_cast<std::size_t>(small.options.nModelTypes); ++t) {
        const auto weightOf = [&](std::size_t file, std::size_t cell) {
            return small.options.fold ? static_cast<double>(small.sensitivity.depthWeightOf(file)[cell]) : 1.0;
        };
        const auto pair = [&](std::size_t a, std::size_t b, float w, double first, double second) {
            const double d = static_cast<double>(w) *
                             (x[t * small.cells() + a] / weightOf(0, a) - x[t * small.cells() + b] / weightOf(0, b)) /
                             ((first + second) * 0.5);
            out[t * small.cells() + a] += d;
            out[t * small.cells() + b] -= d;
        };
        for (std::size_t j = 0; j < static_cast<std::size_t>(mesh.ny); ++j) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(mesh.nx); ++i) {
                for (std::size_t k = 0; k < static_cast<std::size_t>(mesh.nz); ++k) {
                    const std::size_t a = small.at(k, i, j);
                    const bool inPlay = k < static_cast<std::size_t>(mesh.nzl);
                    if (inPlay && j + 1 < static_cast<std::size_t>(mesh.ny)) {
                        pair(a, small.at(k, i, j + 1), small.weights.wtN[a], mesh.yWidth[j], mesh.yWidth[j + 1]);
                    }
                    if (inPlay && i + 1 < static_cast<std::size_t>(mesh.nx)) {
                        pair(a, small.at(k, i + 1, j), small.weights.wtE[a], mesh.xWidth[i], mesh.xWidth[i + 1]);
                    }
                    if (k + 1 < static_cast<std::size_t>(mesh.nz) && hasVerticalTerms(small.options.inversionStyle)) {
                        pair(a, small.at(k + 1, i, j), small.weights.wtZ[a], mesh.zWidth[k], mesh.zWidth[k + 1]);
                    }
                    const double reference = small.arrays.refModel[t * small.cells() + a];
                    const double target = withReference && reference > dummyValue ? reference : 0.0;
                    if (inPlay) {
                        out[t * small.cells() + a] += static_cast<double>(small.weights.wtS[a]) *
                                                      (x[t * small.cells() + a] - target) /
                                                      weightOf(std::min(t, last), a);
                    }
                }
            }
        }
    }
    return out;
}

TEST(Gradient, ModelPartsAreThoseOfPlainLoops) {
    unsigned seed = 0;
    for (const std::int32_t style : {0, 1, 2, 3, 4}) {
        for (const bool fold : {true, false}) {
            for (const std::int32_t types : {1, 2, 3}) {
                SmallOptions options;
                options.inversionStyle = InversionStyle{style};
                options.fold = fold;
                options.nModelTypes = types;
                options.nMtx = options.nDataTypes = std::min(types, 2);
                options.seed = ++seed;
                if (style == 3) {
                    options.cellsZXY = {6, 3, 4};
                    options.paddedZXY = {4, 4, 4};
                }
                SCOPED_TRACE("seed " + std::to_string(seed));
                const auto small = makeSmallProblem(options);
                small->arrays.refModel[3] = dummyValue;
                const Vector& x = small->arrays.model;
                for (const bool gradient : {true, false}) {
                    const Vector got = gradient ? gradientAt(*small, x) : hessianTimes(*small, x);
                    const Vector part = modelPartByLoops(*small, x, gradient);
                    for (std::size_t n = 0; n < got.size(); ++n) {
                        EXPECT_NEAR(got[n], 0.5 * part[n] + small->arrays.adjointSum[n] / 12.0, 1e-12);
                    }
                }
            }
        }
    }
}

TEST(Gradient, HessianProductIsLinearAndSymmetricWhereTheWeightIsNotFolded) {
    for (unsigned seed = 1; seed < 6; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        SmallOptions options;
        options.fold = false;
        options.seed = seed;
        const auto small = makeSmallProblem(options);
        std::fill(small->obs.refData.begin(), small->obs.refData.end(), 0.0);
        std::mt19937 random(seed);
        const Vector p = randomVector(small->modelSize(), random), q = randomVector(small->modelSize(), random);
        const Vector hp = hessianTimes(*small, p), hq = hessianTimes(*small, q);
        EXPECT_NEAR(dot(hp, q), dot(p, hq), 1e-11 * std::sqrt(dot(hp, hp) * dot(q, q)));
        EXPECT_GT(dot(hp, p), 0.0);
        const Vector both = hessianTimes(*small, along(along(Vector(p.size(), 0.0), 2.0, p), -3.0, q));
        for (std::size_t n = 0; n < both.size(); ++n) {
            EXPECT_NEAR(both[n], 2.0 * hp[n] - 3.0 * hq[n], 1e-11);
        }
    }
}

TEST(Gradient, HessianProductIsTheChangeOfTheGradient) {
    const auto small = makeSmallProblem();
    std::fill(small->obs.refData.begin(), small->obs.refData.end(), 0.0);
    std::mt19937 random(9);
    const Vector p = randomVector(small->modelSize(), random);
    const Vector before = gradientAt(*small, small->arrays.model);
    const Vector after = gradientAt(*small, along(small->arrays.model, 1.0, p));
    const Vector product = hessianTimes(*small, p);
    for (std::size_t n = 0; n < p.size(); ++n) {
        EXPECT_NEAR(after[n] - before[n], product[n], 1e-12);
    }
}

TEST(Gradient, HessianProductAddsTheReferenceDataAsAnyForwardRun) {
    const auto small = makeSmallProblem();
    const Vector zero(small->modelSize(), 0.0);
    EXPECT_GT(dot(hessianTimes(*small, zero), hessianTimes(*small, zero)), 0.0);
    std::fill(small->obs.refData.begin(), small->obs.refData.end(), 0.0);
    EXPECT_EQ(hessianTimes(*small, zero), zero);
}

TEST(Gradient, FixedCellsGetNothingInEitherMode) {
    const auto small = makeSmallProblem();
    small->bounds.fixedCell[5] = 1;
    small->bounds.fixedCell[17] = 2;
    for (const double multiplier : {0.0, 0.5}) {
        small->options.multiplier = multiplier;
        for (const Vector& got : {gradientAt(*small, small->arrays.model), hessianTimes(*small, small->arrays.model)}) {
            EXPECT_EQ(got[5], 0.0);
            EXPECT_EQ(got[17], 0.0);
            EXPECT_NE(got[6], 0.0);
        }
    }
}

TEST(Gradient, LogarithmicBarrierActsOnFixedCellsToo) {
    SmallOptions options;
    options.positivity = Positivity::strictlyPositive;
    const auto small = makeSmallProblem(options);
    small->bounds.fixedCell[5] = 1;
    Vector& x = small->arrays.model;
    for (double& value : x) {
        value = std::abs(value) + 0.01;
    }
    x[8] = 7.0;  // beyond the limit
    const Barrier barrier{0.2, 0.6};
    const Vector with = gradientAt(*small, x, barrier), without = gradientAt(*small, x);
    const Vector product = hessianTimes(*small, x, barrier), plain = hessianTimes(*small, x);
    for (std::size_t n = 0; n < x.size(); ++n) {
        const double share = std::min(1.0, x[n] / 0.6);
        EXPECT_NEAR(with[n], without[n] - 0.2 * 0.6 / share, 1e-12);
        EXPECT_NEAR(product[n], plain[n] + 0.2 * std::pow(0.6 / share, 2), 1e-9 * std::pow(0.6 / share, 2));
    }
    EXPECT_NEAR(with[5], -0.2 * 0.6 / std::min(1.0, x[5] / 0.6), 1e-12);
}

TEST(Gradient, LogarithmicBarrierReachesBelowTheCoveredLayers) {
    SmallOptions options;
    options.positivity = Positivity::strictlyPositive;
    const auto small = makeSmallProblem(options);
    small->mesh.nzl = 2;
    std::fill(small->arrays.model.begin(), small->arrays.model.end(), 1.0);
    const Vector with = gradientAt(*small, small->arrays.model, {0.2, 0.5});
    const Vector without = gradientAt(*small, small->arrays.model);
    for (std::size_t n = 0; n < with.size(); ++n) {
        EXPECT_NEAR(with[n], without[n] - 0.1, 1e-12);
    }
}

TEST(Gradient, RationalBarrierIsTheDerivativeOfItsTermButForTheCellCountOfTheSecond) {
    SmallOptions options;
    options.positivity = Positivity::positive;
    const auto small = makeSmallProblem(options);
    const Barrier barrier{0.3, 0.0};
    const Vector x = small->arrays.model;
    const Vector with = gradientAt(*small, x, barrier), without = gradientAt(*small, x);
    const Vector product = hessianTimes(*small, x, barrier), plain = hessianTimes(*small, x);
    const auto cells = static_cast<double>(small->cells());
    for (std::size_t n = 0; n < x.size(); ++n) {
        const double step = 1e-5;
        Vector up = x, down = x;
        up[n] += step;
        down[n] -= step;
        const double derivative = (calcBarrier(Positivity::positive, barrier, small->mesh, up) -
                                   calcBarrier(Positivity::positive, barrier, small->mesh, down)) /
                                  (2.0 * step);
        EXPECT_NEAR(with[n] - without[n], derivative, 1e-8);
        const auto slope = [&](double at) { return 2.0 * at * 0.3 / std::pow(at * at + 0.3, 2); };
        EXPECT_NEAR(with[n] - without[n], slope(x[n]) / cells, 1e-14);
        EXPECT_NEAR(product[n] - plain[n], (slope(x[n] + step) - slope(x[n] - step)) / (2.0 * step), 1e-6);
    }
}

TEST(Gradient, RationalBarrierActsOnFixedCellsToo) {
    for (const double multiplier : {0.0, 0.5}) {
        SmallOptions options;
        options.positivity = Positivity::positive;
        options.multiplier = multiplier;
        const auto small = makeSmallProblem(options);
        small->bounds.fixedCell[5] = 1;
        const double x = small->arrays.model[5] = 0.4, sum = x * x + 0.3;
        const auto cells = static_cast<double>(small->cells());
        const Vector with = gradientAt(*small, small->arrays.model, {0.3, 0.0});
        const Vector product = hessianTimes(*small, small->arrays.model, {0.3, 0.0});
        EXPECT_NEAR(with[5], 2.0 * x * 0.3 / (sum * sum) / cells, 1e-14);
        EXPECT_NEAR(product[5], 2.0 * 0.3 * (0.3 - 3.0 * x * x) / (sum * sum * sum), 1e-12);
    }
}

TEST(Gradient, SurfaceStylesHaveNoVerticalPairs) {
    for (const std::int32_t style : {0, 1, 2, 3, 4}) {
        SmallOptions options;
        options.inversionStyle = InversionStyle{style};
        options.cellsZXY = {4, 3, 5};
        const auto small = makeSmallProblem(options);
        const Vector before = gradientAt(*small, small->arrays.model);
        for (float& weight : small->weights.wtZ) {
            weight *= 2.0F;
        }
        EXPECT_EQ(gradientAt(*small, small->arrays.model) != before, style == 0 || style == 4) << style;
    }
}

TEST(Gradient, SingleLayerNeverReadsTheVerticalWeight) {
    SmallOptions options;
    options.cellsZXY = {1, 4, 5};
    options.paddedZXY = {1, 4, 8};
    const auto small = makeSmallProblem(options);
    std::fill(small->weights.wtZ.begin(), small->weights.wtZ.end(), std::numeric_limits<float>::quiet_NaN());
    for (const double value : gradientAt(*small, small->arrays.model)) {
        EXPECT_TRUE(std::isfinite(value));
    }
    for (const double value : hessianTimes(*small, small->arrays.model)) {
        EXPECT_TRUE(std::isfinite(value));
    }
    EXPECT_EQ(calcObjective(small->problem(), {}, small->arrays.model).smoothZ, 0.0);
}

TEST(Gradient, StyleFourIsStyleZero) {
    SmallOptions options;
    const auto standard = makeSmallProblem(options);
    options.inversionStyle = InversionStyle::edgePadding;
    const auto padded = makeSmallProblem(options);
    EXPECT_EQ(gradientAt(*standard, standard->arrays.model), gradientAt(*padded, padded->arrays.model));
    EXPECT_EQ(totalAt(*standard, standard->arrays.model), totalAt(*padded, padded->arrays.model));
}

TEST(Gradient, ReferencePartOfTheSecondModelTypeUsesItsOwnFilesWeight) {
    SmallOptions options;
    options.nModelTypes = options.nMtx = options.nDataTypes = 2;
    const auto small = makeSmallProblem(options);
    const Vector before = gradientAt(*small, small->arrays.model);
    for (std::size_t n = 0; n < small->cells(); ++n) {
        small->sensitivity.depthWeight[small->cells() + n] *= 3.0F;
    }
    const Vector after = gradientAt(*small, small->arrays.model);
    for (std::size_t n = 0; n < small->cells(); ++n) {
        EXPECT_EQ(before[n], after[n]);
        EXPECT_NE(before[small->cells() + n], after[small->cells() + n]);
    }
}

TEST(Gradient, DifferencesOfAllModelTypesUseTheFirstFilesWeight) {
    SmallOptions options;
    options.nModelTypes = options.nMtx = options.nDataTypes = 2;
    const auto small = makeSmallProblem(options);
    std::fill(small->weights.wtS.begin(), small->weights.wtS.end(), 0.0F);
    const Vector before = gradientAt(*small, small->arrays.model);
    for (std::size_t n = 0; n < small->cells(); ++n) {
        small->sensitivity.depthWeight[small->cells() + n] *= 3.0F;
    }
    EXPECT_EQ(gradientAt(*small, small->arrays.model), before);
}

TEST(Gradient, ResidualIsZeroWhereDatumOrPredictionIsMissing) {
    const auto small = makeSmallProblem();
    calcObjective(small->problem(), {}, small->arrays.model);
    small->maskDatum(0, 2);
    small->obs.predData[7] = dummyValue;
    residualRows(small->problem());
    for (std::size_t n = 0; n < 12; ++n) {
        EXPECT_EQ(small->obs.obsWork1[n], n == 2 || n == 7 ? 0.0 : small->obs.predData[n] - small->obs.obsData[n]);
    }
}

TEST(Gradient, AmplitudeRowsOfAZeroPrediction) {
    for (const std::int32_t components : {1, 3}) {
        SmallOptions options;
        options.amplitude = true;
        const auto small = makeSmallProblem(options);
        calcObjective(small->problem(), {}, small->arrays.model);
        const Vector rows = small->sensitivity.productResponse;
        small->obs.predData[5] = 0.0;
        if (components == 3) {
            small->obs.nDataTypes = 3;
            for (auto* data : {&small->obs.obsData, &small->obs.predData, &small->obs.obsWork1}) {
                data->resize(36, 0.25);
            }
        }
        residualRows(small->problem());
        const double residual = -small->obs.obsData[5];
        const Vector& now = small->sensitivity.productResponse;
        EXPECT_EQ(now[5], components == 3 ? residual : 0.0);
        EXPECT_EQ(now[12 + 5], components == 3 ? residual : 0.0);
        EXPECT_EQ(now[24 + 5], residual);
        for (std::size_t part = 0; part < 3; ++part) {
            EXPECT_EQ(now[12 * part + 4],
                      (small->obs.predData[4] - small->obs.obsData[4]) * rows[12 * part + 4] / small->obs.predData[4]);
        }
    }
}

TEST(Gradient, ResidualRowOfASharedProductIsThatOfItsFirstDataType) {
    SmallOptions options;
    options.nDataTypes = 2;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->products = {};
    small->products.products.push_back({0, 0, 1});
    small->products.terms[0].push_back({0, 0, 0, 2.0});
    small->products.terms[1].push_back({0, 0, 0, 0.5});
    const Vector got = gradientAt(*small, small->arrays.model);
    Vector adjoint(small->cells());
    transposeProduct(small->sensitivity, small->mesh, std::span<const double>(small->obs.obsWork1).subspan(12, 12),
                     adjoint, 0, small->obs.obsStd, small->timers);
    for (std::size_t n = 0; n < got.size(); ++n) {
        EXPECT_NEAR(got[n], 2.5 * adjoint[n] / 12.0, 1e-13);
    }
}

TEST(Gradient, TermsThatAreIgnoredAddNothing) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    const Vector before = gradientAt(*small, small->arrays.model);
    small->products.terms[0].push_back({-1, 0, -1, 3.0});
    small->products.terms[0].push_back({0, 0, 0, 0.0});
    EXPECT_EQ(gradientAt(*small, small->arrays.model), before);
}

TEST(Gradient, ResidualsAreSpreadOverTheWindowsOfTheirStations) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->setLines(2, 2.0F);
    small->maskDatum(0, 8);
    const Vector got = gradientAt(*small, small->arrays.model);
    // Windows of three stations, weights of a quarter; the ends of the lines have no window, station 9 has no datum.
    Vector spread(12, 0.0);
    for (const std::size_t line : {std::size_t{0}, std::size_t{6}}) {
        for (std::size_t station = line + 1; station < line + 5; ++station) {
            for (std::size_t n = station - 1; n < station + 2; ++n) {
                if (n != 8) {
                    spread[station] += 0.25 * (small->obs.predData[n] - small->obs.obsData[n]);
                }
            }
        }
    }
    Vector adjoint(small->cells());
    transposeProduct(small->sensitivity, small->mesh, spread, adjoint, 0, small->obs.obsStd, small->timers);
    for (std::size_t n = 0; n < got.size(); ++n) {
        EXPECT_NEAR(got[n], adjoint[n] / 12.0, 1e-13);
    }
}

TEST(Gradient, LineTooShortForTheIntervalLeavesTheMisfit) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->setLines(12, 1.0F);  // lines of one station
    const ObjectiveTerms terms = calcObjective(small->problem(), {}, small->arrays.model);
    EXPECT_EQ(terms.misfit, 0.0);
    for (const double value : small->obs.predData) {
        EXPECT_FALSE(isValid(value));
    }
    for (const double value : gradientAt(*small, small->arrays.model)) {
        EXPECT_EQ(value, 0.0);
    }
}

TEST(Gradient, LineOfOneStationLeavesTheMisfitToTheOtherLine) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->setLines(1, 2.0F);
    ObsSet& obs = small->obs;
    obs.nLines = 2;
    obs.maxLineData = 11;
    obs.lineFirstLast = {{1, 1}, {2, 12}};
    obs.lineCount = {1, 11};
    obs.lineName.push_back(obs.lineName[0]);
    std::fill(obs.dataLine.begin() + 1, obs.dataLine.end(), 2);
    small->lines.lineTime.assign(22, 0.0);
    for (std::size_t n = 0; n < 11; ++n) {
        small->lines.lineTime[11 + n] = static_cast<double>(n);
    }
    small->lines.windowRange.assign(22, {});
    small->lines.windowWeight.assign(3 * 22, 0.25);
    const double misfit = calcObjective(small->problem(), {}, small->arrays.model).misfit;
    EXPECT_EQ(obs.predData[0], dummyValue);
    double sum = 0.0;
    for (std::size_t n = 1; n < 12; ++n) {
        if (isValid(obs.predData[n])) {
            sum += (obs.predData[n] - obs.obsData[n]) * (obs.predData[n] - obs.obsData[n]);
        }
    }
    EXPECT_GT(sum, 0.0);
    EXPECT_NEAR(misfit, sum / 12.0, 1e-12 * sum);
    obs.obsData[0] += 100.0;
    EXPECT_EQ(calcObjective(small->problem(), {}, small->arrays.model).misfit, misfit);
    residualRows(small->problem());
    EXPECT_EQ(obs.obsWork1[0], 0.0);
}

TEST(Gradient, RunWithoutProductsHasNoDataPart) {
    SmallOptions options;
    options.multiplier = 0.0;
    const auto small = makeSmallProblem(options);
    small->setLines(2, 2.0F);
    small->products = {};
    small->products.terms[0].push_back({0, 0, -1, 0.0});
    small->sensitivity.productResponse.clear();
    small->sensitivity.productResponse.shrink_to_fit();
    for (const double value : gradientAt(*small, small->arrays.model)) {
        EXPECT_EQ(value, 0.0);
    }
}

TEST(Gradient, TimesItselfAndItsSmoothness) {
    const auto small = makeSmallProblem();
    for (int n = 0; n < 200; ++n) {
        gradientAt(*small, small->arrays.model);
    }
    EXPECT_GT(small->timers.gradientInside, small->timers.smoothness);
    EXPECT_GT(small->timers.smoothness, 0.0);
    EXPECT_EQ(small->timers.calcGradient, 0.0);
}

}  // namespace
}  // namespace voxlith
