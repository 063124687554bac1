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

constexpr InversionStyle standard = InversionStyle::standard;
constexpr InversionStyle equivalentSource = InversionStyle::equivalentSource;
constexpr InversionStyle apparentDensity = InversionStyle::apparentDensity;
constexpr InversionStyle surfaceAndApparent = InversionStyle::surfaceAndApparentDensity;
constexpr InversionStyle edgePadding = InversionStyle::edgePadding;

std::string textOf(const LayerOptions& options) {
    return "layers " + std::to_string(options.layers) + " style " +
           (options.style ? std::to_string(codeOf(*options.style)) : "none");
}

TEST(LayerPlan, aFullFileIsPaddedToPowersOfTwo) {
    MeshGeometry mesh = meshOf(5, 8, 33);
    const LayerPlan plan = planLayers({}, true, mesh);
    EXPECT_EQ(mesh.npx, 8);
    EXPECT_EQ(mesh.npy, 8);
    EXPECT_EQ(mesh.npz, 64);
    EXPECT_EQ(mesh.nzl, 33);
    EXPECT_EQ(plan.inversionStyle, standard);
    EXPECT_FALSE(plan.sumBelow);
    mesh = meshOf(1, 2, 3);
    planLayers({}, true, mesh);
    EXPECT_EQ(mesh.npx, 1);
    EXPECT_EQ(mesh.npy, 2);
    EXPECT_EQ(mesh.npz, 4);
}

struct StyleCase {
    LayerOptions options;
    InversionStyle style;
    std::int32_t npz;
    bool sumBelow, shownWhole;
};

TEST(LayerPlan, surfaceStyles) {
    for (const StyleCase& expected : {
             StyleCase{{1, {}}, equivalentSource, 1, false, true},  // layers, style
             StyleCase{{0, equivalentSource}, equivalentSource, 1, false, true},
             StyleCase{{0, apparentDensity}, apparentDensity, 1, true, true},
             StyleCase{{1, apparentDensity}, apparentDensity, 1, true, true},
             StyleCase{{0, surfaceAndApparent}, surfaceAndApparent, 2, true, true},
             StyleCase{{2, {}}, surfaceAndApparent, 2, true, true},
             StyleCase{{3, {}}, surfaceAndApparent, 3, true, false},
             StyleCase{{8, surfaceAndApparent}, surfaceAndApparent, 8, true, false},
             StyleCase{{1, surfaceAndApparent}, surfaceAndApparent, 1, true, false},
             StyleCase{{2, equivalentSource}, equivalentSource, 2, false, true},
             StyleCase{{0, edgePadding}, edgePadding, 16, false, true},
             StyleCase{{10, edgePadding}, edgePadding, 16, false, true},
         }) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        const LayerPlan plan = planLayers(expected.options, true, mesh);
        const std::string name = textOf(expected.options);
        EXPECT_EQ(plan.inversionStyle, expected.style) << name;
        EXPECT_EQ(mesh.npz, expected.npz) << name;
        EXPECT_EQ(mesh.nzl, std::min(expected.npz, 10)) << name;
        EXPECT_EQ(plan.sumBelow, expected.sumBelow) << name;
        EXPECT_EQ(plan.shownWhole, expected.shownWhole) << name;
    }
}

TEST(LayerPlan, aMeshOfOneLayerHasNothingBelow) {
    MeshGeometry mesh = meshOf(4, 4, 1);
    EXPECT_EQ(planLayers({1, {}}, true, mesh).inversionStyle, standard);
    EXPECT_FALSE(planLayers({0, apparentDensity}, true, mesh).sumBelow);
    EXPECT_EQ(planLayers({0, surfaceAndApparent}, true, mesh).inversionStyle, surfaceAndApparent);
    EXPECT_EQ(mesh.npz, 1);
}

TEST(LayerPlan, refusals) {
    for (const LayerOptions& options : {LayerOptions{11, {}}, LayerOptions{5, {}}, LayerOptions{6, surfaceAndApparent},
                                        LayerOptions{1, standard}, LayerOptions{2, edgePadding}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_THROW(planLayers(options, true, mesh), RunError) << textOf(options);
    }
}

TEST(LayerPlan, aFormWithoutAStyleAllowsOnlyWhatReadersDerive) {
    for (const LayerOptions& options :
         {LayerOptions{1, {}}, LayerOptions{1, equivalentSource}, LayerOptions{0, surfaceAndApparent},
          LayerOptions{2, {}}, LayerOptions{0, standard}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_NO_THROW(planLayers(options, false, mesh)) << textOf(options);
    }
    for (const LayerOptions& options :
         {LayerOptions{0, apparentDensity}, LayerOptions{0, edgePadding}, LayerOptions{2, equivalentSource}}) {
        MeshGeometry mesh = meshOf(4, 4, 10);
        EXPECT_THROW(planLayers(options, false, mesh), RunError) << textOf(options);
    }
}

}  // namespace
}  // namespace voxlith
