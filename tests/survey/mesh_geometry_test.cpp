#include "survey/mesh_geometry.h"

#include <gtest/gtest.h>

#include <random>

#include "support/work_folder.h"

namespace voxlith {
namespace {

using testing_support::makeMesh;
using testing_support::makeUnitMesh;

TEST(MeshGeometry, WidthsAreSignedAlongXAndYAndAbsoluteAlongZ) {
    const MeshGeometry mesh = makeMesh({10.0, 7.0, 5.0}, {0.0, -1.0, -4.0}, {100.0, 90.0, 60.0});
    EXPECT_EQ(mesh.xWidth, (std::vector<double>{-3.0, -2.0}));
    EXPECT_EQ(mesh.yWidth, (std::vector<double>{-1.0, -3.0}));
    EXPECT_EQ(mesh.zWidth, (std::vector<double>{10.0, 30.0}));
    EXPECT_EQ(mesh.xCentre, (std::vector<double>{8.5, 6.0}));
    EXPECT_EQ(mesh.yCentre, (std::vector<double>{-0.5, -2.5}));
    EXPECT_EQ(mesh.zCentre, (std::vector<double>{95.0, 75.0}));
}

TEST(MeshGeometry, OneCellIsAsWideAsTheMesh) {
    const MeshGeometry mesh = makeMesh({2.0, 12.0}, {0.0, 1.0, 2.0}, {-5.0, 5.0});
    EXPECT_EQ(mesh.xWidth, std::vector<double>{10.0});
    EXPECT_EQ(mesh.xCentre, std::vector<double>{7.0});
    EXPECT_EQ(mesh.zWidth, std::vector<double>{10.0});
    EXPECT_EQ(mesh.zCentre, std::vector<double>{0.0});
}

TEST(MeshGeometry, CellsRunAlongZThenXThenY) {
    const MeshGeometry mesh = makeUnitMesh(3, 4, 5);
    EXPECT_EQ(mesh.cellCount(), 60U);
    std::size_t next = 0;
    for (std::size_t j = 0; j < 4; ++j) {
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t k = 0; k < 5; ++k) {
                EXPECT_EQ(mesh.cellIndex(k, i, j), next++);
            }
        }
    }
}

TEST(MeshGeometry, RandomNodesGiveWidthsThatAddUpAndCentresBetweenNodes) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> step(0.1, 9.0);
        std::vector<double> node{step(random) * 1000.0};
        while (node.size() < 12) {
            node.push_back(node.back() - step(random));
        }
        const MeshGeometry mesh = makeMesh(node, node, node);
        for (std::size_t cell = 0; cell + 1 < node.size(); ++cell) {
            EXPECT_EQ(mesh.xWidth[cell], node[cell + 1] - node[cell]) << "seed " << seed;
            EXPECT_EQ(mesh.zWidth[cell], node[cell] - node[cell + 1]) << "seed " << seed;
            EXPECT_LT(mesh.yCentre[cell], node[cell]) << "seed " << seed;
            EXPECT_GT(mesh.yCentre[cell], node[cell + 1]) << "seed " << seed;
        }
    }
}

}  // namespace
}  // namespace voxlith
