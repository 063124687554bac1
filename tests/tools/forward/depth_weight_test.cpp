// The depth weight of the cells.
#include "forward/depth_weight.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/messages.h"

namespace voxlith {
namespace {

MeshGeometry twoColumns() {
    MeshGeometry mesh;
    mesh.nx = 2;
    mesh.ny = 1;
    mesh.nz = 3;
    mesh.xNode = {0, 1, 2};
    mesh.yNode = {0, 1};
    mesh.zNode = {-100, -90, -70, -40};
    mesh.xWidth = mesh.xCentre = {1, 1};
    mesh.yWidth = mesh.yCentre = {1};
    mesh.zWidth = mesh.zCentre = {0, 0, 0};
    buildMeshArrays(mesh);
    return mesh;
}

TEST(DepthWeight, isTakenAtTheCentresBelowTheTopOfTheMesh) {
    const std::vector<float> weights = cellDepthWeights({10.0, 3.0}, twoColumns());
    ASSERT_EQ(weights.size(), 6U);
    for (const std::size_t column : {0U, 3U}) {
        EXPECT_EQ(weights[column + 0], static_cast<float>(std::pow(15.0 / 10.0, -1.5)));
        EXPECT_EQ(weights[column + 1], static_cast<float>(std::pow(30.0 / 10.0, -1.5)));
        EXPECT_EQ(weights[column + 2], static_cast<float>(std::pow(55.0 / 10.0, -1.5)));
    }
}

TEST(DepthWeight, noneIsOneEverywhere) {
    EXPECT_EQ(cellDepthWeights({}, twoColumns()), std::vector<float>(6, 1.0F));
}

TEST(DepthWeight, theDefaultDependsOnTheHeightOfTheStationsAndTheDataType) {
    std::vector<Station> stations(2);
    stations[0].point.depth = -110;
    stations[1].point.depth = -130;  // 10 and 30 above the top
    EXPECT_DOUBLE_EQ(defaultDepthWeight(DataType::gz, twoColumns(), stations).z0, 25.0);
    EXPECT_DOUBLE_EQ(defaultDepthWeight(DataType::gz, twoColumns(), stations).beta, 2.0);
    for (const int code : {1, 2, 10, 15, 22}) {
        EXPECT_DOUBLE_EQ(defaultDepthWeight(DataType{code}, twoColumns(), stations).beta, 3.0) << code;
    }
    stations[0].point.depth = stations[1].point.depth = -50;  // inside the mesh
    EXPECT_DOUBLE_EQ(defaultDepthWeight(DataType::gz, twoColumns(), stations).z0, 5.0);
}

TEST(DepthWeight, weightsTooSmallForTheFileAreRefused) {
    EXPECT_THROW(cellDepthWeights({1e-6, 60.0}, twoColumns()), RunError);
}

}  // namespace
}  // namespace voxlith
