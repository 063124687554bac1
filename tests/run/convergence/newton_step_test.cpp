#include "run/convergence/newton_step.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <thread>

#include "run/convergence/interior_point.h"
#include "run/convergence/minimum_distance.h"
#include "run/stop_signal.h"
#include "support/dot.h"
#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

double objectiveAt(SmallProblem& small, const Vector& model) {
    return reportedTotal(calcObjective(small.problem(), {}, model), small.options.multiplier);
}

// phi(x + e p) - phi(x) - 2 e g.p falls with e^2.
void expectSecondOrder(const SmallOptions& options) {
    SmallProblem small(options);
    small.arrays.refModel[2] = dummyValue;
    NewtonWork work = prepareNewton(small.problem());
    std::mt19937 random(options.seed + 100);
    const Vector model = small.arrays.model, p = randomVector(model.size(), random);
    evaluateObjective(small.problem(), work, model);
    evaluateGradient(small.problem(), work, model);
    const double start = objectiveAt(small, model), slope = 2.0 * dot(work.gradient, p);
    double previous = 0.0;
    for (const double e : {1e-2, 1e-3, 1e-4, 1e-5}) {
        Vector moved = model;
        for (std::size_t n = 0; n < moved.size(); ++n) {
            moved[n] += e * p[n];
        }
        const double error = std::abs(objectiveAt(small, moved) - start - e * slope);
        if (previous > 0.0 && error > 1e-11) {
            EXPECT_NEAR(previous / error, 100.0, 10.0) << "step " << e;
        }
        previous = error;
    }
    EXPECT_LT(previous, 1e-7 * start);
}

TEST(NewtonStep, GradientIsExact) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        SmallOptions options;
        options.seed = seed;
        for (const bool fold : {true, false}) {
            options.fold = fold;
            expectSecondOrder(options);
            SmallOptions several = options;
            several.nDataTypes = several.nMtx = several.nModelTypes = 2;
            expectSecondOrder(several);
        }
        SmallOptions amplitude = options;
        amplitude.amplitude = true;
        expectSecondOrder(amplitude);
        SmallOptions surface = options;
        surface.inversionStyle = InversionStyle::surfaceAndApparentDensity;
        expectSecondOrder(surface);
    }
}

void setBounds(SmallProblem& small, double lower, double upper) {
    std::fill(small.bounds.boundType.begin(), small.bounds.boundType.end(), boundBoth);
    std::fill(small.bounds.lowerBound.begin(), small.bounds.lowerBound.end(), lower);
    std::fill(small.bounds.upperBound.begin(), small.bounds.upperBound.end(), upper);
}

ScaledObjective minimise(SmallProblem& small, NewtonWork& work, int mostSteps = 100) {
    ScaledObjective current = evaluateObjective(small.problem(), work, small.arrays.model);
    for (int step = 0; step < mostSteps; ++step) {
        const NewtonResult result = takeNewtonStep(small.problem(), work, current, {{1e-3, 200}});
        current = result.reached;
        if (!result.improved || result.remaining < 1e-15 * current.objective) {
            break;
        }
    }
    return current;
}

// Another method: cell by cell to the minimum along its axis (a parabola through three values), within the bounds.
Vector minimiseByCoordinates(SmallProblem& small, double lower, double upper) {
    Vector model = small.arrays.model;
    for (double& value : model) {
        value = std::min(std::max(value, lower), upper);
    }
    // The quadratic in full: phi = c + b'x + x'A x, from differences of values, which are exact for a quadratic.
    const std::size_t size = model.size();
    const Vector zero(size, 0.0);
    const double c = objectiveAt(small, zero);
    Vector b(size);
    std::vector<Vector> a(size, Vector(size));
    const auto at = [&](std::size_t i, double s, std::size_t j, double t) {
        Vector x = zero;
        x[i] += s;
        x[j] += t;
        return objectiveAt(small, x);
    };
    for (std::size_t i = 0; i < size; ++i) {
        const double plus = at(i, 1.0, i, 0.0), minus = at(i, -1.0, i, 0.0);
        b[i] = (plus - minus) / 2.0;
        a[i][i] = (plus + minus) / 2.0 - c;
    }
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            a[i][j] = a[j][i] = (at(i, 1.0, j, 1.0) - c - b[i] - b[j] - a[i][i] - a[j][j]) / 2.0;
        }
    }
    for (int sweep = 0; sweep < 20000; ++sweep) {
        double largest = 0.0;
        for (std::size_t i = 0; i < size; ++i) {
            const double slope = b[i] + 2.0 * dot(a[i], model);
            const double next = std::min(std::max(model[i] - slope / (2.0 * a[i][i]), lower), upper);
            largest = std::max(largest, std::abs(next - model[i]));
            model[i] = next;
        }
        if (largest < 1e-13) {
            break;
        }
    }
    return model;
}

TEST(NewtonStep, FindsTheBoundedMinimumOfAnotherMethod) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        SmallOptions options;
        options.seed = seed;
        options.multiplier = 0.05;
        SmallProblem small(options);
        setBounds(small, -0.2, 0.3);
        const Vector expected = minimiseByCoordinates(small, -0.2, 0.3);
        NewtonWork work = prepareNewton(small.problem());
        minimise(small, work);
        int atBounds = 0;
        for (std::size_t n = 0; n < expected.size(); ++n) {
            EXPECT_NEAR(small.arrays.model[n], expected[n], 1e-6);
            EXPECT_GE(small.arrays.model[n], -0.2);
            EXPECT_LE(small.arrays.model[n], 0.3);
            atBounds += small.arrays.model[n] <= -0.2 || small.arrays.model[n] >= 0.3 ? 1 : 0;
        }
        EXPECT_GT(atBounds, 3);
    }
}

TEST(NewtonStep, NeedsOneStepWithoutBoundsAndKnowsHowNearItIs) {
    for (const double accuracy : {1e-2, 1e-4, 1e-8}) {
        SmallProblem small(SmallOptions{});
        NewtonWork work = prepareNewton(small.problem());
        const ScaledObjective start = evaluateObjective(small.problem(), work, small.arrays.model);
        const NewtonResult result = takeNewtonStep(small.problem(), work, start, {{}, {accuracy}});
        EXPECT_LE(result.remaining, accuracy * result.reached.objective);
        const std::int64_t products = work.data.productCount;
        evaluateGradient(small.problem(), work, small.arrays.model);
        EXPECT_EQ(work.data.productCount, products);
        const ScaledObjective minimum = minimise(small, work);
        EXPECT_LE(result.reached.objective - minimum.objective, accuracy * minimum.objective);
    }
}

TEST(NewtonStep, EndsAtTheSameModelFromAnyStart) {
    SmallProblem small(SmallOptions{});
    setBounds(small, 0.0, 0.5);
    Vector first;
    for (unsigned seed = 1; seed <= 7; ++seed) {
        std::mt19937 random(seed);
        small.arrays.model = randomVector(small.modelSize(), random);
        NewtonWork work = prepareNewton(small.problem());
        minimise(small, work);
        first = first.empty() ? small.arrays.model : first;
        for (std::size_t n = 0; n < first.size(); ++n) {
            EXPECT_NEAR(small.arrays.model[n], first[n], 1e-7);
        }
    }
}

TEST(NewtonStep, LeavesFixedCellsAsTheyAre) {
    SmallProblem small(SmallOptions{});
    setBounds(small, -0.1, 0.1);
    small.bounds.fixedCell[5] = 1;
    small.arrays.model[5] = 0.7;
    NewtonWork work = prepareNewton(small.problem());
    minimise(small, work);
    EXPECT_EQ(small.arrays.model[5], 0.7);
}

// Without bounds (0), with them, and with folded depth weights or not; both are limits far from the minimum and close
// to it.
void expectBound(double bound, bool fold) {
    SmallOptions options;
    options.fold = fold;
    options.multiplier = 0.05;
    SmallProblem small(options);
    if (bound > 0.0) {
        setBounds(small, -bound, bound);
    }
    NewtonWork work = prepareNewton(small.problem());
    const ScaledObjective start = evaluateObjective(small.problem(), work, small.arrays.model);
    evaluateGradient(small.problem(), work, small.arrays.model);
    const double boundAtStart = largestPossibleDecrease(small.problem(), work);
    const ScaledObjective end = minimise(small, work);
    EXPECT_GE(boundAtStart, start.objective - end.objective);
    evaluateGradient(small.problem(), work, small.arrays.model);
    EXPECT_LT(largestPossibleDecrease(small.problem(), work), 1e-6 * end.objective);
}

TEST(NewtonStep, BoundsTheDistanceFromTheMinimum) {
    for (const double bound : {0.0, 0.2, 0.5}) {
        expectBound(bound, true);
        expectBound(bound, false);
    }
    SmallProblem small(SmallOptions{});
    std::fill(small.weights.wtS.begin(), small.weights.wtS.end(), 0.0F);
    NewtonWork work = prepareNewton(small.problem());
    evaluateObjective(small.problem(), work, small.arrays.model);
    evaluateGradient(small.problem(), work, small.arrays.model);
    EXPECT_FALSE(std::isfinite(largestPossibleDecrease(small.problem(), work)));
}

TEST(NewtonStep, PreconditionerFollowsTheScalesOfComponents) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = options.nModelTypes = 2;
    SmallProblem small(options);
    NewtonWork work = prepareNewton(small.problem());
    const auto diagonalWith = [&](double first, double second) {
        setComponentScales(small.problem(), Vector{first, second}, work);
        return work.dataDiagonal;
    };
    const Vector ofFirst = diagonalWith(1.0, 0.0), ofSecond = diagonalWith(0.0, 1.0), scaled = diagonalWith(1.0, 0.5);
    for (std::size_t n = 0; n < scaled.size(); ++n) {
        EXPECT_NEAR(scaled[n], ofFirst[n] + 0.25 * ofSecond[n], 1e-12 * scaled[n]);
    }
    EXPECT_GT(dot(ofSecond, ofSecond), 0.0);
}

// Small standard deviations and two bounds: the projected step gains next to nothing, and the interior point goes on.
class SlowProblem : public SmallProblem {
public:
    SlowProblem() : SmallProblem(slowOptions()) { setBounds(*this, 0.0, 0.05); }

private:
    static SmallOptions slowOptions() {
        SmallOptions slow;
        slow.cellsZXY = {6, 8, 9};
        slow.paddedZXY = {8, 8, 16};
        slow.nData = 60;
        slow.multiplier = 1e-6;
        return slow;
    }
};

TEST(InteriorPoint, SolutionIsTheMinimumWithinTheBounds) {
    SlowProblem small;
    NewtonWork work = prepareNewton(small.problem());
    const ScaledObjective start = evaluateObjective(small.problem(), work, small.arrays.model);
    evaluateGradient(small.problem(), work, small.arrays.model);
    std::fill(work.isFree.begin(), work.isFree.end(), 1);
    ASSERT_TRUE(hasBounds(work));
    const InteriorSolution solution = solveWithinBounds(small.problem(), work, start.objective, 1e-9);
    ASSERT_FALSE(solution.stopped);
    Vector end = small.arrays.model;
    for (std::size_t n = 0; n < end.size(); ++n) {
        end[n] += work.step[n];
        EXPECT_GE(end[n], -1e-15);
        EXPECT_LE(end[n], 0.05 + 1e-15);
    }
    const double reached = objectiveAt(small, end);
    const ScaledObjective minimum = minimise(small, work, 300);
    EXPECT_LE(reached - minimum.objective, 1e-8 * start.objective);
    EXPECT_LE(reached - minimum.objective, 2.0 * solution.remaining);
}

// In a process of its own: a step that a signal meets somewhere ends as if it had never begun, or is complete.
[[noreturn]] void stopDuringStep(double share) {
    SlowProblem small;
    NewtonWork work = prepareNewton(small.problem());
    const Vector start = small.arrays.model;
    const ScaledObjective current = evaluateObjective(small.problem(), work, start);
    const std::vector<double> predicted(small.obs.predData.begin(), small.obs.predData.end());
    const NewtonLimits limits{{1e-3, 200}, {1e-12}};
    const auto begin = std::chrono::steady_clock::now();
    const NewtonResult whole = takeNewtonStep(small.problem(), work, current, limits);
    const auto duration = std::chrono::steady_clock::now() - begin;
    const Vector end = small.arrays.model;
    small.arrays.model = start;
    evaluateObjective(small.problem(), work, start);
    keepIterations();
    const auto send = [&] {
        std::this_thread::sleep_for(duration * share);
        ::kill(::getpid(), SIGTERM);
    };
    std::thread sender;
    if (share > 0.0) {
        sender = std::thread(send);
    } else {
        std::raise(SIGTERM);
    }
    const NewtonResult result = takeNewtonStep(small.problem(), work, current, limits);
    if (sender.joinable()) {
        sender.join();
    }
    const bool same = result.stopped ? small.arrays.model == start &&
                                           std::equal(predicted.begin(), predicted.end(), small.obs.predData.begin()) &&
                                           result.reached.objective == current.objective && !result.improved
                                     : small.arrays.model == end && result.reached.objective == whole.reached.objective;
    std::_Exit(!same ? 1 : result.stopped ? 2 : 3);
}

TEST(NewtonStep, ASignalLeavesNoTraceOfAnUnfinishedStep) {
    ::testing::FLAGS_gtest_death_test_style = "fast";
    const auto stoppedOrComplete = [](int status) {
        return WIFEXITED(status) && (WEXITSTATUS(status) == 2 || WEXITSTATUS(status) == 3);
    };
    EXPECT_EXIT(stopDuringStep(0.0), ::testing::ExitedWithCode(2), "");
    for (const double share : {0.1, 0.25, 0.4, 0.55, 0.7, 0.85}) {
        EXPECT_EXIT(stopDuringStep(share), stoppedOrComplete, "") << share;
    }
}

TEST(NewtonStep, SumsDoNotDependOnTheirLengthBeyondRounding) {
    std::mt19937 random(2);
    const Vector a = randomVector(10007, random), b = randomVector(10007, random);
    Vector sums(4);
    EXPECT_NEAR(blockedProduct(a, b, sums), dot(a, b), 1e-11);
}

}  // namespace
}  // namespace voxlith
