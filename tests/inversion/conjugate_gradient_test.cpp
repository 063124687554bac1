#include "inversion/conjugate_gradient.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "optim/vector_kernels.h"

namespace voxlith {
namespace {

using Vector = std::vector<double>;

// A random positive definite matrix B'B + I, row by row, with the solution of H s = b by elimination.
struct System {
    std::size_t size;
    Vector matrix, rightSide, solution;

    System(std::size_t asked, unsigned seed) : size(asked) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        Vector b(size * size);
        for (double& value : b) {
            value = uniform(random);
        }
        matrix.assign(size * size, 0.0);
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j) {
                matrix[i * size + j] = i == j ? 1.0 : 0.0;
                for (std::size_t k = 0; k < size; ++k) {
                    matrix[i * size + j] += b[k * size + i] * b[k * size + j];
                }
            }
        }
        rightSide.resize(size);
        for (double& value : rightSide) {
            value = uniform(random);
        }
        eliminate();
    }

    void eliminate() {
        Vector a = matrix;
        solution = rightSide;
        for (std::size_t k = 0; k < size; ++k) {
            for (std::size_t i = k + 1; i < size; ++i) {
                const double factor = a[i * size + k] / a[k * size + k];
                for (std::size_t j = k; j < size; ++j) {
                    a[i * size + j] -= factor * a[k * size + j];
                }
                solution[i] -= factor * solution[k];
            }
        }
        for (std::size_t k = size; k-- > 0;) {
            for (std::size_t j = k + 1; j < size; ++j) {
                solution[k] -= a[k * size + j] * solution[j];
            }
            solution[k] /= a[k * size + k];
        }
    }

    Vector times(const Vector& vector) const {
        Vector out(size, 0.0);
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j) {
                out[i] += matrix[i * size + j] * vector[j];
            }
        }
        return out;
    }
};

struct Solver {
    Vector solution, residual, direction, preconditioned, product;
    double rz = 0;

    Solver(const System& system, const std::vector<float>& precond)
        : solution(system.size, 0.0),
          residual(system.size),
          direction(system.size),
          preconditioned(system.size),
          product(system.size) {
        for (std::size_t n = 0; n < system.size; ++n) {
            residual[n] = -system.rightSide[n];
        }
        rz = startConjugateGradients(vectors(), precond);
    }
    ConjugateGradientVectors vectors() { return {solution, residual, direction, preconditioned, product}; }
    void step(const System& system, const std::vector<float>& precond) {
        product = system.times(direction);
        rz = stepConjugateGradients(vectors(), precond, rz);
    }
};

// The diagonal, or ones.
std::vector<float> preconditionerOf(const System& system, bool diagonal) {
    std::vector<float> precond(system.size, 1.0F);
    for (std::size_t n = 0; diagonal && n < system.size; ++n) {
        precond[n] = static_cast<float>(1.0 / system.matrix[n * system.size + n]);
    }
    return precond;
}

TEST(ConjugateGradient, SolvesInAsManyStepsAsUnknowns) {
    for (const bool diagonal : {false, true}) {
        for (unsigned seed = 1; seed < 6; ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            const System system(8, seed);
            const std::vector<float> precond = preconditionerOf(system, diagonal);
            Solver solver(system, precond);
            for (int step = 0; step < 8; ++step) {
                solver.step(system, precond);
            }
            for (std::size_t n = 0; n < 8; ++n) {
                EXPECT_NEAR(solver.solution[n], system.solution[n], 1e-7);
            }
        }
    }
}

TEST(ConjugateGradient, ResidualIsThatOfTheSolution) {
    const System system(12, 3);
    const std::vector<float> precond = preconditionerOf(system, true);
    Solver solver(system, precond);
    for (int step = 0; step < 5; ++step) {
        solver.step(system, precond);
        const Vector product = system.times(solver.solution);
        for (std::size_t n = 0; n < 12; ++n) {
            EXPECT_NEAR(solver.residual[n], product[n] - system.rightSide[n], 1e-12);
        }
        EXPECT_DOUBLE_EQ(solver.rz, innerProduct(solver.residual, solver.preconditioned));
    }
}

TEST(ConjugateGradient, DirectionsAreConjugate) {
    const System system(10, 5);
    const std::vector<float> precond = preconditionerOf(system, true);
    Solver solver(system, precond);
    std::vector<Vector> directions;
    for (int step = 0; step < 5; ++step) {
        directions.push_back(solver.direction);
        solver.step(system, precond);
    }
    for (std::size_t a = 0; a < directions.size(); ++a) {
        for (std::size_t b = 0; b < a; ++b) {
            const double scale = std::sqrt(innerProduct(directions[a], system.times(directions[a])) *
                                           innerProduct(directions[b], system.times(directions[b])));
            EXPECT_NEAR(innerProduct(directions[a], system.times(directions[b])) / scale, 0.0, 1e-9);
        }
    }
}

TEST(ConjugateGradient, PreconditionerServesAllModelTypes) {
    const System system(6, 7);
    const std::vector<float> precond{0.5F, 2.0F, 1.0F};
    Solver solver(system, precond);
    for (std::size_t n = 0; n < 6; ++n) {
        EXPECT_EQ(solver.preconditioned[n], static_cast<double>(precond[n % 3]) * solver.residual[n]);
    }
}

}  // namespace
}  // namespace voxlith
