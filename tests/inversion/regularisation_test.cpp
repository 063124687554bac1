#include "inversion/regularisation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "survey/dummy_value.h"

namespace voxlith {
namespace {

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
             {std::pair{&mesh.xWidth, mesh.nx}, {&mesh.yWidth, mesh.ny}, {&mesh.zWidth, mesh.nz}})
            for (std::int32_t n = 0; n < count; ++n)
                width->push_back(size(generator));
        const std::size_t cells = mesh.cellCount();
        for (std::vector<float>* weight :
             {&weights.wtS, &weights.wtE, &weights.wtN, &weights.wtZ, &depthWeight, &referenceWeight})
            for (std::size_t n = 0; n < cells; ++n)
                weight->push_back(static_cast<float>(size(generator)));
        for (std::size_t n = 0; n < cells * asked.types; ++n) {
            model.push_back(n % 11 == 3 ? 0.0 : value(generator));
            refModel.push_back(n % 7 == 2 ? dummyValue : n % 5 == 0 ? model.back() : value(generator));
            adjoint.push_back(100.0 * value(generator));
            fixedCell.push_back(n % 13 == 4 ? 1 : 0);
        }
    }

    std::size_t at(std::size_t k, std::size_t i, std::size_t j) const { return mesh.cell(k, i, j); }
    double valueAt(std::size_t type, std::size_t cell) const {
        const double x = model[type * mesh.cellCount() + cell];
        return shape.weighted ? x / static_cast<double>(depthWeight[cell]) : x;
    }
    ModelTerms terms(InstructionSet instructions) const {
        return {mesh, weights, shape.weighted ? std::span(depthWeight) : std::span<const float>(), shape.vertical,
                instructions};
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
    double apart;
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
    for (std::size_t j = 0; j < ny; ++j)
        for (std::size_t i = 0; i < nx; ++i)
            for (std::size_t k = 0; k < nz; ++k) {
                const std::size_t cell = p.at(k, i, j);
                if (axis == 'y' && j + 1 < ny && k < nzl)
                    pairs.push_back({cell, p.at(k, i, j + 1), p.weights.wtN[cell], between(mesh.yWidth, j)});
                if (axis == 'x' && i + 1 < nx && k < nzl)
                    pairs.push_back({cell, p.at(k, i + 1, j), p.weights.wtE[cell], between(mesh.xWidth, i)});
                if (axis == 'z' && p.shape.vertical && k + 1 < nz)
                    pairs.push_back({cell, p.at(k + 1, i, j), p.weights.wtZ[cell], between(mesh.zWidth, k)});
            }
    return pairs;
}

double normAlong(char axis, const Problem& p) {
    double sum = 0.0;
    for (std::size_t type = 0; type < p.shape.types; ++type)
        for (const Pair& pair : pairsAlong(axis, p)) {
            const double slope = (p.valueAt(type, pair.first) - p.valueAt(type, pair.second)) / pair.apart;
            sum += static_cast<double>(pair.weight) * (slope * slope);
        }
    return sum;
}

double referenceNorm(const Problem& p) {
    double sum = 0.0;
    for (std::size_t n = 0; n < p.model.size(); ++n) {
        const std::size_t cell = n % p.mesh.cellCount();
        if (cell % static_cast<std::size_t>(p.mesh.nz) >= static_cast<std::size_t>(p.mesh.nzl) ||
            !(p.refModel[n] > dummyValue))
            continue;
        double difference = p.model[n] - p.refModel[n];
        if (p.shape.weighted)
            difference /= static_cast<double>(p.depthWeight[cell]);
        sum += static_cast<double>(p.weights.wtS[cell]) * (difference * difference);
    }
    return sum;
}

// The gradient axis by axis, each over the whole model before the next begins.
std::vector<double> pullByPasses(const Problem& p, bool referenced, double multiplier, double nData) {
    const std::size_t cells = p.mesh.cellCount();
    std::vector<double> out(cells, 0.0);
    for (const char axis : {'y', 'x', 'z'})
        for (const Pair& pair : pairsAlong(axis, p)) {
            const double gradient =
                static_cast<double>(pair.weight) * (p.valueAt(0, pair.first) - p.valueAt(0, pair.second)) / pair.apart;
            out[pair.first] += gradient;
            out[pair.second] -= gradient;
        }
    for (std::size_t n = 0; n < cells; ++n) {
        if (n % static_cast<std::size_t>(p.mesh.nz) < static_cast<std::size_t>(p.mesh.nzl)) {
            double difference = p.model[n];
            if (referenced && p.refModel[n] > dummyValue)
                difference -= p.refModel[n];
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
    for (const bool weighted : {false, true})
        for (const bool vertical : {false, true})
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
    return all;
}

std::vector<InstructionSet> instructionSets() {
    const InstructionSet widest = widestInstructionSet();
    return {InstructionSet::plain, std::min(InstructionSet::avx2, widest), widest};
}

TEST(ModelTerms, NormsAreTheSumsOfPlainLoopsBitForBit) {
    for (const Problem& p : problems())
        for (const InstructionSet instructions : instructionSets()) {
            SCOPED_TRACE(p.name() + ", instructions " + std::to_string(static_cast<int>(instructions)));
            const ModelNorms norms = modelNorms(p.terms(instructions), p.model, p.refModel);
            EXPECT_EQ(norms.y, normAlong('y', p));
            EXPECT_EQ(norms.x, normAlong('x', p));
            EXPECT_EQ(norms.z, normAlong('z', p));
            EXPECT_EQ(norms.reference, referenceNorm(p));
        }
}

TEST(ModelTerms, PullIsThatOfOnePassAnAxisBitForBit) {
    for (const Problem& p : problems())
        for (const InstructionSet instructions : instructionSets())
            for (const bool referenced : {false, true}) {
                SCOPED_TRACE(p.name() + ", instructions " + std::to_string(static_cast<int>(instructions)));
                const std::size_t cells = p.mesh.cellCount();
                std::vector<double> out(cells, 7.0);
                addRegularisationGradient(p.terms(instructions), std::span(p.model).first(cells),
                                          referenced ? std::span(p.refModel).first(cells) : std::span<const double>(),
                                          p.shape.weighted ? std::span(p.referenceWeight) : std::span<const float>(),
                                          std::span(p.fixedCell).first(cells), 0.3, std::span(p.adjoint).first(cells),
                                          17.0, out);
                const std::vector<double> expected = pullByPasses(p, referenced, 0.3, 17.0);
                EXPECT_EQ(std::memcmp(out.data(), expected.data(), cells * sizeof(double)), 0);
            }
}

}  // namespace
}  // namespace voxlith
