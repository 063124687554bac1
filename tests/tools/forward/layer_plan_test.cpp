// Which layers a file covers for each style.
#include "forward/layer_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/messages.h"

namespace voxlith {
namespace {

MeshGeometry meshOf(std::int32_t nx, std::int32_t ny, std::int32_t nz) {
    MeshGeometry mesh;
    mesh.nx = nx;
    mesh.ny = ny;
    mesh.nz = nz;
    return mesh;
}

TEST(LayerPlan, aFullFileIsPaddedToPowersOfTwo) {
    MeshGeometry mesh = meshOf(5, 8, 33);
    const LayerPlan plan = planLayers({}, true, mesh);
    EXPECT_EQ(mesh.npx, 8);
    EXPECT_EQ(mesh.npy, 8);
    EXPECT_EQ(mesh.npz, 64);
    EXPECT_EQ(mesh.nzl, 33);
    EXPECT_EQ(plan.inversionStyle, 0);
    EXPECT_FALSE(plan.sumBelow);
    mesh = meshOf(1, 2, 3);
    planLayers({}, true, mesh);
    EXPECT_EQ(mesh.npx, 1);
    EXPECT_EQ(mesh.npy, 2);
    EXPECT_EQ(mesh.npz, 4);
}

struct StyleCase {
    LayerOptions options;
    std::int32_t style, npz;
    bool sumBelow, shownWhole;
};

TEST(LayerPlan, surfaceStyles) {
    for (const StyleCase& expected : {
             StyleCase{{1, -1}, 1, 1, false, true},  // layers, style
             StyleCase{{0, 1}, 1, 1, false, true},
             StyleCase{{0, 2}, 2, 1, true, true},
             StyleCase{{1, 2}, 2, 1, true, true},
             StyleCase{{0, 3}, 3, 2, true, true},
             StyleCase{{2, -1}, 3, 2, true, true},
             StyleCase{{3, -1}, 3, 3, true, false},
             StyleCase{{8, 3}, 3, 8, true, false},
             StyleCase{{1, 3}, 3, 1, true, false},
             StyleCase{{2, 1}, 1, 2, false, true},
             StyleCase{{0, 4}, 4, 16, false, true},
             StyleCase{{10, 4}, 4, 16, false, true},
         }) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        const LayerPlan plan = planLayers(expected.options, true, mesh);
        const std::string name =
            "layers " + std::to_string(expected.options.layers) + " style " + std::to_string(expected.options.style);
        EXPECT_EQ(plan.inversionStyle, expected.style) << name;
        EXPECT_EQ(mesh.npz, expected.npz) << name;
        EXPECT_EQ(mesh.nzl, std::min(expected.npz, 10)) << name;
        EXPECT_EQ(plan.sumBelow, expected.sumBelow) << name;
        EXPECT_EQ(plan.shownWhole, expected.shownWhole) << name;
    }
}

TEST(LayerPlan, aMeshOfOneLayerHasNothingBelow) {
    MeshGeometry mesh = meshOf(4, 4, 1);
    EXPECT_EQ(planLayers({1, -1}, true, mesh).inversionStyle, 0);
    EXPECT_FALSE(planLayers({0, 2}, true, mesh).sumBelow);
    EXPECT_EQ(planLayers({0, 3}, true, mesh).inversionStyle, 3);
    EXPECT_EQ(mesh.npz, 1);
}

TEST(LayerPlan, refusals) {
    for (const LayerOptions& options :
         {LayerOptions{11, -1}, LayerOptions{5, -1}, LayerOptions{6, 3}, LayerOptions{1, 0}, LayerOptions{2, 4}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_THROW(planLayers(options, true, mesh), RunError) << options.layers << " " << options.style;
    }
}

TEST(LayerPlan, aFormWithoutAStyleAllowsOnlyWhatReadersDerive) {
    for (const LayerOptions& options :
         {LayerOptions{1, -1}, LayerOptions{1, 1}, LayerOptions{0, 3}, LayerOptions{2, -1}, LayerOptions{0, 0}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_NO_THROW(planLayers(options, false, mesh)) << options.layers << " " << options.style;
    }
    for (const LayerOptions& options : {LayerOptions{0, 2}, LayerOptions{0, 4}, LayerOptions{2, 1}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_THROW(planLayers(options, false, mesh), RunError) << options.layers << " " << options.style;
    }
}

}  // namespace
}  // namespace voxlith
