#include "formats/weight_file.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/work_folder.h"

namespace voxlith {
namespace {

using testing_support::expectReadError;
using testing_support::expectStop;
using testing_support::makeMesh;
using testing_support::makeUnitMesh;

constexpr float untouched = -7.0F;

SmoothnessWeights makeWeights(const MeshGeometry& mesh, float value = untouched) {
    const std::vector<float> all(mesh.cellCount(), value);
    return {all, all, all, all};
}

// The factor as documented: real32 product of weight and alpha, the rest in real64, stored as real32.
float scaled(double factor, const MeshGeometry& mesh, std::size_t k, std::size_t i, std::size_t j, float weight,
             float alpha) {
    const double volume =
        (mesh.xNode.back() - mesh.xNode[0]) * (mesh.zNode.back() - mesh.zNode[0]) * (mesh.yNode.back() - mesh.yNode[0]);
    const float weighted = weight * alpha;
    return static_cast<float>(factor * mesh.yWidth[j] * mesh.xWidth[i] * mesh.zWidth[k] *
                              static_cast<double>(weighted) / volume);
}

class WeightFile : public testing_support::WorkFolderTest {
protected:
    void readAll(const std::vector<std::string>& names, const MeshGeometry& mesh, Alphas& alphas,
                 SmoothnessWeights& weights, std::int32_t style = 0) {
        readWeightFiles(messages_, InversionStyle{style}, alphas, static_cast<std::int32_t>(names.size()), names, mesh,
                        weights);
    }

    Alphas alphas_{0.3F, 0.7F, 1.1F, 1.9F};
};

TEST_F(WeightFile, NullMakesAllWeightsOne) {
    const MeshGeometry mesh = makeMesh({0, 10, 25}, {5, 6, 9, 10}, {0, 2, 7});
    for (const std::string name : {"null", "NULL", "nullmodel.dat", "", "   ", " null"}) {
        SmoothnessWeights weights = makeWeights(mesh);
        readAll({name}, mesh, alphas_, weights);
        for (std::size_t j = 0; j < 3; ++j) {
            for (std::size_t i = 0; i < 2; ++i) {
                for (std::size_t k = 0; k < 2; ++k) {
                    const std::size_t cell = mesh.cellIndex(k, i, j);
                    EXPECT_EQ(weights.wtS[cell], scaled(1.0, mesh, k, i, j, 1.0F, 0.3F));
                    EXPECT_EQ(weights.wtE[cell], i < 1 ? scaled(1.0e8, mesh, k, i, j, 1.0F, 0.7F) : untouched);
                    EXPECT_EQ(weights.wtN[cell], j < 2 ? scaled(1.0e8, mesh, k, i, j, 1.0F, 1.1F) : untouched);
                    EXPECT_EQ(weights.wtZ[cell], k < 1 ? scaled(1.0e8, mesh, k, i, j, 1.0F, 1.9F) : untouched);
                }
            }
        }
    }
}

TEST_F(WeightFile, OneFileHasAllSectionsEachFromANewLine) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    write("w.dat", "1 2 3 4 5 6 7 8 dropped\n11 12\n13 14 dropped\n21,22,23,24\n2*31 2*33\n");
    SmoothnessWeights weights = makeWeights(mesh);
    readAll({"w.dat"}, mesh, alphas_, weights);
    const std::vector<float> expectedE{11, 12, untouched, untouched, 13, 14, untouched, untouched};
    const std::vector<float> expectedN{21, 22, 23, 24, untouched, untouched, untouched, untouched};
    const std::vector<float> expectedZ{31, untouched, 31, untouched, 33, untouched, 33, untouched};
    for (std::size_t cell = 0; cell < 8; ++cell) {
        EXPECT_EQ(weights.wtS[cell], scaled(1.0, mesh, 0, 0, 0, static_cast<float>(cell + 1), 0.3F));
        const auto expected = [&](float weight, float alpha) {
            return weight == untouched ? untouched : scaled(1.0e8, mesh, 0, 0, 0, weight, alpha);
        };
        EXPECT_EQ(weights.wtE[cell], expected(expectedE[cell], 0.7F)) << cell;
        EXPECT_EQ(weights.wtN[cell], expected(expectedN[cell], 1.1F)) << cell;
        EXPECT_EQ(weights.wtZ[cell], expected(expectedZ[cell], 1.9F)) << cell;
    }
}

TEST_F(WeightFile, FourFilesHoldOneSectionEachAndMayBeNull) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    write("s.w", "8*3\n");
    write("n.w", "4*5 99 99\n");
    SmoothnessWeights weights = makeWeights(mesh);
    readAll({"s.w", "nullish", "  n.w ", ""}, mesh, alphas_, weights);
    EXPECT_EQ(weights.wtS[7], scaled(1.0, mesh, 0, 0, 0, 3.0F, 0.3F));
    EXPECT_EQ(weights.wtE[0], scaled(1.0e8, mesh, 0, 0, 0, 1.0F, 0.7F));
    EXPECT_EQ(weights.wtN[3], scaled(1.0e8, mesh, 0, 0, 0, 5.0F, 1.1F));
    EXPECT_EQ(weights.wtN[4], untouched);
    EXPECT_EQ(weights.wtZ[0], scaled(1.0e8, mesh, 0, 0, 0, 1.0F, 1.9F));
}

TEST_F(WeightFile, OneCellAxesLoseTheirAlphaAndTheirSection) {
    const MeshGeometry mesh = makeUnitMesh(1, 2, 2);
    write("w.dat", "4*2\n2*3\n2*4\n");  // sections 1, 3 and 4: an empty section takes no line
    SmoothnessWeights weights = makeWeights(mesh);
    readAll({"w.dat"}, mesh, alphas_, weights);
    EXPECT_EQ(alphas_.alphaE, 0.0F);
    EXPECT_EQ(alphas_.alphaN, 1.1F);
    EXPECT_EQ(alphas_.alphaZ, 1.9F);
    EXPECT_EQ(weights.wtE, std::vector<float>(4, untouched));
    EXPECT_EQ(weights.wtN[0], scaled(1.0e8, mesh, 0, 0, 0, 3.0F, 1.1F));
    EXPECT_EQ(weights.wtZ[0], scaled(1.0e8, mesh, 0, 0, 0, 4.0F, 1.9F));
}

TEST_F(WeightFile, OneCellAltogether) {
    const MeshGeometry mesh = makeUnitMesh(1, 1, 1);
    write("w.dat", "4\n");
    SmoothnessWeights weights = makeWeights(mesh);
    readAll({"w.dat"}, mesh, alphas_, weights);
    EXPECT_EQ(alphas_.alphaE, 0.0F);
    EXPECT_EQ(alphas_.alphaN, 0.0F);
    EXPECT_EQ(alphas_.alphaZ, 0.0F);
    EXPECT_EQ(weights.wtS, std::vector<float>{scaled(1.0, mesh, 0, 0, 0, 4.0F, 0.3F)});
}

TEST_F(WeightFile, SurfaceStylesLoseTheAlphaOfZAndItsWeightsBecomeZero) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    for (std::int32_t style = 0; style <= 4; ++style) {
        Alphas alphas = alphas_;
        SmoothnessWeights weights = makeWeights(mesh);
        readAll({"null"}, mesh, alphas, weights, style);
        const bool surface = style >= 1 && style <= 3;
        EXPECT_EQ(alphas.alphaZ, surface ? 0.0F : 1.9F) << "style " << style;
        EXPECT_EQ(weights.wtZ[0] == 0.0F, surface) << "style " << style;
        EXPECT_EQ(alphas.alphaS, 0.3F);
        EXPECT_EQ(alphas.alphaE, 0.7F);
        EXPECT_EQ(alphas.alphaN, 1.1F);
    }
}

TEST_F(WeightFile, TheVolumeIsSignedAsTheNodesRun) {
    const MeshGeometry mesh = makeMesh({0, 1, 2}, {0, 1, 2}, {0, -1, -2});
    SmoothnessWeights weights = makeWeights(mesh);
    readAll({"null"}, mesh, alphas_, weights);
    EXPECT_LT(weights.wtS[0], 0.0F);
    EXPECT_EQ(weights.wtS[0], scaled(1.0, mesh, 0, 0, 0, 1.0F, 0.3F));
    // Both x widths and the extent change their sign together.
    const MeshGeometry mirrored = makeMesh({0, -1, -2}, {0, 1, 2}, {0, 1, 2});
    readAll({"null"}, mirrored, alphas_, weights);
    EXPECT_GT(weights.wtS[0], 0.0F);
}

TEST_F(WeightFile, MissingFilesStopWithTheNameOfTheSection) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    const auto call = [&](const std::vector<std::string>& names, const MeshGeometry& usedMesh) {
        return [this, names, &usedMesh](Messages& messages) {
            SmoothnessWeights weights = makeWeights(usedMesh);
            readWeightFiles(messages, InversionStyle::standard, alphas_, static_cast<std::int32_t>(names.size()), names,
                            usedMesh, weights);
        };
    };
    expectStop(" File no.w not found", call({"no.w  "}, mesh));
    expectStop(" File n.w not found", call({"null", "null", "n.w", "z.w"}, mesh));
    expectStop(" File Null not found", call({"Null"}, mesh));
    expectStop(" File /dev/zero not found", call({"/dev/zero"}, mesh));
    const std::string longName(100, 'w');
    expectStop(" File " + longName + " not found", call({longName}, mesh));
    // Also for a section that has no values.
    const MeshGeometry narrow = makeUnitMesh(1, 2, 2);
    expectStop(" File e.w not found", call({"null", "e.w", "null", "null"}, narrow));
}

TEST_F(WeightFile, UnreadableFilesEndInTheReadersOwnError) {
    const MeshGeometry mesh = makeUnitMesh(2, 2, 2);
    const auto call = [&](const std::string& name) {
        return [this, name, &mesh](Messages& messages) {
            SmoothnessWeights weights = makeWeights(mesh);
            readWeightFiles(messages, InversionStyle::standard, alphas_, 1, std::vector<std::string>{name}, mesh,
                            weights);
        };
    };
    write("short.w", "1 2 3\n");
    expectReadError({"short.w", "weight of the smallest model", "the end of the file"}, call("short.w"));
    write("text.w", "8*1\n2 what\n");
    expectReadError({"text.w, line 2", "x differences", "what"}, call("text.w"));
}

TEST_F(WeightFile, NullValuesKeepWhatTheArraysHold) {
    const MeshGeometry mesh = makeUnitMesh(1, 1, 4);
    write("w.dat", "1,,/\n3*2\n");
    SmoothnessWeights weights = makeWeights(mesh, 0.0F);
    readAll({"w.dat"}, mesh, alphas_, weights);
    EXPECT_EQ(weights.wtS[1], 0.0F);
    EXPECT_EQ(weights.wtS[3], 0.0F);
    EXPECT_GT(weights.wtS[0], 0.0F);
    EXPECT_GT(weights.wtZ[2], 0.0F);
}

}  // namespace
}  // namespace voxlith
