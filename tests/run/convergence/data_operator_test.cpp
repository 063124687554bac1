#include "run/convergence/data_operator.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/messages.h"
#include "inversion/objective.h"
#include "support/dot.h"
#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

Vector predictedAt(SmallProblem& small, const Vector& model) {
    calcObjective(small.problem(), {}, model);
    return small.obs.predData;
}

// J p . q = p . J'q
void expectAdjoint(SmallProblem& small, DataOperator& data) {
    std::mt19937 random(7);
    const InversionProblem problem = small.problem();
    calcObjective(problem, {}, small.arrays.model);
    linearise(problem, data);
    const Vector p = randomVector(small.modelSize(), random), q = randomVector(small.dataSize(), random);
    Vector jp(q.size()), jq(p.size());
    applyJacobian(problem, data, p, jp);
    applyTransposedJacobian(problem, data, q, jq);
    const double scale = std::sqrt(dot(jp, jp) * dot(q, q));
    ASSERT_GT(scale, 1e-6);
    EXPECT_NEAR(dot(jp, q), dot(p, jq), 1e-12 * scale);
}

// predicted(x + e p) - predicted(x) - e J p falls with e^2, or is rounding where the data are linear.
void expectDerivative(SmallProblem& small, DataOperator& data) {
    std::mt19937 random(11);
    const Vector model = small.arrays.model, p = randomVector(model.size(), random);
    Vector jp(small.dataSize());
    const Vector start = predictedAt(small, model);
    linearise(small.problem(), data);
    applyJacobian(small.problem(), data, p, jp);
    double previous = 0.0;
    for (const double e : {1e-2, 1e-3, 1e-4}) {
        Vector moved = model;
        for (std::size_t n = 0; n < moved.size(); ++n) {
            moved[n] += e * p[n];
        }
        const Vector found = predictedAt(small, moved);
        double error = 0.0;
        for (std::size_t n = 0; n < found.size(); ++n) {
            error = std::max(error, std::abs(found[n] - start[n] - e * jp[n]));
        }
        if (previous > 0.0 && error > 1e-11) {
            EXPECT_NEAR(previous / error, 100.0, 15.0);
        }
        previous = error;
    }
    EXPECT_LT(previous, 1e-6);
}

void expectExact(const SmallOptions& options) {
    SmallProblem small(options);
    DataOperator data = makeDataOperator(small.problem());
    expectAdjoint(small, data);
    expectDerivative(small, data);
}

TEST(DataOperator, IsExactForOneFile) {
    for (const bool fold : {true, false}) {
        SmallOptions options;
        options.fold = fold;
        expectExact(options);
    }
}

TEST(DataOperator, IsExactForSeveralFilesAndModels) {
    for (const bool fold : {true, false}) {
        SmallOptions options;
        options.fold = fold;
        options.nDataTypes = options.nMtx = 2;
        options.nModelTypes = 2;
        expectExact(options);
    }
}

TEST(DataOperator, IsExactForAProductOfTwoComponents) {
    SmallOptions options;
    options.nDataTypes = 2;
    options.nMtx = 1;  // both components see the same file and model
    SmallProblem small(options);
    ASSERT_EQ(small.products.products.size(), 1u);
    DataOperator data = makeDataOperator(small.problem());
    data.componentScale[1] = 3.0;
    expectAdjoint(small, data);
    data.componentScale[1] = 1.0;
    expectDerivative(small, data);
}

TEST(DataOperator, IsExactForAmplitudes) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        SmallOptions options;
        options.amplitude = true;
        options.seed = seed;
        SmallProblem small(options);
        std::fill(small.obs.refData.begin(), small.obs.refData.end(), 0.0);
        DataOperator data = makeDataOperator(small.problem());
        expectAdjoint(small, data);
        expectDerivative(small, data);
    }
}

TEST(DataOperator, IsExactForMeansAlongLines) {
    SmallOptions options;
    options.nData = 12;
    SmallProblem small(options);
    small.setLines(2, 1.5F);
    small.obs.lineFirstLast.resize(5);  // the table is longer than the number of lines
    DataOperator data = makeDataOperator(small.problem());
    ASSERT_FALSE(data.means.rowStart.empty());
    expectAdjoint(small, data);
    expectDerivative(small, data);
}

TEST(DataOperator, LeavesMaskedDataOut) {
    SmallProblem small(SmallOptions{});
    small.maskDatum(0, 4);
    DataOperator data = makeDataOperator(small.problem());
    calcObjective(small.problem(), {}, small.arrays.model);
    const double misfit = linearise(small.problem(), data);
    EXPECT_EQ(data.validData[4], 0.0);
    EXPECT_NEAR(misfit, calcObjective(small.problem(), {}, small.arrays.model).misfit, 1e-12 * misfit);
    expectAdjoint(small, data);
}

TEST(DataOperator, RefusesAmplitudesBesideOtherComponents) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = 2;
    SmallProblem small(options);
    small.products.isAmplitude[1] = true;
    EXPECT_THROW(makeDataOperator(small.problem()), RunError);
}

}  // namespace
}  // namespace voxlith
