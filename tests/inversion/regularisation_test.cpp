#include "inversion/regularisation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/dot.h"
#include "support/instruction_sets.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::dot;
using testing_support::InstructionSetLimit;
using testing_support::setsOfThisMachine;

struct Shape {
    std::int32_t nx, ny, nz, nzl;
    std::size_t types;
    bool weighted, vertical;
};

// A model with all that its terms need, drawn at random; some cells are fixed and some have no reference.
struct Problem {
    MeshGeometry mesh;
    SmoothnessWeights weights;
    std::vector<float> depthWeight, referenceWeight;
    std::vector<double> model, refModel, adjoint;
    std::vector<std::int32_t> fixedCell;
    Shape shape;

    Problem(const Shape& asked, unsigned seed) : shape(asked) {
        std::mt19937 generator(seed);
        std::uniform_real_distribution<double> size(0.5, 2.0), value(-3.0, 3.0);
        mesh.nx = asked.nx;
        mesh.ny = asked.ny;
        mesh.nz = asked.nz;
        mesh.nzl = asked.nzl;
        for (auto& [width, count] :
             {std::pair{&mesh.xWidth, mesh.nx}, {&mesh.yWidth, mesh.ny}, {&mesh.zWidth, mesh.nz}}) {
            for (std::int32_t n = 0; n < count; ++n) {
                width->push_back(size(generator));
            }
        }
        const std::size_t cells = mesh.cellCount();
        for (std::vector<float>* weight :
             {&weights.wtS, &weights.wtE, &weights.wtN, &weights.wtZ, &depthWeight, &referenceWeight}) {
            for (std::size_t n = 0; n < cells; ++n) {
                weight->push_back(static_cast<float>(size(generator)));
            }
        }
        for (std::size_t n = 0; n < cells * asked.types; ++n) {
            model.push_back(n % 11 == 3 ? 0.0 : value(generator));
            refModel.push_back(n % 7 == 2 ? dummyValue : n % 5 == 0 ? model.back() : value(generator));
            adjoint.push_back(100.0 * value(generator));
            fixedCell.push_back(n % 13 == 4 ? 1 : 0);
        }
    }

    std::size_t at(std::size_t k, std::size_t i, std::size_t j) const { return mesh.cellIndex(k, i, j); }
    double valueAt(std::size_t type, std::size_t cell) const {
        const double x = model[type * mesh.cellCount() + cell];
        return shape.weighted ? x / static_cast<double>(depthWeight[cell]) : x;
    }
    Regularisation regularisation() const {
        return {mesh, weights, shape.weighted ? std::span(depthWeight) : std::span<const float>(), shape.vertical};
    }
    std::span<const double> ofType(const std::vector<double>& models, std::size_t type) const {
        return std::span(models).subspan(type * mesh.cellCount(), mesh.cellCount());
    }
    std::string name() const {
        return std::to_string(shape.nx) + " x " + std::to_string(shape.ny) + " x " + std::to_string(shape.nz) +
               (shape.weighted ? " weighted" : "") + (shape.vertical ? " vertical" : "");
    }
};

// One pair of neighbouring cells, named by the axis that it lies along.
struct Pair {
    std::size_t first, second;
    float weight;
    double distance;
};

// All pairs along an axis in the order of their first cells.
std::vector<Pair> pairsAlong(char axis, const Problem& p) {
    const MeshGeometry& mesh = p.mesh;
    const auto nx = static_cast<std::size_t>(mesh.nx), ny = static_cast<std::size_t>(mesh.ny);
    const auto nz = static_cast<std::size_t>(mesh.nz), nzl = static_cast<std::size_t>(mesh.nzl);
    const auto between = [](const std::vector<double>& width, std::size_t n) {
        return (width[n] + width[n + 1]) * 0.5;
    };
    std::vector<Pair> pairs;
    for (std::size_t j = 0; j < ny; ++j) {
        for (std::size_t i = 0; i < nx; ++i) {
            for (std::size_t k = 0; k < nz; ++k) {
                const std::size_t cell = p.at(k, i, j);
                if (axis == 'y' && j + 1 < ny && k < nzl) {
                    pairs.push_back({cell, p.at(k, i, j + 1), p.weights.wtN[cell], between(mesh.yWidth, j)});
                }
                if (axis == 'x' && i + 1 < nx && k < nzl) {
                    pairs.push_back({cell, p.at(k, i + 1, j), p.weights.wtE[cell], between(mesh.xWidth, i)});
                }
                if (axis == 'z' && p.shape.vertical && k + 1 < nz) {
                    pairs.push_back({cell, p.at(k + 1, i, j), p.weights.wtZ[cell], between(mesh.zWidth, k)});
                }
            }
        }
    }
    return pairs;
}

double normAlong(char axis, const Problem& p) {
    double sum = 0.0;
    for (std::size_t type = 0; type < p.shape.types; ++type) {
        for (const Pair& pair : pairsAlong(axis, p)) {
            const double slope = (p.valueAt(type, pair.first) - p.valueAt(type, pair.second)) / pair.distance;
            sum += static_cast<double>(pair.weight) * (slope * slope);
        }
    }
    return sum;
}

double referenceNorm(const Problem& p) {
    double sum = 0.0;
    for (std::size_t n = 0; n < p.model.size(); ++n) {
        const std::size_t cell = n % p.mesh.cellCount();
        if (cell % static_cast<std::size_t>(p.mesh.nz) >= static_cast<std::size_t>(p.mesh.nzl) ||
            !(p.refModel[n] > dummyValue)) {
            continue;
        }
        double difference = p.model[n] - p.refModel[n];
        if (p.shape.weighted) {
            difference /= static_cast<double>(p.depthWeight[cell]);
        }
        sum += static_cast<double>(p.weights.wtS[cell]) * (difference * difference);
    }
    return sum;
}

// The gradient axis by axis, each over the whole model before the next begins.
std::vector<double> gradientByPasses(const Problem& p, bool referenced, double multiplier, double nData) {
    const std::size_t cells = p.mesh.cellCount();
    std::vector<double> out(cells, 0.0);
    for (const char axis : {'y', 'x', 'z'}) {
        for (const Pair& pair : pairsAlong(axis, p)) {
            const double gradient = static_cast<double>(pair.weight) *
                                    (p.valueAt(0, pair.first) - p.valueAt(0, pair.second)) / pair.distance;
            out[pair.first] += gradient;
            out[pair.second] -= gradient;
        }
    }
    for (std::size_t n = 0; n < cells; ++n) {
        if (n % static_cast<std::size_t>(p.mesh.nz) < static_cast<std::size_t>(p.mesh.nzl)) {
            double difference = p.model[n];
            if (referenced && p.refModel[n] > dummyValue) {
                difference -= p.refModel[n];
            }
            const double gradient = static_cast<double>(p.weights.wtS[n]) * difference;
            out[n] += p.shape.weighted ? gradient / static_cast<double>(p.referenceWeight[n]) : gradient;
        }
        out[n] = p.fixedCell[n] != 0 ? 0.0 : multiplier * out[n] + p.adjoint[n] / nData;
    }
    return out;
}

std::vector<Problem> problems() {
    std::vector<Problem> all;
    unsigned seed = 1;
    for (const bool weighted : {false, true}) {
        for (const bool vertical : {false, true}) {
            for (const Shape& shape : {Shape{7, 5, 9, 9, 1, false, false},
                                       {4, 3, 300, 257, 2, false, false},
                                       {1, 6, 129, 129, 1, false, false},
                                       {6, 1, 128, 100, 1, false, false},
                                       {5, 4, 1, 1, 2, false, false},
                                       {3, 3, 17, 0, 1, false, false}}) {
                Shape asked = shape;
                asked.weighted = weighted;
                asked.vertical = vertical;
                all.emplace_back(asked, seed++);
            }
        }
    }
    return all;
}

TEST(Regularisation, NormsAreTheSumsOfPlainLoopsBitForBit) {
    for (const Problem& p : problems()) {
        for (const InstructionSet set : setsOfThisMachine()) {
            const InstructionSetLimit limit(set);
            SCOPED_TRACE(p.name() + ", set " + std::to_string(static_cast<int>(set)));
            ModelNorms norms;
            for (std::size_t type = 0; type < p.shape.types; ++type) {
                addModelNorms(p.regularisation(), p.ofType(p.model, type), p.ofType(p.refModel, type), norms);
            }
            EXPECT_EQ(norms.y, normAlong('y', p));
            EXPECT_EQ(norms.x, normAlong('x', p));
            EXPECT_EQ(norms.z, normAlong('z', p));
            EXPECT_EQ(norms.reference, referenceNorm(p));
        }
    }
}

TEST(Regularisation, CompatibleGradientIsThatOfOnePassPerAxisBitForBit) {
    for (const Problem& p : problems()) {
        for (const InstructionSet set : setsOfThisMachine()) {
            const InstructionSetLimit limit(set);
            for (const bool referenced : {false, true}) {
                SCOPED_TRACE(p.name() + ", set " + std::to_string(static_cast<int>(set)));
                const std::size_t cells = p.mesh.cellCount();
                std::vector<double> out(cells, 7.0);
                addRegularisationGradient(p.regularisation(), std::span(p.model).first(cells),
                                          referenced ? std::span(p.refModel).first(cells) : std::span<const double>(),
                                          p.shape.weighted ? std::span(p.referenceWeight) : std::span<const float>(),
                                          std::span(p.fixedCell).first(cells), 0.3, std::span(p.adjoint).first(cells),
                                          17.0, out);
                const std::vector<double> expected = gradientByPasses(p, referenced, 0.3, 17.0);
                EXPECT_EQ(std::memcmp(out.data(), expected.data(), cells * sizeof(double)), 0);
            }
        }
    }
}

// Small meshes, on which every column of the Hessian can be looked at. Widths along x are negative, as those of falling
// nodes.
std::vector<Problem> smallProblems() {
    std::vector<Problem> all;
    unsigned seed = 50;
    for (const bool weighted : {false, true}) {
        for (const bool vertical : {false, true}) {
            for (const Shape& shape : {Shape{3, 2, 4, 4, 1, false, false},
                                       {2, 3, 5, 3, 1, false, false},
                                       {4, 4, 1, 1, 1, false, false},
                                       {1, 1, 6, 6, 1, false, false}}) {
                Shape asked = shape;
                asked.weighted = weighted;
                asked.vertical = vertical;
                all.emplace_back(asked, seed++);
                for (double& width : all.back().mesh.xWidth) {
                    width = -width;
                }
            }
        }
    }
    return all;
}

double normOf(const Problem& p, const std::vector<double>& model) {
    ModelNorms norms;
    addModelNorms(p.regularisation(), model, p.refModel, norms);
    return norms.reference + norms.y + norms.x + norms.z;
}

std::vector<double> normGradient(const Problem& p, GradientMode mode, const std::vector<double>& vector) {
    std::vector<double> out(vector.size(), 0.0);
    addNormGradient(p.regularisation(), mode, vector, p.refModel, 1.0, out);
    return out;
}

std::vector<double> compatibleProduct(const Problem& p, const std::vector<double>& vector) {
    std::vector<double> out(vector.size());
    const std::vector<double> none(vector.size(), 0.0);
    const std::vector<std::int32_t> free(vector.size(), 0);
    const Regularisation regularisation = p.regularisation();
    addRegularisationGradient(regularisation, vector, {}, regularisation.depthWeight, free, 1.0, none, 1.0, out);
    return out;
}

std::vector<double> randomVector(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<double> vector(size);
    for (double& element : vector) {
        element = value(generator);
    }
    return vector;
}

// phi(x + e p) - phi(x) - 2 e g.p is e^2 p'Hp exactly, as the norm is quadratic: over six decades of e its ratio to e^2
// is p'Hp until rounding takes over.
TEST(Regularisation, ExactGradientShowsOrderTwoInTheTaylorTable) {
    for (const Problem& p : smallProblems()) {
        SCOPED_TRACE(p.name());
        const std::vector<double> direction = randomVector(p.model.size(), 7);
        const double start = normOf(p, p.model);
        const double slope = 2.0 * dot(normGradient(p, GradientMode::gradient, p.model), direction);
        const double curvature = dot(normGradient(p, GradientMode::hessianProduct, direction), direction);
        ASSERT_GT(std::abs(slope), 1e-3);
        ASSERT_GT(curvature, 1e-3);
        for (double step = 10.0; step > 5e-6; step *= 0.1) {
            std::vector<double> moved = p.model;
            for (std::size_t n = 0; n < moved.size(); ++n) {
                moved[n] += step * direction[n];
            }
            const double ratio = (normOf(p, moved) - start - step * slope) / (step * step);
            const double rounding = 1e-14 * start / (step * step);
            EXPECT_NEAR(ratio, curvature, 1e-10 * curvature + rounding) << "step " << step;
        }
    }
}

TEST(Regularisation, ExactHessianIsItsOwnAdjoint) {
    for (const Problem& p : smallProblems()) {
        SCOPED_TRACE(p.name());
        const std::vector<double> a = randomVector(p.model.size(), 8), b = randomVector(p.model.size(), 9);
        const double forth = dot(normGradient(p, GradientMode::hessianProduct, a), b);
        const double back = dot(a, normGradient(p, GradientMode::hessianProduct, b));
        EXPECT_NEAR(forth, back, 1e-12 * (std::abs(forth) + 1.0));
    }
}

TEST(Regularisation, ExactGradientIsZeroAtTheReferenceWhereThatIsUniform) {
    Problem p({4, 3, 5, 5, 1, false, true}, 90);
    std::fill(p.refModel.begin(), p.refModel.end(), 2.5);
    EXPECT_EQ(normGradient(p, GradientMode::gradient, p.refModel), std::vector<double>(p.model.size(), 0.0));
    EXPECT_EQ(normOf(p, p.refModel), 0.0);
}

TEST(Regularisation, GradientIsAddedInTheScaleThatIsAskedFor) {
    const Problem p({3, 3, 4, 3, 1, true, true}, 91);
    const std::vector<double> gradient = normGradient(p, GradientMode::gradient, p.model);
    std::vector<double> out(p.model.size(), 5.0), diagonal(p.model.size(), 5.0), plain(p.model.size(), 0.0);
    addNormGradient(p.regularisation(), GradientMode::gradient, p.model, p.refModel, -2.0, out);
    addNormDiagonal(p.regularisation(), NormForm::exact, p.refModel, -2.0, diagonal);
    addNormDiagonal(p.regularisation(), NormForm::exact, p.refModel, 1.0, plain);
    for (std::size_t n = 0; n < out.size(); ++n) {
        EXPECT_NEAR(out[n], 5.0 - 2.0 * gradient[n], 1e-12);
        EXPECT_NEAR(diagonal[n], 5.0 - 2.0 * plain[n], 1e-12);
    }
}

TEST(Regularisation, DiagonalsAreThoseOfTheirOperators) {
    for (const Problem& p : smallProblems()) {
        for (const NormForm form : {NormForm::exact, NormForm::compatible}) {
            SCOPED_TRACE(p.name() + (form == NormForm::exact ? " exact" : " compatible"));
            const std::size_t cells = p.model.size();
            std::vector<double> diagonal(cells, 0.0);
            addNormDiagonal(p.regularisation(), form, p.refModel, 1.0, diagonal);
            for (std::size_t n = 0; n < cells; ++n) {
                std::vector<double> unit(cells, 0.0);
                unit[n] = 1.0;
                const std::vector<double> column = form == NormForm::exact
                                                       ? normGradient(p, GradientMode::hessianProduct, unit)
                                                       : compatibleProduct(p, unit);
                EXPECT_NEAR(diagonal[n], column[n], 1e-12 * (1.0 + std::abs(column[n]))) << "cell " << n;
            }
        }
    }
}

TEST(Regularisation, FormsAgreeWhereWidthsAndWeightsAreOne) {
    Problem p({4, 3, 5, 5, 1, false, true}, 92);
    for (std::vector<double>* widths : {&p.mesh.xWidth, &p.mesh.yWidth, &p.mesh.zWidth}) {
        std::fill(widths->begin(), widths->end(), 1.0);
    }
    std::fill(p.refModel.begin(), p.refModel.end(), 0.0);
    const std::vector<double> exact = normGradient(p, GradientMode::hessianProduct, p.model);
    const std::vector<double> compatible = compatibleProduct(p, p.model);
    for (std::size_t n = 0; n < exact.size(); ++n) {
        EXPECT_NEAR(exact[n], compatible[n], 1e-13);
    }
}

}  // namespace
}  // namespace voxlith
