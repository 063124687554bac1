// L-BFGS-B compared with dense matrices: the minimiser of its quadratic model in every iteration. The matrix is the
// BFGS formula applied pair by pair, the Cauchy point is found by following the projected path, the subspace step by a
// dense solution. Guards the ring of pairs beyond m iterations, the subspace table that variables enter and leave, and
// the table after an iteration without free variables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/lbfgsb_state.h"
#include "support/dot.h"
#include "support/optimiser_problem.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::OptimiserRun;
using Vector = std::vector<double>;
using Matrix = std::vector<Vector>;
using Function = std::function<double(const Vector&, Vector&)>;

Vector times(const Matrix& matrix, const Vector& v) {
    Vector result;
    for (const Vector& row : matrix) {
        result.push_back(dot(row, v));
    }
    return result;
}

// Gaussian elimination with exchange of rows.
Vector solve(Matrix matrix, Vector b) {
    const std::size_t n = b.size();
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t pivot = k;
        for (std::size_t i = k + 1; i < n; ++i) {
            if (std::abs(matrix[i][k]) > std::abs(matrix[pivot][k])) {
                pivot = i;
            }
        }
        std::swap(matrix[k], matrix[pivot]);
        std::swap(b[k], b[pivot]);
        for (std::size_t i = k + 1; i < n; ++i) {
            const double factor = matrix[i][k] / matrix[k][k];
            for (std::size_t j = k; j < n; ++j) {
                matrix[i][j] -= factor * matrix[k][j];
            }
            b[i] -= factor * b[k];
        }
    }
    for (std::size_t k = n; k-- > 0;) {
        for (std::size_t j = k + 1; j < n; ++j) {
            b[k] -= matrix[k][j] * b[j];
        }
        b[k] /= matrix[k][k];
    }
    return b;
}

struct Pair {
    Vector s, y;
};

Matrix modelMatrix(const std::vector<Pair>& pairs, std::size_t n) {
    const double theta =
        pairs.empty() ? 1.0 : dot(pairs.back().y, pairs.back().y) / dot(pairs.back().s, pairs.back().y);
    Matrix matrix(n, Vector(n, 0.0));
    for (std::size_t i = 0; i < n; ++i) {
        matrix[i][i] = theta;
    }
    for (const Pair& pair : pairs) {
        const Vector image = times(matrix, pair.s);
        const double old = dot(pair.s, image), curvature = dot(pair.s, pair.y);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                matrix[i][j] += pair.y[i] * pair.y[j] / curvature - image[i] * image[j] / old;
            }
        }
    }
    return matrix;
}

struct ModelPoint {
    Vector z;
    std::vector<bool> free;  // at the Cauchy point
};

bool isHeld(const OptimiserRun& run, std::size_t i) {
    return run.fixedFlag[i] != 0 || (run.nbd[i] == 3 && run.u[i] <= run.l[i]);
}

// A free variable is within its bounds, to the bit.
bool isInside(const OptimiserRun& run, std::size_t i) {
    return run.fixedFlag[i] != 0 || ((!hasLowerBound(run.nbd[i]) || run.x[i] >= run.l[i]) &&
                                     (!hasUpperBound(run.nbd[i]) || run.x[i] <= run.u[i]));
}

// The Cauchy point: along x - t g, each variable until it meets a bound.
ModelPoint cauchyPoint(const OptimiserRun& run, const Vector& x, const Vector& g, const Matrix& matrix) {
    const std::size_t n = x.size();
    ModelPoint cauchy{x, std::vector<bool>(n, true)};
    Vector meets(n, std::numeric_limits<double>::infinity()), direction(n, 0.0), travel(n, 0.0);
    for (std::size_t i = 0; i < n; ++i) {
        if (g[i] > 0.0 && hasLowerBound(run.nbd[i])) {
            meets[i] = (x[i] - run.l[i]) / g[i];
        }
        if (g[i] < 0.0 && hasUpperBound(run.nbd[i])) {
            meets[i] = (x[i] - run.u[i]) / g[i];
        }
        const bool atBound = (hasLowerBound(run.nbd[i]) && x[i] <= run.l[i] && g[i] >= 0.0) ||
                             (hasUpperBound(run.nbd[i]) && x[i] >= run.u[i] && g[i] <= 0.0);
        cauchy.free[i] = !isHeld(run, i) && !atBound;
        direction[i] = cauchy.free[i] ? -g[i] : 0.0;
    }
    for (double time = 0.0;;) {
        std::size_t next = n;
        for (std::size_t i = 0; i < n; ++i) {
            if (direction[i] != 0.0 && (next == n || meets[i] < meets[next])) {
                next = i;
            }
        }
        if (next == n) {
            return cauchy;
        }
        const double slope = dot(g, direction) + dot(times(matrix, travel), direction);
        const double length = -slope / dot(times(matrix, direction), direction);
        const double step = std::max(0.0, std::min(length, meets[next] - time));
        for (std::size_t i = 0; i < n; ++i) {
            travel[i] += step * direction[i];
        }
        const bool stops = length < meets[next] - time;
        if (!stops) {
            travel[next] = (direction[next] > 0.0 ? run.u[next] : run.l[next]) - x[next];
            direction[next] = 0.0;
            cauchy.free[next] = false;
            time = meets[next];
        }
        for (std::size_t i = 0; i < n; ++i) {
            cauchy.z[i] = x[i] + travel[i];
        }
        if (stops) {
            return cauchy;
        }
    }
}

// The point at which the model is least over the free variables, truncated at the box.
ModelPoint modelPoint(const OptimiserRun& run, const Vector& x, const Vector& g, const std::vector<Pair>& pairs) {
    const std::size_t n = x.size();
    const Matrix matrix = modelMatrix(pairs, n);
    const bool constrained =
        std::any_of(run.nbd.begin(), run.nbd.end(), [](std::int32_t code) { return code != 0; }) ||
        std::any_of(run.fixedFlag.begin(), run.fixedFlag.end(), [](auto flag) { return flag != 0; });
    ModelPoint point{x, std::vector<bool>(n, true)};
    if (constrained || pairs.empty()) {
        point = cauchyPoint(run, x, g, matrix);
    }
    if (pairs.empty()) {
        return point;
    }
    Vector travel(n);
    for (std::size_t i = 0; i < n; ++i) {
        travel[i] = point.z[i] - x[i];
    }
    const Vector image = times(matrix, travel);
    std::vector<std::size_t> free;
    for (std::size_t i = 0; i < n; ++i) {
        if (point.free[i]) {
            free.push_back(i);
        }
    }
    Matrix reduced(free.size(), Vector(free.size()));
    Vector residual(free.size());
    for (std::size_t i = 0; i < free.size(); ++i) {
        residual[i] = -g[free[i]] - image[free[i]];
        for (std::size_t j = 0; j < free.size(); ++j) {
            reduced[i][j] = matrix[free[i]][free[j]];
        }
    }
    const Vector step = solve(reduced, residual);
    double factor = 1.0;
    for (std::size_t i = 0; i < free.size(); ++i) {
        const std::size_t variable = free[i];
        if (step[i] < 0.0 && hasLowerBound(run.nbd[variable])) {
            factor = std::min(factor, (run.l[variable] - point.z[variable]) / step[i]);
        }
        if (step[i] > 0.0 && hasUpperBound(run.nbd[variable])) {
            factor = std::min(factor, (run.u[variable] - point.z[variable]) / step[i]);
        }
    }
    for (std::size_t i = 0; i < free.size(); ++i) {
        point.z[free[i]] += factor * step[i];
    }
    return point;
}

// Situations that occurred in the runs.
struct Seen {
    int iterations = 0;
    int beyondMemory = 0;  // iterations with more updates than pairs
    int exchanges = 0;     // iterations in which a variable entered the free set and another left it
    int drops = 0;         // memories that were dropped
    int freeAgain = 0;     // iterations with free variables after one without, with pairs in memory
};

// Follows a run, and at each new search compares its point z, whose position in `wa` is in the layout.
void compareWithDenseModel(OptimiserRun& run, const Function& function, double smallestGradient, Seen& seen) {
    const std::size_t n = run.x.size();
    std::vector<Pair> pairs;
    std::vector<bool> freeBefore;
    Vector x, g;
    int updates = 0;
    run.callWith("START");
    run.f = function(run.x, run.g);
    for (int iteration = 0; iteration < 30; ++iteration) {
        if (iteration > 0) {
            Pair pair{run.x, run.g};
            for (std::size_t i = 0; i < n; ++i) {
                pair.s[i] -= x[i];
                pair.y[i] -= g[i];
            }
            if (dot(pair.s, pair.y) > 1.0e-12 * -dot(g, pair.s)) {
                pairs.push_back(pair);
                ++updates;
            }
            if (pairs.size() > static_cast<std::size_t>(run.m)) {
                pairs.erase(pairs.begin());
            }
        }
        x = run.x;
        g = run.g;
        const BoxProblem problem{run.n, run.m, run.l, run.u, run.nbd, run.fixedFlag, run.maxStep};
        if (projectedGradientNorm(problem, x, g) < smallestGradient) {
            return;
        }
        run.call();
        ASSERT_EQ(run.word(), "FG_LNSRCH");
        const LbfgsbSavedArrays saved{run.state.csave, run.state.lsave, run.state.isave, run.state.dsave};
        if (!pairs.empty() && loadState(saved).corrections == 0) {
            pairs.clear();  // a matrix was singular by rounding
            ++seen.drops;
        }
        const ModelPoint expected = modelPoint(run, x, g, pairs);
        // The first search does not begin with the whole step; later ones have x there.
        const double* const z = iteration > 0 ? run.x.data() : run.wa.data() + run.state.isave[11] - 1;
        double length = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            length = std::max(length, std::abs(expected.z[i] - x[i]));
        }
        for (std::size_t i = 0; i < n; ++i) {
            ASSERT_NEAR(z[i], expected.z[i], 1.0e-6 + 1.0e-6 * length)
                << "iteration " << iteration << " variable " << i + 1;
        }
        ++seen.iterations;
        seen.beyondMemory += updates > run.m;
        const auto count = [](const std::vector<bool>& set) { return std::count(set.begin(), set.end(), true); };
        if (!freeBefore.empty()) {
            int entered = 0, left = 0;
            for (std::size_t i = 0; i < n; ++i) {
                entered += expected.free[i] && !freeBefore[i];
                left += !expected.free[i] && freeBefore[i];
            }
            seen.exchanges += entered > 0 && left > 0;
            seen.freeAgain += pairs.size() > 1 && count(freeBefore) == 0 && count(expected.free) > 0;
        }
        freeBefore = expected.free;
        while (run.wantsEvaluation()) {
            for (std::size_t i = 0; i < n; ++i) {
                ASSERT_TRUE(isInside(run, i)) << "iteration " << iteration << " variable " << i + 1;
            }
            run.f = function(run.x, run.g);
            run.call();
        }
        if (run.word() != "NEW_X") {
            return;
        }
    }
}

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    double uniform(double low, double high) {
        return low + (high - low) * (static_cast<double>(engine_()) / 4294967296.0);
    }
    std::int32_t below(std::int32_t limit) {
        return static_cast<std::int32_t>(engine_() % static_cast<unsigned>(limit));
    }

private:
    std::mt19937 engine_;
};

// A sum of quartics and of products of neighbours: curved enough to keep a search off its first step.
Function quartic(std::size_t n, double stiffness, Random& random) {
    Vector centre(n), weight(n), coupling(n);
    for (std::size_t i = 0; i < n; ++i) {
        centre[i] = random.uniform(-1.5, 1.5);
        weight[i] = random.uniform(0.5, stiffness);
        coupling[i] = random.uniform(-1.0, 1.0);
    }
    return [=](const Vector& x, Vector& g) {
        double f = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double a = x[i] - centre[i];
            f += weight[i] * (5.0 * a * a * a * a + 0.05 * a * a);
            g[i] = weight[i] * (20.0 * a * a * a + 0.1 * a);
        }
        for (std::size_t i = 0; i + 1 < x.size(); ++i) {
            const double a = x[i] + coupling[i] * x[i + 1];
            f += a * a;
            g[i] += 2.0 * a;
            g[i + 1] += 2.0 * a * coupling[i];
        }
        return f;
    };
}

// No function at all: every trial is accepted, and the gradient changes there at random, but to half of
// the old slope along the step. Variables enter and leave bounds all the time.
Function thrownGradients(Random& random) {
    return [&random, lastX = Vector(), lastG = Vector(), f = 0.0](const Vector& x, Vector& g) mutable {
        if (lastX.empty()) {
            for (double& component : g) {
                component = random.uniform(-1.0, 1.0);
            }
        } else {
            Vector step(x);
            for (std::size_t i = 0; i < x.size(); ++i) {
                step[i] -= lastX[i];
            }
            const double length = std::sqrt(dot(step, step));
            for (std::size_t i = 0; i < x.size(); ++i) {
                g[i] = lastG[i] + 3.0 * length * random.uniform(-1.0, 1.0);
            }
            const double slope = dot(lastG, step);
            const double change = (0.5 * slope - dot(g, step)) / dot(step, step);
            for (std::size_t i = 0; i < x.size(); ++i) {
                g[i] += change * step[i];
            }
            f += 0.1 * slope;
        }
        lastX = x;
        lastG = g;
        return f;
    };
}

// Bounds of every kind, or of none or of all; few variables in every second problem.
OptimiserRun randomRun(unsigned seed, Random& random) {
    const std::int32_t memories[] = {1, 2, 3, 5, 18};
    OptimiserRun run(1 + random.below(seed % 2 == 0 ? 4 : 14), memories[random.below(5)], 0.0);
    for (std::size_t i = 0; i < run.x.size(); ++i) {
        run.nbd[i] = seed % 8 == 0 ? 0 : seed % 8 < 4 ? 3 : random.below(6);
        run.l[i] = random.uniform(-1.0, -0.1);
        run.u[i] = random.uniform(0.1, 1.0);
        run.x[i] = random.uniform(-1.0, 1.0);
        run.fixedFlag[i] = random.below(12) == 0 ? 1 : 0;
    }
    return run;
}

TEST(DenseModel, IsLeastAtThePointOfTheEngine) {
    Seen seen;
    for (unsigned seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        OptimiserRun run = randomRun(seed, random);
        compareWithDenseModel(run, quartic(run.x.size(), seed % 3 == 0 ? 50.0 : 4.0, random), 1.0e-4, seen);
        if (HasFatalFailure()) {
            return;
        }
    }
    EXPECT_GT(seen.iterations, 2000);
    EXPECT_GT(seen.beyondMemory, 1000);
}

TEST(DenseModel, IsLeastAtThePointOfTheEngineWhileVariablesChangeStatus) {
    Seen seen;
    for (unsigned seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        OptimiserRun run = randomRun(seed, random);
        run.nbd.assign(run.nbd.size(), 3);  // without a bound x would diverge
        compareWithDenseModel(run, thrownGradients(random), 1.0e-4, seen);
        if (HasFatalFailure()) {
            return;
        }
    }
    EXPECT_LT(seen.drops, seen.iterations / 20);
    EXPECT_GT(seen.iterations, 2000);
    EXPECT_GT(seen.beyondMemory, 1000);
    EXPECT_GT(seen.exchanges, 100);
    EXPECT_GT(seen.freeAgain, 3);
}

}  // namespace
}  // namespace voxlith
