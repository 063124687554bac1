#include "inversion/fixed_cells.h"

#include <gtest/gtest.h>

#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;

TEST(FixedCells, StyleLeavesAsManyCellsFreeAsItsCode) {
    for (const std::int32_t style : {1, 2, 3}) {
        SmallOptions options;
        options.nModelTypes = 2;
        options.inversionStyle = InversionStyle{style};
        const auto small = makeSmallProblem(options);
        ModelBounds& bounds = small->bounds;
        std::fill(bounds.boundType.begin(), bounds.boundType.end(), boundBoth);
        std::fill(bounds.upperBound.begin(), bounds.upperBound.end(), 9.0);
        bounds.fixedCell[0] = 1;
        bounds.nFixedCells = 5;
        fixDeepCells(InversionStyle{style}, small->mesh, small->arrays.model, bounds);
        for (std::size_t n = 0; n < small->modelSize(); ++n) {
            const bool fixed = n % 4 >= static_cast<std::size_t>(style);
            EXPECT_EQ(bounds.fixedCell[n], fixed ? 2 : n == 0 ? 1 : 0);
            EXPECT_EQ(bounds.lowerBound[n], fixed ? small->arrays.model[n] : 0.0);
            EXPECT_EQ(bounds.upperBound[n], fixed ? small->arrays.model[n] : 9.0);
            EXPECT_EQ(bounds.boundType[n], boundBoth);
        }
        EXPECT_EQ(bounds.nFixedCells, 5);
    }
}

TEST(FixedCells, FullModelsAreFree) {
    for (const std::int32_t style : {0, 4}) {
        SmallOptions options;
        options.cellsZXY = {6, 3, 4};  // columns longer than either code
        options.paddedZXY = {8, 4, 4};
        const auto small = makeSmallProblem(options);
        fixDeepCells(InversionStyle{style}, small->mesh, small->arrays.model, small->bounds);
        for (const std::int32_t flag : small->bounds.fixedCell) {
            EXPECT_EQ(flag, 0);
        }
    }
}

TEST(FixedCells, MeshAsThinAsTheStyleFixesNone) {
    for (const std::int32_t style : {1, 2, 3}) {
        SmallOptions options;
        options.cellsZXY = {1, 3, 4};
        options.paddedZXY = {1, 4, 4};
        const auto small = makeSmallProblem(options);
        fixDeepCells(InversionStyle{style}, small->mesh, small->arrays.model, small->bounds);
        for (const std::int32_t flag : small->bounds.fixedCell) {
            EXPECT_EQ(flag, 0);
        }
    }
}

}  // namespace
}  // namespace voxlith
